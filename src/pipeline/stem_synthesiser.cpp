#include "pipeline/stem_synthesiser.h"

#include <algorithm>
#include <utility>

#include "pipeline/overlap_add.h"

namespace {

constexpr size_t kChannels = 2;

}  // namespace

StemSynthesiser::StemSynthesiser(size_t stems, size_t frame, size_t hop, std::vector<float> window)
    : _fft(frame, false),
      _frame(frame),
      _hop(hop),
      _window(std::move(window)),
      _windowSum(frame, 0.0f),
      _stems(stems, Stem{std::vector<float>(kChannels * frame, 0.0f), 0}) {}

void StemSynthesiser::advance(const std::vector<Track>& tracks, size_t planeStride, size_t outStride) {
    for (size_t i = 0; i < _frame; ++i) _windowSum[i] += _window[i] * _window[i];
    const float scale = 1.0f / static_cast<float>(_frame);
    for (size_t s = 0; s < _stems.size(); ++s) {
        const Track& track = tracks[s];
        Stem& stem = _stems[s];
        if (track.planes) {
            stem.zeroFramesLeft = _frame / _hop - 1;
        } else if (stem.zeroFramesLeft > 0) {
            --stem.zeroFramesLeft;
        } else {
            if (track.out)  // switched off for good within this block
                for (size_t c = 0; c < kChannels; ++c) std::fill_n(track.out + c * outStride, _hop, 0.0f);
            continue;
        }
        for (size_t c = 0; c < kChannels; ++c) {
            float* accumulator = stem.accumulator.data() + c * _frame;
            if (track.planes) {
                const float* real = track.planes + 2 * c * planeStride;
                const float* time = inverseOfPlanes(_fft, real, real + planeStride, _frame / 2);
                overlapAdd(accumulator, _window.data(), time, scale, _frame);
            }
            float* out = track.out + c * outStride;
            std::copy_n(accumulator, _hop, out);
            divideByNorm(out, _windowSum.data(), _hop);
            slide(accumulator, _frame, _hop);
        }
    }
    slide(_windowSum.data(), _frame, _hop);
}
