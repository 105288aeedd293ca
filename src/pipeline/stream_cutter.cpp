#include "pipeline/stream_cutter.h"

#include <algorithm>

#include "support/interleaving.h"

namespace {

constexpr size_t kChannels = 2;

}  // namespace

StreamCutter::StreamCutter(size_t frame, size_t hop, size_t frames)
    : _frame(frame), _hop(hop), _frames(frames), _rows(kChannels * blockSize(true)) {}

void StreamCutter::add(AudioView samples, const Feed& feed) {
    _empty = _empty && samples.samples == 0;
    while (_held + samples.samples >= nextBlock()) {
        const size_t needed = nextBlock() - _held;
        if (_held == 0) {
            feedBlock(samples.first(needed), feed);
        } else {
            hold(samples.first(needed));
            feedBlock(held(), feed);
            _held = 0;
        }
        samples = samples.dropFirst(needed);
    }
    hold(samples);
}

void StreamCutter::finish(const Feed& feed) {
    if (_empty) return;
    AudioView rest = held();
    const size_t longestRest = (_frames - 1) * _hop - _frame;
    if (rest.samples > longestRest) {
        const size_t block = rest.samples / _hop * _hop;
        feedBlock(rest.first(block), feed);
        rest = rest.dropFirst(block);
    }
    if (rest.samples > stepSize()) {
        const size_t before = rest.samples - stepSize();
        feed(rest.first(before), false, false);
        rest = rest.dropFirst(before);
    }
    feed(rest, true, true);
    _held = 0;
}

void StreamCutter::reset() {
    _first = true;
    _empty = true;
    _held = 0;
}

size_t StreamCutter::outputFor(size_t n, bool last) const {
    // The engine keeps one frame unfinished from block to block.
    if (last) return (_first ? 0 : _frame) + _held + n;
    size_t waiting = _held + n, output = 0;
    bool first = _first;
    for (; waiting >= blockSize(first); first = false) {
        waiting -= blockSize(first);
        output += blockSize(first) - (first ? _frame : 0);
    }
    return output;
}

// The engine's maxInputSize(): a block less the frame by which blocks overlap.
size_t StreamCutter::stepSize() const { return nextBlock() - _frame; }

void StreamCutter::feedBlock(AudioView block, const Feed& feed) {
    const size_t step = stepSize();
    if (block.samples > step) {
        const size_t before = block.samples - step;
        feed(block.first(before), false, false);
        block = block.dropFirst(before);
    }
    feed(block, false, true);
    _first = false;
}

void StreamCutter::hold(const AudioView& samples) {
    float* left = _rows.data() + _held;
    float* right = left + blockSize(true);
    if (samples.step == 1) {
        std::copy_n(samples.row(0), samples.samples, left);
        std::copy_n(samples.row(1), samples.samples, right);
    } else {
        deinterleave(samples.data, samples.samples, left, right);
    }
    _held += samples.samples;
}

AudioView StreamCutter::held() const { return {_rows.data(), kChannels, _held, blockSize(true)}; }
