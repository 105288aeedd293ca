/// @file
/// Window functions of the short-time Fourier transform.
///
/// Every function returns exactly `n` coefficients; n = 0 gives none and a negative n throws std::length_error. Pure
/// functions, safe from any thread. The shapes are deliberately not computed alike: changing one changes the audio.
#pragma once

#include <vector>

#include "tavrin/export.h"

/// The shapes that getWindow() knows.
enum class WindowType { Hann = 0, Hamming = 1, Blackman = 2 };

/// Symmetric Hann window, 0.5 - 0.5·cos(2π·i / (n - 1)), evaluated in double precision. n = 1 gives NaN.
TAVRIN_EXPORT std::vector<float> hannWindow(int n);

/// Symmetric Hamming window, 0.54 - 0.46·cos(2π·i / (n - 1)), evaluated in double precision. n = 1 gives NaN.
TAVRIN_EXPORT std::vector<float> hammingWindow(int n);

/// Periodic Blackman window, 0.42 - 0.5·cos(2π·i / n) + 0.08·cos(4π·i / n), evaluated in single precision. Periodic,
/// because frames overlap: the coefficient after the last one would be the first again.
TAVRIN_EXPORT std::vector<float> blackmanWindow(int n);

/// The window of the given type. @throws std::runtime_error "Unknown window type", whatever n is.
TAVRIN_EXPORT std::vector<float> getWindow(WindowType type, int n);

namespace tavrin {

/// Periodic Hann window, 0.5 - 0.5·cos(2π·i / n), evaluated in double precision: the one that most spectral models are
/// made with. Not exported.
std::vector<float> periodicHannWindow(int n);

}  // namespace tavrin
