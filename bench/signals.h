/// @file
/// What the benchmarks feed to streams.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Uniform noise in [-1, 1), the same in every run.
inline std::vector<float> noise(size_t n) {
    std::vector<float> samples(n);
    std::uint32_t state = 1;
    for (float& sample : samples) {
        state = state * 1664525u + 1013904223u;
        sample = float(state >> 8) / 8388608.0f - 1.0f;
    }
    return samples;
}

/// Noise that fades from 1e-36 to 1e-46: through the smallest normal number, 1.2e-38, to the smallest denormal one.
inline std::vector<float> fadeIntoSilence(size_t n) {
    std::vector<float> samples = noise(n);
    for (size_t i = 0; i < n; ++i) samples[i] *= float(std::pow(10.0, -36.0 - 10.0 * double(i) / double(n)));
    return samples;
}
