/// @file
/// Reads a song block by block.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "options.h"
#include "sound_source.h"
#include "work_list.h"

namespace tavrin::tool {

/// The wanted part of a song as a stream of interleaved stereo samples, wherever it comes from; mono becomes two equal
/// channels.
class SongReader {
public:
    /// @throws Failure with ExitCode::inputUnreadable, also for more than two channels; with ExitCode::wrongUsage when
    /// the song ends before the wanted part begins.
    SongReader(const Options& options, const Song& song);

    int rate() const { return _source->rate(); }     ///< samples per second
    std::int64_t frames() const { return _frames; }  ///< samples per channel, as announced; or unknownLength
    Tags tags() const { return _source->tags(); }

    double seconds(std::int64_t frames) const { return static_cast<double>(frames) / rate(); }

    /// @return the next block; an empty one at the end.
    /// @throws Failure with ExitCode::inputUnreadable when the file is damaged.
    std::vector<float> read();

    /// How many samples so far were infinite or not a number. They are read as silence: a single one would otherwise
    /// spoil seconds around it.
    std::int64_t notFinite() const { return _notFinite; }

private:
    void skipTo(double seconds);

    std::string _name;
    std::unique_ptr<SoundSource> _source;
    std::int64_t _frames = unknownLength;
    std::int64_t _left = unknownLength;  // of what the user wants
    std::int64_t _notFinite = 0;
};

}  // namespace tavrin::tool
