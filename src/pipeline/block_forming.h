/// @file
/// How a stream becomes blocks for model calls, and how their output becomes the stream's again. Blocks are stereo or
/// wider [channels, samples] tensors.
#pragma once

#include <cstddef>

#include "pipeline/buffer_aggregator.h"
#include "support/tensor.h"

/// Takes the next block from a queue that holds one, leaving its last frame queued.
/// @param needed samples that fill the coming model call. @param first true for the stream's first block, which gains a
///        frame by padding.
xt::xarray<float> takeFullBlock(BufferAggregator& queue, size_t needed, size_t frame, bool first);

/// Samples that a stream's first and last blocks gain on their outer sides, so that every sample lies in full frames.
/// Mirrored samples do not repeat the edge sample; a block shorter than the mirror image asked for is continued with
/// zeros.
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

/// Returns [channels, left + samples + right]; the block itself when nothing is added.
xt::xarray<float> padBlock(xt::xarray<float> block, const BlockEdges& edges);

/// Returns the columns of a block from `left` on, continued by `tail` zeros, without the last `right` columns of that;
/// the block itself when nothing changes. Never less than nothing.
xt::xarray<float> trimBlock(xt::xarray<float> block, size_t left, size_t tail, size_t right);

/// separated ← block − separated, over the columns of `separated`.
/// @throws xt::broadcast_error when `separated` has more columns than the block.
void subtractFromBlock(const xt::xarray<float>& block, xt::xarray<float>& separated);
