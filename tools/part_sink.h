/// @file
/// Where a part of a song goes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "options.h"
#include "tags.h"

namespace tavrin::tool {

/// Takes one part of a song as interleaved stereo samples.
class PartSink {
public:
    virtual ~PartSink() = default;

    /// @throws Failure, as the other members do.
    virtual void write(const std::vector<float>& samples) = 0;

    /// Finishes the part; only its name is missing then.
    /// @param gain factor of all its samples, when the sink was made to wait for it.
    virtual void complete(float gain) = 0;

    /// Gives a complete part its name; an older one of that name is replaced.
    virtual void publish() = 0;
};

/// A part that appears under its name when it is complete, or not at all.
/// @param frames about how many samples per channel will come.
/// @param awaitsGain whether complete() tells how loud the part is to be: until then it is put aside on disk.
std::unique_ptr<PartSink> openPartFile(const std::filesystem::path& target, const OutputFormat& format, int rate,
                                       std::int64_t frames, const Tags& tags, bool awaitsGain);

/// Standard output, which gets the samples as they come.
std::unique_ptr<PartSink> openPartPipe(const OutputFormat& format, int rate);

}  // namespace tavrin::tool
