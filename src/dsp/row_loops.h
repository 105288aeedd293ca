/// @file
/// The inner loops of the pipeline, on contiguous rows that do not overlap unless it is said.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "support/restrict.h"

namespace tavrin {

/// product[i] = a[i] · b[i]
inline void multiply(const float* TAVRIN_RESTRICT a, const float* TAVRIN_RESTRICT b, float* TAVRIN_RESTRICT product,
                     size_t n) {
    for (size_t i = 0; i < n; ++i) product[i] = a[i] * b[i];
}

/// sums[i] = older[i] + window[i] · time[i]
inline void addWindowed(const float* TAVRIN_RESTRICT older, const float* TAVRIN_RESTRICT window,
                        const float* TAVRIN_RESTRICT time, float* TAVRIN_RESTRICT sums, size_t n) {
    for (size_t i = 0; i < n; ++i) sums[i] = older[i] + window[i] * time[i];
}

/// out[i] = gain[i] · (sums[i] + window[i] · time[i])
inline void finishWindowed(const float* TAVRIN_RESTRICT sums, const float* TAVRIN_RESTRICT window,
                           const float* TAVRIN_RESTRICT time, const float* TAVRIN_RESTRICT gain,
                           float* TAVRIN_RESTRICT out, size_t n) {
    for (size_t i = 0; i < n; ++i) out[i] = gain[i] * (sums[i] + window[i] * time[i]);
}

/// values[j] /= norm[j] where the norm is safely above zero. No float lies between the smallest normal one and the
/// threshold 1.1754944e-38, so comparing with the former is the same.
inline void divideByNorm(float* values, const float* norm, size_t n) {
    for (size_t j = 0; j < n; ++j)
        values[j] = norm[j] > std::numeric_limits<float>::min() ? values[j] / norm[j] : values[j];
}

/// Slides a row towards index 0 by `step` < n and fills its end with zeros.
inline void slide(float* row, size_t n, size_t step) {
    std::copy(row + step, row + n, row);
    std::fill(row + n - step, row + n, 0.0f);
}

/// from[i] -= what[i]
inline void subtract(float* TAVRIN_RESTRICT from, const float* TAVRIN_RESTRICT what, size_t n) {
    for (size_t i = 0; i < n; ++i) from[i] -= what[i];
}

/// left[i], right[i] ← interleaved[2i], interleaved[2i + 1]
inline void deinterleave(const float* TAVRIN_RESTRICT interleaved, size_t n, float* TAVRIN_RESTRICT left,
                         float* TAVRIN_RESTRICT right) {
    for (size_t i = 0; i < n; ++i) {
        left[i] = interleaved[2 * i];
        right[i] = interleaved[2 * i + 1];
    }
}

/// interleaved[2i], interleaved[2i + 1] ← left[i], right[i]
inline void interleave(const float* TAVRIN_RESTRICT left, const float* TAVRIN_RESTRICT right, size_t n,
                       float* TAVRIN_RESTRICT interleaved) {
    for (size_t i = 0; i < n; ++i) {
        interleaved[2 * i] = left[i];
        interleaved[2 * i + 1] = right[i];
    }
}

/// The bits that are all set in infinities and in what is not a number, and in nothing else.
inline constexpr std::uint32_t kExponentBits = 0x7f800000;

/// A sample, or silence in the place of one that is not finite.
inline float finiteOrSilence(float sample) {
    const auto bits = std::bit_cast<std::uint32_t>(sample);
    return std::bit_cast<float>((bits & kExponentBits) == kExponentBits ? 0 : bits);
}

/// left[i], right[i] ← interleaved[2i], interleaved[2i + 1], or silence
inline void deinterleaveFinite(const float* TAVRIN_RESTRICT interleaved, size_t n, float* TAVRIN_RESTRICT left,
                               float* TAVRIN_RESTRICT right) {
    for (size_t i = 0; i < n; ++i) {
        left[i] = finiteOrSilence(interleaved[2 * i]);
        right[i] = finiteOrSilence(interleaved[2 * i + 1]);
    }
}

/// Whether all values are finite.
inline bool areFinite(const float* row, size_t n) {
    std::uint32_t found = 0;
    for (size_t i = 0; i < n; ++i)
        found |= (std::bit_cast<std::uint32_t>(row[i]) & kExponentBits) == kExponentBits ? 1U : 0U;
    return found == 0;
}

}  // namespace tavrin
