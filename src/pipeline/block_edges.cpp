#include "pipeline/block_edges.h"

#include <algorithm>

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
