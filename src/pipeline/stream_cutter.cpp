#include "pipeline/stream_cutter.h"

#include <algorithm>

StreamCutter::StreamCutter(size_t frame, size_t hop, size_t frames) : _frame(frame), _hop(hop), _frames(frames) {
    for (std::vector<float>& row : _pending) row.reserve(nextBlock());
}

void StreamCutter::add(const float* left, const float* right, size_t step, size_t n, const Feed& feed) {
    _empty = _empty && n == 0;
    while (n > 0) {
        const size_t taken = std::min(n, nextBlock() - _pending[0].size());
        for (size_t i = 0; i < taken; ++i) {
            _pending[0].push_back(left[i * step]);
            _pending[1].push_back(right[i * step]);
        }
        left += taken * step;
        right += taken * step;
        n -= taken;
        if (_pending[0].size() == nextBlock()) feedBlock(nextBlock(), feed);
    }
}

void StreamCutter::finish(const Feed& feed) {
    if (_empty) return;
    const size_t longestRest = (_frames - 1) * _hop - _frame;
    if (_pending[0].size() > longestRest) feedBlock(_pending[0].size() / _hop * _hop, feed);
    const size_t rest = _pending[0].size();
    if (rest > stepSize()) feed(take(rest - stepSize()), false, false);
    feed(take(_pending[0].size()), true, true);
}

void StreamCutter::reset() {
    _first = true;
    _empty = true;
    for (std::vector<float>& row : _pending) row.clear();
}

size_t StreamCutter::nextBlock() const { return (_frames - (_first ? 1 : 3)) * _hop; }

// The engine's maxInputSize(): a block less the frame by which blocks overlap.
size_t StreamCutter::stepSize() const { return nextBlock() - _frame; }

void StreamCutter::feedBlock(size_t samples, const Feed& feed) {
    const size_t step = stepSize();
    if (samples > step) feed(take(samples - step), false, false);
    feed(take(step), false, true);
    _first = false;
}

// The oldest samples, [2, samples].
xt::xarray<float> StreamCutter::take(size_t samples) {
    auto block = xt::xarray<float>::from_shape({_pending.size(), samples});
    float* out = block.data();
    for (std::vector<float>& row : _pending) {
        const auto end = row.begin() + static_cast<ptrdiff_t>(samples);
        out = std::copy(row.begin(), end, out);
        row.erase(row.begin(), end);
    }
    return block;
}
