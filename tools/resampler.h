/// @file
/// Changes the rate of a stereo stream.
#pragma once

#include <soxr.h>

#include <memory>
#include <vector>

namespace tavrin::tool {

/// Converts a stream of interleaved stereo samples from one rate to another, without shifting it in time. With equal
/// rates the samples pass untouched.
///
/// The filter withholds a few samples until finish(), and the length of a stream that is converted there and back may
/// differ from the first one by a few samples; the caller makes up for both.
class Resampler {
public:
    /// @param from, to rates in samples per second.
    /// @throws Failure with ExitCode::inputUnreadable when libsoxr cannot convert between them.
    Resampler(double from, double to);

    std::vector<float> process(std::vector<float> samples);
    std::vector<float> finish();

private:
    std::vector<float> convert(const float* samples, std::size_t frames);

    std::unique_ptr<soxr, void (*)(soxr_t)> _soxr{nullptr, soxr_delete};
};

}  // namespace tavrin::tool
