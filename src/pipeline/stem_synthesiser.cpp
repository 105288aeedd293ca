#include "pipeline/stem_synthesiser.h"

#include <algorithm>

#include "pipeline/overlap_add.h"
#include "support/denormals.h"

namespace {

constexpr size_t kChannels = 2;

}  // namespace

StemSynthesiser::StemSynthesiser(size_t stems, size_t frame, size_t hop, const std::vector<float>& window)
    : _fft(frame, false),
      _frame(frame),
      _hop(hop),
      _window(window),
      _windowSquared(window),
      _windowSum(frame, 0.0f),
      _gain(hop, 1.0f),
      _framesToRepeat(callsToRepeat(frame, hop)),
      _stems(stems, Stem{std::vector<float>(kChannels * frame, 0.0f), 0}) {
    for (float& w : _windowSquared) w *= w;
    for (float& w : _window) w *= 1.0f / static_cast<float>(frame);
}

void StemSynthesiser::advance(const std::vector<Track>& tracks, size_t planeStride) {
    if (_framesToRepeat > 0) {
        advanceWindowSum(_windowSquared.data(), _windowSum.data(), _gain.data(), _frame, _hop);
        --_framesToRepeat;
    }
    const DenormalsAsZero guard;
    for (size_t s = 0; s < _stems.size(); ++s) {
        const Track& track = tracks[s];
        Stem& stem = _stems[s];
        if (track.planes) {
            stem.zeroFramesLeft = _frame / _hop - 1;
        } else if (stem.zeroFramesLeft > 0) {
            --stem.zeroFramesLeft;
        } else {
            if (track.out) std::fill_n(track.out, kChannels * _hop, 0.0f);  // switched off for good within this block
            continue;
        }
        for (size_t c = 0; c < kChannels; ++c) {
            float* sums = stem.accumulator.data() + c * _frame;
            float* out = track.out + c * _hop;
            if (track.planes) {
                const float* real = track.planes + 2 * c * planeStride;
                overlapAdd(sums, _window.data(), _fft.signalOfPlanes(real, real + planeStride), _gain.data(), out,
                           _frame, _hop);
            } else {
                overlapNothing(sums, _gain.data(), out, _frame, _hop);
            }
        }
    }
}
