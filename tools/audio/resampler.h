/// @file
/// Samples of any kind as interleaved stereo floats of another rate.
#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Converts a stream of samples from one rate to another, without shifting it in time: sample k of the one and sample
/// k · to / from of the other are the same moment. Stereo floats that keep their rate pass untouched.
/// The filter withholds some samples until finish(), so keep what belongs beside them in a queue.
class Resampler {
public:
    /// Of interleaved stereo floats. @param from, to samples per second. @throws as the other constructor.
    Resampler(int from, int to);

    /// Of samples as decoders give them. Mono becomes two equal channels; more than two are mixed down.
    /// @throws Failure with ExitCode::inputUnreadable when the libraries cannot.
    Resampler(const AVChannelLayout& layout, AVSampleFormat format, int from, int to);

    /// Whether samples pass untouched.
    bool isIdle() const { return !_converter; }

    std::vector<float> process(std::vector<float> samples);

    /// Appends what comes out for `count` samples per channel of any kind; without data, what is still withheld.
    void process(const std::uint8_t** data, int count, std::vector<float>& result);

    /// Ends the stream.
    /// @param length samples per channel that all calls together are to have returned: missing ones are silent, too
    /// many are left out; negative for the natural length, round(samples · to / from).
    std::vector<float> finish(std::int64_t length = -1);

private:
    std::unique_ptr<SwrContext, FreeWith<swr_free>> _converter;
    int _from, _to;
    std::int64_t _in = 0, _out = 0;  // samples per channel so far
};

/// How many are infinite or not a number: their exponent has all bits set. Comparing integers, compilers vectorise it.
inline std::int64_t countNotFinite(std::span<const float> samples) {
    std::uint32_t count = 0;
    for (const float sample : samples) count += (std::bit_cast<std::uint32_t>(sample) & 0x7F800000U) == 0x7F800000U;
    return count;
}

}  // namespace tavrin::tool
