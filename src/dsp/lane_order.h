/// @file
/// The order in which a SIMD transform of four lanes leaves a real spectrum.
///
/// Ordering such a spectrum and splitting it into planes are two shuffles that mostly undo each other. In the
/// transform's own order the real and the imaginary parts already lie apart, in fours: planes are copied from it.
#pragma once

#include <cstddef>

namespace tavrin {

/// Whether a transform of n points leaves its spectrum in the order that splitPlanes() and joinPlanes() know.
/// @param positions per value of the transform's own order its position in the ordered spectrum (bin k at 2k and 2k +
/// 1,
///        the Nyquist value at 1).
bool isLaneOrder(const float* positions, size_t n);

/// Splits a spectrum of n floats in lane order into its planes of n / 2 bins; the Nyquist value is left out.
void splitPlanes(const float* spectrum, size_t n, float* real, float* imaginary);

/// Puts planes of n / 2 bins together as a spectrum in lane order; imaginary[0] stands for the Nyquist value.
void joinPlanes(const float* real, const float* imaginary, size_t n, float* spectrum);

}  // namespace tavrin
