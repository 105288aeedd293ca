/// @file
/// How a stream becomes blocks for model calls, and how their output becomes the stream's again.
#pragma once

#include <cstddef>

#include "support/audio_view.h"
#include "support/tensor.h"

/// Samples that a stream's first and last blocks gain on their outer sides, so that every sample lies in full frames.
/// Mirrored samples do not repeat the edge sample; a block shorter than the mirror image asked for is continued with
/// zeros.
struct BlockEdges {
    size_t left = 0;         ///< mirrored, of the block as padded on the right
    size_t rightMirror = 0;  ///< mirrored
    size_t rightZeros = 0;   ///< zeros after the mirrored samples

    size_t right() const { return rightMirror + rightZeros; }
    size_t total() const { return left + right(); }

    /// @param length samples of the block, at least 1.
    /// @param first true for the stream's first block: one frame on the left.
    /// @param last true for its last: one frame on the right, and what the length lacks to a whole number of hops.
    static BlockEdges of(size_t length, size_t frame, size_t hop, bool first, bool last);
};

/// A block with its edges, copied only when there are any.
class PaddedBlock {
public:
    PaddedBlock(const SplitAudio& block, const BlockEdges& edges);
    PaddedBlock(const PaddedBlock&) = delete;
    PaddedBlock& operator=(const PaddedBlock&) = delete;

    const SplitAudio& audio() const { return _audio; }

private:
    xt::xarray<float> _padded;
    SplitAudio _audio;
};

/// The finished columns of a block, as they come, without those that only the edges gave.
class BlockOutput {
public:
    /// Columns that are left of `columns` when `edges` are cut off and `tail` zeros stand behind. Never less than none.
    static size_t trimmed(size_t columns, const BlockEdges& edges, size_t tail);

    /// @param target as many samples as trimmed() says, stereo. @param left columns that are cut off at the start.
    BlockOutput(const AudioTarget& target, size_t left) : _rest(target), _left(left) {}

    /// The next n columns; what lies beyond the target is cut off.
    void write(const float* left, const float* right, size_t n);

    /// Silence in what is left of the target.
    void finish();

private:
    AudioTarget _rest;
    size_t _left;
};
