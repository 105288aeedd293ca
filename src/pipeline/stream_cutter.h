/// @file
/// Cuts a stream into the calls that keep the engine on its grid of hops.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "support/audio_view.h"

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
    /// Receives one engine call: [2, n] samples, valid during the call, the end-of-stream flag, and whether the call
    /// completes a block.
    using Feed = std::function<void(const AudioView& samples, bool eof, bool completesBlock)>;

    /// @param frame,hop samples; frame a multiple of hop. @param frames per model call, at least 4·frame / hop.
    StreamCutter(size_t frame, size_t hop, size_t frames);

    /// Takes stereo samples, rows or interleaved. Whole blocks go from there to the engine without another copy.
    void add(AudioView samples, const Feed& feed);

    /// Ends the stream; an empty one makes no call.
    void finish(const Feed& feed);

    /// Forgets the stream.
    void reset();

    /// What the engine will give out, in samples per channel, for n more samples and, with `last`, the end of the
    /// stream.
    size_t outputFor(size_t n, bool last) const;

    /// The most samples per channel that are ever held back, here and in the engine: all but one of a later block, and
    /// the frame that the previous block left unfinished.
    static constexpr size_t latency(size_t frame, size_t hop, size_t frames) { return (frames - 3) * hop - 1 + frame; }

private:
    size_t blockSize(bool first) const { return (_frames - (first ? 1 : 3)) * _hop; }
    size_t nextBlock() const { return blockSize(_first); }
    size_t stepSize() const;
    void feedBlock(AudioView block, const Feed& feed);
    void hold(const AudioView& samples);
    AudioView held() const;

    size_t _frame;
    size_t _hop;
    size_t _frames;
    bool _first = true;
    bool _empty = true;
    std::vector<float> _rows;  // [2, a first block], the longer one
    size_t _held = 0;          // samples at their start that wait for the rest of their block
};
