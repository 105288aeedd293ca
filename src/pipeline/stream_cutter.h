/// @file
/// Cuts a stream into the calls that keep the engine on its grid of hops.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <vector>

#include "support/tensor.h"

/// Takes stereo audio in pieces of any size and feeds a block engine with the calls that it wants, as few model calls
/// as the geometry allows: however the stream was cut, the engine sees the same calls.
///
/// With N the frame, H the hop, F the frames per model call and q = N / H, the first block has (F - 1)·H samples and
/// the later ones (F - 3)·H. At the end, what is left goes with the end-of-stream call; when its padding would need
/// more than F frames, that is beyond (F - 1 - q)·H samples, one more block of whole hops goes before. A block is fed
/// as two calls, because the engine takes a block when its step size has arrived: first the samples above that size,
/// which return nothing, then exactly the step size.
class StreamCutter {
public:
    /// Receives one engine call: [2, n] samples, the end-of-stream flag, and whether the call completes a block.
    using Feed = std::function<void(xt::xarray<float> samples, bool eof, bool completesBlock)>;

    /// @param frame,hop samples; frame a multiple of hop. @param frames per model call, at least 4·frame / hop.
    StreamCutter(size_t frame, size_t hop, size_t frames);

    /// Takes n samples per channel; sample i of a channel lies i · step floats behind its pointer.
    void add(const float* left, const float* right, size_t step, size_t n, const Feed& feed);

    /// Ends the stream; an empty one makes no call.
    void finish(const Feed& feed);

    /// Forgets the stream.
    void reset();

    /// The most samples per channel that are ever held back, here and in the engine: all but one of a later block, and
    /// the frame that the previous block left unfinished.
    static constexpr size_t latency(size_t frame, size_t hop, size_t frames) { return (frames - 3) * hop - 1 + frame; }

private:
    size_t nextBlock() const;
    size_t stepSize() const;
    void feedBlock(size_t samples, const Feed& feed);
    xt::xarray<float> take(size_t samples);

    size_t _frame;
    size_t _hop;
    size_t _frames;
    bool _first = true;
    bool _empty = true;
    std::array<std::vector<float>, 2> _pending;
};
