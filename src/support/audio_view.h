/// @file
/// Audio that belongs to somebody else. Every view is valid as long as what it looks at.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <stdexcept>

#include "support/tensor.h"

/// [channels, samples]: sample i of channel c lies at data[c · stride + i · step]. Rows (step 1) or interleaved
/// (stride 1, step = channels).
struct AudioView {
    const float* data = nullptr;
    size_t channels = 0;
    size_t samples = 0;
    size_t stride = 0;
    size_t step = 1;

    /// Contiguous with step 1.
    const float* row(size_t channel) const { return data + channel * stride; }

    /// The view without its first `count` samples (all of them at most).
    AudioView dropFirst(size_t count) const {
        const size_t dropped = std::min(count, samples);
        return {data + dropped * step, channels, samples - dropped, stride, step};
    }

    /// The view of the first `count` samples alone (all of them at most).
    AudioView first(size_t count) const { return {data, channels, std::min(count, samples), stride, step}; }
};

/// Rows in two pieces, as a ring holds them: `tail` continues `head`, and is often empty.
struct SplitAudio {
    AudioView head;
    AudioView tail;

    size_t channels() const { return head.channels; }
    size_t samples() const { return head.samples + tail.samples; }

    SplitAudio dropFirst(size_t count) const {
        return {head.dropFirst(count), tail.dropFirst(count - std::min(count, head.samples))};
    }

    /// Calls use(piece, offset, length) for each contiguous piece of a channel's samples [first, first + n); `offset`
    /// counts from `first`.
    template <class Use>
    void eachPiece(size_t channel, size_t first, size_t n, const Use& use) const {
        const size_t inHead = std::min(n, head.samples - std::min(first, head.samples));
        if (inHead > 0) use(head.row(channel) + first, size_t{0}, inHead);
        if (inHead < n) use(tail.row(channel) + (first + inHead - head.samples), inHead, n - inHead);
    }

    /// Copies a channel's samples [first, first + n).
    void copy(size_t channel, size_t first, size_t n, float* out) const {
        eachPiece(channel, first, n, [out](const float* piece, size_t offset, size_t length) {
            std::copy_n(piece, length, out + offset);
        });
    }
};

/// Where audio goes; laid out as an AudioView.
struct AudioTarget {
    float* data = nullptr;
    size_t channels = 0;
    size_t samples = 0;
    size_t stride = 0;
    size_t step = 1;

    float* row(size_t channel) const { return data + channel * stride; }

    AudioTarget dropFirst(size_t count) const {
        const size_t dropped = std::min(count, samples);
        return {data + dropped * step, channels, samples - dropped, stride, step};
    }

    AudioTarget first(size_t count) const { return {data, channels, std::min(count, samples), stride, step}; }
};

/// Takes the first `count` samples off a target, for whoever writes them.
/// @throws std::logic_error when it has not so many.
inline AudioTarget takeFirst(AudioTarget& target, size_t count) {
    if (count > target.samples) throw std::logic_error("more samples are written than were announced");
    const AudioTarget taken = target.first(count);
    target = target.dropFirst(count);
    return taken;
}

/// @throws std::logic_error unless all of a target has been taken.
inline void requireAllTaken(const AudioTarget& target) {
    if (target.samples > 0) throw std::logic_error("fewer samples were written than announced");
}

/// Views a rank-2 tensor [channels, samples].
inline AudioView viewOf(const xt::xarray<float>& audio) {
    assert(audio.dimension() == 2);
    return {audio.data(), audio.shape(0), audio.shape(1), audio.shape(1)};
}

/// A rank-2 tensor [channels, samples] to be written.
inline AudioTarget targetIn(xt::xarray<float>& audio) {
    assert(audio.dimension() == 2);
    return {audio.data(), audio.shape(0), audio.shape(1), audio.shape(1)};
}
