/// @file
/// Between interleaved stereo and rows.
#pragma once

#include <cstddef>

#include "support/restrict.h"

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
