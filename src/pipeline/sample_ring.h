/// @file
/// The newest samples of a stereo stream.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tavrin {

/// A row of samples in two pieces, as a ring holds it: `tail` continues `head`, and is often empty.
struct RingSpan {
    const float* head;
    size_t headLength;
    const float* tail;
    size_t tailLength;
};

/// Keeps the newest samples of a stereo stream, by position: sample p of the stream lies in the ring until `capacity`
/// more have come. What is not finite counts as silence.
class SampleRing {
public:
    explicit SampleRing(size_t capacity) : _capacity(capacity), _rows(2 * capacity) {}

    size_t capacity() const { return _capacity; }

    /// The position behind the newest sample.
    size_t end() const { return _end; }

    /// Appends n samples, at most the capacity: sample i at left[i · step] and right[i · step].
    void append(const float* left, const float* right, size_t step, size_t n);

    /// Appends the sample at `position` once more.
    void appendCopyOf(size_t position) {
        for (size_t c = 0; c < 2; ++c) at(c, _end) = at(c, position);
        ++_end;
    }

    /// Appends a zero.
    void appendSilence() {
        for (size_t c = 0; c < 2; ++c) at(c, _end) = 0.0f;
        ++_end;
    }

    /// A sample that is still held.
    float& at(size_t channel, size_t position) { return row(channel)[position % _capacity]; }

    /// n samples of a channel from `position` on, all of which are still held.
    RingSpan span(size_t channel, size_t position, size_t n) {
        const size_t first = position % _capacity;
        const size_t inHead = std::min(n, _capacity - first);
        return {row(channel) + first, inHead, row(channel), n - inHead};
    }

    /// Empties the ring; the next sample is that of `position`.
    void restart(size_t position) { _end = position; }

private:
    float* row(size_t channel) { return _rows.data() + channel * _capacity; }

    size_t _capacity;
    std::vector<float> _rows;  // [2, capacity]
    size_t _end = 0;
};

}  // namespace tavrin
