#include "pipeline/block_forming.h"

#include <algorithm>

xt::xarray<float> takeFullBlock(BufferAggregator& queue, size_t needed, size_t frame, bool first) {
    const size_t wanted = first ? needed - frame : needed;
    return queue.get(std::min(wanted, queue.length()), frame);
}

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

xt::xarray<float> padBlock(xt::xarray<float> block, const BlockEdges& edges) {
    if (edges.left + edges.right() == 0) return block;
    const size_t channels = block.shape(0);
    const size_t length = block.shape(1);
    auto padded = xt::xarray<float>::from_shape({channels, edges.left + length + edges.right()});
    for (size_t c = 0; c < channels; ++c) {
        const float* source = block.data() + c * length;
        float* begin = padded.data() + c * padded.shape(1) + edges.left;
        float* end = std::copy_n(source, length, begin);
        end = std::reverse_copy(source + length - 1 - edges.rightMirror, source + length - 1, end);
        std::fill_n(end, edges.rightZeros, 0.0f);
        std::reverse_copy(begin + 1, begin + 1 + edges.left, begin - edges.left);
    }
    return padded;
}

xt::xarray<float> trimBlock(xt::xarray<float> block, size_t left, size_t tail, size_t right) {
    if (left + tail + right == 0) return block;
    const size_t channels = block.shape(0);
    const size_t columns = block.shape(1);
    const size_t first = std::min(left, columns);
    const size_t kept = columns - first + tail;
    const size_t length = kept - std::min(right, kept);
    const size_t copied = std::min(length, columns - first);
    auto result = xt::xarray<float>::from_shape({channels, length});
    for (size_t c = 0; c < channels; ++c) {
        float* row = result.data() + c * length;
        std::copy_n(block.data() + c * columns + first, copied, row);
        std::fill(row + copied, row + length, 0.0f);
    }
    return result;
}

void subtractFromBlock(const xt::xarray<float>& block, xt::xarray<float>& separated) {
    const size_t columns = separated.shape(1);
    if (columns > block.shape(1)) throw xt::broadcast_error("more separated samples than their block has");
    for (size_t c = 0; c < separated.shape(0); ++c) {
        const float* input = block.data() + c * block.shape(1);
        float* output = separated.data() + c * columns;
        for (size_t i = 0; i < columns; ++i) output[i] = input[i] - output[i];
    }
}
