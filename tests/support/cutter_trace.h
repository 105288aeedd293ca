/// @file
/// A stream on its way through cutter and engine.
#pragma once

#include <bit>
#include <cstdlib>
#include <memory>
#include <vector>

#include "pipeline/chunk_processor.h"
#include "pipeline/stream_cutter.h"
#include "support/fake_inference.h"

/// All that passes between the cutter and an engine of a small geometry, as bits, since NaN is not equal to itself.
/// Aborts when a call breaks the engine's rules or a sample is lost.
/// @param song interleaved, `length` samples per channel; it comes in blocks as long as `cuts` say, the rest in one.
inline std::vector<unsigned> trace(const float* song, size_t length, const std::vector<std::uint8_t>& cuts) {
    StreamCutter cutter(64, 16, 16);
    ChunkProcessor engine(std::make_shared<FakeInference>(), 2, 64, 16, 0, 16, false);
    std::vector<unsigned> bits;
    size_t in = 0, out = 0, promised = 0;
    const auto note = [&bits](const xt::xarray<float>& values) {
        for (const float value : values) bits.push_back(std::bit_cast<unsigned>(value));
    };
    const auto feed = [&](const AudioView& view, bool eof, bool completesBlock) {
        auto block = xt::xarray<float>::from_shape({2, view.samples});
        for (size_t i = 0; i < block.size(); ++i)
            block.data()[i] = view.row(i / view.samples)[i % view.samples * view.step];
        if (completesBlock && !eof && block.shape(1) != engine.maxInputSize()) std::abort();
        const xt::xarray<float> result = engine.process(block, eof);
        if (completesBlock != (result.dimension() == 2)) std::abort();
        bits.insert(bits.end(), {unsigned(block.shape(1)), eof, completesBlock});
        note(block), note(result);
        in += block.shape(1), out += result.dimension() == 2 ? result.shape(1) : 0;
    };
    for (size_t i = 0, n = 0, left = length; i <= cuts.size(); ++i, song += 2 * n, left -= n) {
        n = i < cuts.size() ? std::min<size_t>(2 * cuts[i], left) : left;
        promised += cutter.outputFor(n, false);
        cutter.add({song, 2, n, 1, 2}, feed);
    }
    if (out != promised || out + cutter.outputFor(0, true) != length) std::abort();
    cutter.finish(feed);
    if (in != length || out != length) std::abort();
    return bits;
}
