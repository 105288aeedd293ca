/// @file
/// The analysis stage: from samples to the model's input.
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/fft_transformer.h"
#include "pipeline/sample_ring.h"

namespace tavrin {

/// The spectra of the newest frames, [2·channels, frames, bins]: real and imaginary plane of each channel, frames
/// oldest first, bins from DC up. Silence at first.
///
/// A plane's next frame may lie where the following plane's oldest one was, so the window slides by moving its start,
/// as far as there is slack behind it; only then the frames that stay are moved to the front.
class ModelWindow {
public:
    /// @param coefficients of the analysis window, one for each sample of a frame, a length that PFFFTTransformer
    /// takes.
    /// @param bins at most half a frame. @param slack frames by which the window may slide before it is moved.
    ModelWindow(size_t channels, size_t frames, size_t bins, std::vector<float> coefficients, size_t slack);

    /// Forgets the n oldest frames, at most all. The n newest ones are to be written then.
    void advance(size_t n);

    /// Windows and transforms one frame of a channel into a slot, 0 for the oldest.
    void analyse(size_t channel, size_t slot, const RingSpan& samples);

    /// Makes a frame of zeros of a slot, in all channels.
    void silence(size_t slot);

    /// Silence in all slots.
    void clear();

    /// The model's input.
    const float* data() const { return _spectra.data() + _start * _bins; }

private:
    float* row(size_t plane, size_t slot) { return _spectra.data() + ((_start + plane * _frames + slot) * _bins); }

    size_t _planes;
    size_t _frames;
    size_t _bins;
    size_t _slack;
    std::vector<float> _window;
    PFFFTTransformer _fft;
    std::vector<float> _spectra;   // [planes, frames, bins] and the slack
    std::vector<float> _halfRows;  // real and imaginary part of all bins of a frame, when the model sees fewer
    size_t _start = 0;             // frames from the memory's start to the window's
};

}  // namespace tavrin
