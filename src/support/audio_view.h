/// @file
/// Audio that belongs to somebody else.
#pragma once

#include <cassert>
#include <cstddef>

#include "support/tensor.h"

/// [channels, samples] float rows at a constant distance; valid as long as what it looks at.
struct AudioView {
    const float* data;
    size_t channels;
    size_t samples;
    size_t stride;  ///< floats from one row to the next, at least `samples`

    const float* row(size_t channel) const { return data + channel * stride; }

    /// The view without its first `count` samples (all of them at most).
    AudioView dropFirst(size_t count) const {
        const size_t dropped = count < samples ? count : samples;
        return {data + dropped, channels, samples - dropped, stride};
    }
};

/// Views a rank-2 tensor [channels, samples].
inline AudioView viewOf(const xt::xarray<float>& audio) {
    assert(audio.dimension() == 2);
    return {audio.data(), audio.shape(0), audio.shape(1), audio.shape(1)};
}
