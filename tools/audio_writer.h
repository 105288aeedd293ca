/// @file
/// Writes one result.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "hidden_file.h"
#include "output_format.h"
#include "tags.h"

namespace tavrin::tool {

/// A stereo audio file that appears under its name when it is complete, or not at all. A failing disk shows as an
/// exception, at the latest in complete().
class AudioWriter {
public:
    /// @param target the final name. @param rate samples per second.
    /// @param frames about how many samples per channel will come. A WAV file that could outgrow the 4 GiB of its size
    /// field becomes an RF64 file when it really does.
    /// @throws Failure with ExitCode::writeFailed, as the other members do.
    AudioWriter(const std::filesystem::path& target, const OutputFormat& format, int rate, std::int64_t frames,
                const Tags& tags);

    /// Appends interleaved samples. What an integer format cannot hold is clipped.
    void write(const std::vector<float>& samples);

    /// Finishes the file; only its name is missing then.
    void complete();

    /// Gives a complete file its name; another one of that name is replaced.
    void publish() { _disk.publish(); }

    const std::filesystem::path& target() const { return _disk.target(); }

private:
    void check(bool succeeded) const;

    HiddenFile _disk;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> _file{nullptr, sf_close};
};

}  // namespace tavrin::tool
