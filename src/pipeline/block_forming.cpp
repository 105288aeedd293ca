#include "pipeline/block_forming.h"

#include <algorithm>

#include "support/interleaving.h"

BlockEdges BlockEdges::of(size_t length, size_t frame, size_t hop, bool first, bool last) {
    BlockEdges edges;
    if (last) {
        const size_t toWholeHops = (hop - length % hop) % hop;
        const size_t wanted = frame + toWholeHops;
        edges.rightMirror = std::min(length - 1, wanted);
        edges.rightZeros = wanted - edges.rightMirror;
    }
    if (first) edges.left = std::min(length + edges.right() - 1, frame);
    return edges;
}

PaddedBlock::PaddedBlock(const SplitAudio& block, const BlockEdges& edges) : _audio(block) {
    if (edges.total() == 0) return;
    const size_t length = block.samples();
    _padded = xt::xarray<float>::from_shape({block.channels(), length + edges.total()});
    for (size_t c = 0; c < block.channels(); ++c) {
        float* begin = _padded.data() + c * _padded.shape(1) + edges.left;
        block.copy(c, 0, length, begin);
        float* end = begin + length;
        end = std::reverse_copy(end - 1 - edges.rightMirror, end - 1, end);
        std::fill_n(end, edges.rightZeros, 0.0f);
        std::reverse_copy(begin + 1, begin + 1 + edges.left, begin - edges.left);
    }
    _audio = {viewOf(_padded), {}};
}

size_t BlockOutput::trimmed(size_t columns, const BlockEdges& edges, size_t tail) {
    const size_t kept = columns - std::min(edges.left, columns) + tail;
    return kept - std::min(edges.right(), kept);
}

void BlockOutput::write(const float* left, const float* right, size_t n) {
    const size_t skipped = std::min(_left, n);
    _left -= skipped;
    left += skipped;
    right += skipped;
    const size_t count = std::min(n - skipped, _rest.samples);
    if (_rest.step == 1) {
        std::copy_n(left, count, _rest.row(0));
        std::copy_n(right, count, _rest.row(1));
    } else {
        interleave(left, right, count, _rest.data);
    }
    _rest = _rest.dropFirst(count);
}

void BlockOutput::finish() {
    for (size_t c = 0; c < _rest.channels; ++c)
        for (size_t i = 0; i < _rest.samples; ++i) _rest.row(c)[i * _rest.step] = 0.0f;
    _rest = _rest.first(0);
}
