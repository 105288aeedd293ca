/// @file
/// The inner loops of synthesis, on contiguous rows.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>

#include "support/restrict.h"

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

/// Adds a windowed frame of n samples to the sums of those before it, finishes the oldest `hop` sums and moves the
/// others to the front, all in one pass: what is moved is read one hop ahead of where it is written. The newest hop of
/// the sums is zero before and after.
/// @param hop at most n. @param out the finished samples, `hop` of them.
inline void overlapAdd(float* sums, const float* window, const float* time, const float* gain, float* out, size_t n,
                       size_t hop) {
    if (hop == 0) {
        for (size_t i = 0; i < n; ++i) sums[i] += window[i] * time[i];
        return;
    }
    finishWindowed(sums, window, time, gain, out, hop);
    for (size_t i = hop; i < n; i += hop)
        addWindowed(sums + i, window + i, time + i, sums + i - hop, std::min(hop, n - i));
}

/// overlapAdd() of a frame of zeros.
inline void overlapNothing(float* sums, const float* TAVRIN_RESTRICT gain, float* TAVRIN_RESTRICT out, size_t n,
                           size_t hop) {
    for (size_t i = 0; i < hop; ++i) out[i] = gain[i] * sums[i];
    slide(sums, n, hop);
}

/// Adds a frame's squared window to the running sum of n values, takes what the oldest `hop` sums are to be multiplied
/// by, and slides the sum on. A sum that is not safely above zero leaves its sample as it is.
/// @param hop at most n.
inline void advanceWindowSum(const float* squares, float* sum, float* gain, size_t n, size_t hop) {
    for (size_t i = 0; i < n; ++i) sum[i] += squares[i];
    std::fill_n(gain, hop, 1.0f);
    divideByNorm(gain, sum, hop);
    slide(sum, n, hop);
}

/// The calls after which advanceWindowSum() changes nothing any more: the sum repeats from hop to hop.
inline size_t callsToRepeat(size_t n, size_t hop) {
    return hop > 0 ? (n + hop - 1) / hop : std::numeric_limits<size_t>::max();
}
