/// @file
/// Synthesis of several stems of one stream, each of which may be switched on and off.
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/fft_transformer.h"

/// Overlap-adds the frames of several stereo stems in step, as PostProcessor does for one signal.
///
/// One window sum serves all stems and advances with every frame, whatever is on. A stem that is switched on starts
/// from an empty accumulator under that full sum, so it fades in; with a sum of its own it would be divided by almost
/// nothing. A stem that is switched off is followed by frame / hop - 1 zero frames, in which it fades out; after that
/// it costs nothing.
class StemSynthesiser {
public:
    /// Where one stem's frame comes from and where its finished hop goes.
    struct Track {
        const float* planes;  ///< bin 0 of the frame in the real plane of the left channel; null: the stem is off
        float* out;           ///< hop samples of the left channel, then the right one's; not null while it isSounding()
    };

    /// @param frame,hop samples; frame a multiple of hop. @param window `frame` coefficients.
    StemSynthesiser(size_t stems, size_t frame, size_t hop, const std::vector<float>& window);

    /// True while a stem that is off still fades out.
    bool isSounding(size_t stem) const { return _stems[stem].zeroFramesLeft > 0; }

    /// Advances all stems by one frame.
    /// @param tracks one per stem. @param planeStride floats from one plane to the next.
    void advance(const std::vector<Track>& tracks, size_t planeStride);

private:
    struct Stem {
        std::vector<float> accumulator;  // both channels' rows of `frame` samples
        size_t zeroFramesLeft = 0;
    };

    PFFFTTransformer _fft;
    size_t _frame;
    size_t _hop;
    std::vector<float> _window;  // with the inverse transform's 1 / frame
    std::vector<float> _windowSquared;
    std::vector<float> _windowSum;
    std::vector<float> _gain;  // of the samples that are finished next
    size_t _framesToRepeat;    // until then, every frame changes _windowSum and _gain
    std::vector<Stem> _stems;
};
