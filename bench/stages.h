/// @file
/// The stages of one steady-state block, each on its own.
#pragma once

#include <benchmark/benchmark.h>

#include <vector>

#include "bare_transforms.h"
#include "dsp/row_loops.h"
#include "dsp/window.h"
#include "models.h"
#include "pipeline/model_window.h"
#include "pipeline/overlap_add.h"
#include "pipeline/sample_ring.h"
#include "signals.h"

/// What a Separator's block is made of; interleaved, one stem.
class Stages {
public:
    Stages() { ring(), analysis(), synthesis(), hostOut(); }

    /// From the host's memory into the ring.
    void ring() {
        for (size_t f = 0; f < kBlockFrames; ++f) {
            const float* samples = &_block[2 * f * kHop];
            _ring.append(samples, samples + 1, 2, kHop);
        }
    }

    /// Windows, forward transforms, planes.
    void analysis() {
        for (size_t f = 0; f < kBlockFrames; ++f)
            for (size_t c = 0; c < 2; ++c)
                _window.analyse(c, 3 + f, _ring.span(c, _ring.end() - kFrameLength, kFrameLength));
        _window.advance(kBlockFrames);
        benchmark::DoNotOptimize(_window.data());
    }

    /// Planes, inverse transforms, overlap-add.
    void synthesis() {
        constexpr size_t kPlane = kFrames * kFrameLength / 2;
        for (size_t f = 0; f < kBlockFrames; ++f) {
            _synthesis.advance();
            for (size_t c = 0; c < 2; ++c) {
                const float* real = &_spectra[2 * c * kPlane + f * kFrameLength / 2];
                _synthesis.addPlanes(c, real, real + kPlane, &_hop[c * kHop]);
            }
        }
    }

    /// Finished hops to the host's memory.
    void hostOut() {
        for (size_t f = 0; f < kBlockFrames; ++f) {
            benchmark::DoNotOptimize(tavrin::areFinite(_hop.data(), 2 * kHop));
            tavrin::interleave(_hop.data(), &_hop[kHop], kHop, &_block[2 * f * kHop]);
        }
    }

private:
    static std::vector<float> window() { return getWindow(WindowType::Blackman, int(kFrameLength)); }

    std::vector<float> _block = noise(2 * kBlockSamples);
    std::vector<float> _hop = noise(2 * kHop);
    std::vector<float> _spectra = std::vector<float>(kSpectrumSize, 1e-3f);
    tavrin::SampleRing _ring{2 * kFrameLength + 8 * kHop};
    tavrin::ModelWindow _window{2, kFrames, kFrameLength / 2, window(), 0};
    tavrin::OverlapAdd _synthesis{2, kHop, window(), kFrameLength / 2};
};
