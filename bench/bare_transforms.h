/// @file
/// The floor: nothing but the transforms of one full block.
#pragma once

#include <pffft.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

/// The geometry of the models and the work of one steady-state block.
inline constexpr size_t kFrameLength = 4096, kHop = 1024, kFrames = 256;
inline constexpr size_t kBlockFrames = kFrames - 3, kBlockSamples = kBlockFrames * kHop;
inline constexpr size_t kFirstBlockSamples = (kFrames - 1) * kHop;

/// Ordered PFFFT transforms on aligned rows, back and forth between the same two, so that all stays in the cache.
class BareTransforms {
public:
    BareTransforms()
        : _setup(pffft_new_setup(int(kFrameLength), PFFFT_REAL)), _signal(makeRow()), _spectrum(makeRow()) {
        if (!_setup || !_signal || !_spectrum) throw std::bad_alloc();
        for (size_t i = 0; i < kFrameLength; ++i) _signal.get()[i] = float(i * 7919 % 101) / 101.0f - 0.5f;
    }

    /// The transforms of a block of stereo frames: one forward each, and `stems` inverse.
    void block(size_t stems = 1) {
        for (size_t i = 0; i < 2 * kBlockFrames; ++i) {
            pffft_transform_ordered(_setup.get(), _signal.get(), _spectrum.get(), nullptr, PFFFT_FORWARD);
            for (size_t s = 0; s < stems; ++s)
                pffft_transform_ordered(_setup.get(), _spectrum.get(), _output.get(), nullptr, PFFFT_BACKWARD);
        }
    }

private:
    struct Free {
        void operator()(PFFFT_Setup* setup) const { pffft_destroy_setup(setup); }
        void operator()(float* row) const { pffft_aligned_free(row); }
    };
    using Row = std::unique_ptr<float, Free>;

    static Row makeRow() { return Row(static_cast<float*>(pffft_aligned_malloc(kFrameLength * sizeof(float)))); }

    std::unique_ptr<PFFFT_Setup, Free> _setup;
    Row _signal, _spectrum, _output{makeRow()};
};
