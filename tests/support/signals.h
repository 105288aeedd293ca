/// @file
/// Test signals, their shapes and their comparison.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "dsp/window.h"
#include "support/tensor.h"

/// Uniform noise in [-1, 1), the same for the same seed.
inline std::vector<float> noise(size_t n, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<float> samples(n);
    for (float& sample : samples) sample = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return samples;
}

/// Two tones per channel, far below the Nyquist frequency, faded in and out over `fade` samples: what the analysis,
/// which drops the Nyquist bin, can give back unchanged. Planar.
inline std::vector<float> tones(size_t n, size_t fade) {
    std::vector<float> samples;
    for (size_t i = 0; i < 2 * n; ++i) {
        const auto t = double(i % n), edge = std::min({t, double(n - 1) - t, double(fade)}) / double(fade);
        const double gain = 0.25 - 0.25 * std::cos(3.141592653589793 * edge), detuned = i < n ? 0.57 : 0.77;
        samples.push_back(float(gain * (std::sin(0.11 * t) + std::sin(detuned * t))));
    }
    return samples;
}

/// The samples of a planar stereo signal, left and right by turns.
inline std::vector<float> interleaved(const std::vector<float>& planar) {
    std::vector<float> woven;
    for (size_t i = 0; i < planar.size(); ++i) woven.push_back(planar[i / 2 + i % 2 * (planar.size() / 2)]);
    return woven;
}

/// A window's coefficients as the stages take them.
inline xt::xtensor<float, 1> windowOf(WindowType type, size_t n) {
    auto window = xt::xtensor<float, 1>::from_shape({n});
    std::ranges::copy(getWindow(type, int(n)), window.begin());
    return window;
}

/// Columns [from, from + n) of a planar signal, [2, n].
inline xt::xarray<float> part(const std::vector<float>& planar, size_t from, size_t n) {
    auto block = xt::xarray<float>::from_shape({2, n});
    for (size_t i = 0; i < 2 * n; ++i) block.data()[i] = planar[(i < n ? 0 : planar.size() / 2 - n) + from + i];
    return block;
}

/// The left channel counts on from `from`, the right one is its negative, [2, n].
inline xt::xarray<float> ramp(size_t n, size_t from) {
    auto block = xt::xarray<float>::from_shape({2, n});
    for (size_t i = 0; i < 2 * n; ++i) block.data()[i] = float(from + i % n) * (i < n ? 1.0f : -1.0f);
    return block;
}

/// Largest absolute difference; infinite when the lengths differ.
inline float deviation(const std::vector<float>& a, const std::vector<float>& b) {
    float worst = a.size() == b.size() ? 0.0f : INFINITY;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
    return worst;
}
