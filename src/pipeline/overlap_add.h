/// @file
/// The synthesis stage: from spectra to finished samples.
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/fft_transformer.h"

namespace tavrin {

/// Inverse transform, synthesis window, overlap-add, and division by the running sum of the squared window, for any
/// number of rows that advance in step.
///
/// One window sum serves all rows and moves on with every frame, whatever is added. A row that begins late starts from
/// an empty accumulator under the full sum, so it fades in; with a sum of its own it would be divided by almost
/// nothing. In the same way a row that ends fades out.
class OverlapAdd {
public:
    /// @param rows for example the channels of all stems.
    /// @param hop samples that every frame finishes, at most a frame; 0: none ever are.
    /// @param coefficients of the synthesis window, one for each sample of a frame.
    /// @param bins that addPlanes() gets, at most half a frame.
    OverlapAdd(size_t rows, size_t hop, const std::vector<float>& coefficients, size_t bins);

    /// Begins a frame: the window sum moves on by a hop. Then every row gets one of the calls below.
    void advance();

    /// Whether advance() no longer changes anything, so that a row may take several frames before the next one does.
    bool repeats() const { return _framesToRepeat == 0; }

    /// Adds a frame given as planes. @param out receives the row's `hop` finished samples.
    void addPlanes(size_t row, const float* real, const float* imaginary, float* out);

    /// Adds a frame given as an ordered spectrum of frame-length values.
    void addSpectrum(size_t row, const float* spectrum, float* out);

    /// Adds a frame of zeros.
    void addNothing(size_t row, float* out);

    /// Copies the unfinished samples of a row, from the oldest on, normalised as far as they are. Changes nothing.
    void copyUnfinished(size_t row, size_t n, float* out) const;

    /// Frames after which a row that has ended is silent.
    size_t fadeFrames() const { return (_frame + _hop - 1) / _hop - 1; }

    /// Forgets what has been added.
    void clear();

private:
    void add(size_t row, const float* time, float* out);

    size_t _frame;
    size_t _hop;
    size_t _bins;
    PFFFTTransformer _fft;
    std::vector<float> _window;  // with the inverse transform's 1 / frame
    std::vector<float> _windowSquared;
    std::vector<float> _windowSum;  // moves together with the accumulators
    std::vector<float> _gain;       // of the samples that are finished next: 1 / _windowSum
    std::vector<float> _halfRows;   // real and imaginary part of all bins of a frame, when planes have fewer
    std::vector<float> _sums;       // [rows, frame], the oldest unfinished sample first
    size_t _framesToRepeat;         // until then, every frame changes _windowSum and _gain
};

}  // namespace tavrin
