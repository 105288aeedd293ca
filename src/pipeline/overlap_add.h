/// @file
/// The inner loops of synthesis, on contiguous rows.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>

#include "dsp/fft_transformer.h"

/// Transforms one frame from its real and imaginary plane back to time. @return N samples, N times too large, valid
/// until the transformer's next call.
inline const float* inverseOfPlanes(PFFFTTransformer& fft, const float* real, const float* imaginary, size_t bins) {
    float* spectrum = fft.staging();
    for (size_t k = 0; k < bins; ++k) {
        spectrum[2 * k] = real[k];
        spectrum[2 * k + 1] = imaginary[k];
    }
    return fft.transformStaged(true);
}

/// accumulator[i] += window[i] · (scale · time[i])
inline void overlapAdd(float* accumulator, const float* window, const float* time, float scale, size_t n) {
    for (size_t i = 0; i < n; ++i) accumulator[i] += window[i] * (scale * time[i]);
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
