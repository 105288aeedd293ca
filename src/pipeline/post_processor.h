/// @file
/// Synthesis: from spectra to audio by overlap-add.
#pragma once

#include <algorithm>
#include <cstddef>

#include "pipeline/overlap_add.h"
#include "support/tensor.h"
#include "tavrin/export.h"

/// Turns spectra back into audio: inverse transform, synthesis window, overlap-add, normalisation by the running sum of
/// squared window values. Every frame finishes one hop of samples, which no later frame touches.
///
/// One object serves one stream; nothing resets it. Threads: one at a time.
class TAVRIN_EXPORT PostProcessor {
public:
    /// @param channels audio channels.
    /// @param fftSize frame length in samples.
    /// @param hopSize samples finished by every frame.
    /// @param window fftSize synthesis coefficients.
    /// @throws std::invalid_argument for a length that cannot be transformed, xt::broadcast_error for a window of
    ///         another length.
    PostProcessor(size_t channels, size_t fftSize, size_t hopSize, xt::xtensor<float, 1> window);

    /// Synthesises one frame, [channels, fftSize], or several stereo ones, [channels, fftSize, frames].
    /// @return finished samples, [channels, hop] or [2, frames · hop].
    /// @throws as processFrame(); std::invalid_argument for other ranks, xt::concatenate_error for several frames of
    ///         other than two channels.
    xt::xarray<float> process(xt::xarray<float> spectrum);

    /// Synthesises one frame of ordered spectra, [channels, fftSize] or one row for all channels.
    /// @return finished samples, [channels, hop].
    /// @throws xt::broadcast_error for other row counts, std::invalid_argument for other lengths; nothing has changed.
    xt::xarray<float> processFrame(xt::xtensor<float, 2> frame);

    /// The unfinished samples, [channels, fftSize - hop], normalised as far as they are. Changes nothing.
    xt::xarray<float> flush();

    /// processFrame() without copies, from the planes of a model output to the rows of a block.
    /// @param planes bin 0 of the frame in the real plane of the first channel; fftSize / 2 bins.
    /// @param planeStride floats from one plane to the next; planes alternate between real and imaginary.
    /// @param out,outStride where the first channel's hop samples go, and floats from one channel to the next.
    void synthesise(const float* planes, size_t planeStride, float* out, size_t outStride);

    /// Columns of flush().
    size_t pending() const { return _fftSize - std::min(_hopSize, _fftSize); }

private:
    size_t emitted() const { return std::min(_hopSize, _fftSize); }
    void logShifts() const;

    size_t _channels;
    size_t _fftSize;
    size_t _hopSize;
    tavrin::OverlapAdd _overlapAdd;
};

/// Slides a tensor towards index 0 of its last axis by `step` and fills the end with zeros. For rank 1 and 2.
template <class T>
void shiftArray(T& array, size_t step);

/// Divides every column j of `values`, [rows, n], by norm[j], [n], where that is above 1.1754944e-38, the smallest
/// normal float; other columns stay exactly as they are.
/// @throws xt::broadcast_error when the columns are not n.
template <class T>
void applyTiny(T& values, const T& norm);

extern template TAVRIN_EXPORT void shiftArray(xt::xtensor<float, 1>& array, size_t step);
extern template TAVRIN_EXPORT void shiftArray(xt::xtensor<float, 2>& array, size_t step);
extern template TAVRIN_EXPORT void applyTiny(xt::xarray<float>& values, const xt::xarray<float>& norm);
