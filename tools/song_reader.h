/// @file
/// Reads a song block by block.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace tavrin::tool {

/// A song as a stream of interleaved stereo samples, whatever file it comes from; mono becomes two equal channels.
class SongReader {
public:
    /// @throws Failure with ExitCode::inputUnreadable, also for more than two channels.
    explicit SongReader(const std::filesystem::path& file);

    /// What frames() says when the file does not know its length.
    static constexpr std::int64_t unknownLength = SF_COUNT_MAX;

    int rate() const { return _info.samplerate; }         ///< samples per second
    std::int64_t frames() const { return _info.frames; }  ///< samples per channel, as announced by the file

    double seconds(std::int64_t frames) const { return static_cast<double>(frames) / _info.samplerate; }

    /// @return the next block; an empty one at the end.
    /// @throws Failure with ExitCode::inputUnreadable when the file is damaged.
    std::vector<float> read();

    /// How many samples so far were infinite or not a number. They are read as silence: a single one would otherwise
    /// spoil seconds around it.
    std::int64_t notFinite() const { return _notFinite; }

private:
    std::filesystem::path _name;
    SF_INFO _info{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> _file;
    std::int64_t _notFinite = 0;
};

}  // namespace tavrin::tool
