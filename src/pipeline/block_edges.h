/// @file
/// What a stream's first and last blocks get on their outer sides, so that every sample lies in full frames.
#pragma once

#include <cstddef>

#include "support/tensor.h"

/// Samples that a block gains on both sides. Mirrored samples do not repeat the edge sample; a block shorter than the
/// mirror image asked for is continued with zeros.
struct BlockEdges {
    size_t left = 0;         ///< mirrored, of the block as padded on the right
    size_t rightMirror = 0;  ///< mirrored
    size_t rightZeros = 0;   ///< zeros after the mirrored samples

    size_t right() const { return rightMirror + rightZeros; }

    /// @param length samples of the block, at least 1.
    /// @param first true for the stream's first block: one frame on the left.
    /// @param last true for its last: one frame on the right, and what the length lacks to a whole number of hops.
    static BlockEdges of(size_t length, size_t frame, size_t hop, bool first, bool last);
};

/// Returns [channels, left + samples + right] from a block [channels, samples]; the block itself when nothing is added.
xt::xarray<float> padBlock(xt::xarray<float> block, const BlockEdges& edges);
