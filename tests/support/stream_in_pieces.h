/// @file
/// A whole stream through an engine, cut in any way.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "pipeline/stream_engine.h"
#include "support/signals.h"

/// Sends a planar stereo stream through an engine in pieces of cut(position) samples, planar or interleaved by turns;
/// `cut` is asked at the end, too. @return all outputs after one another, planar.
/// @throws std::logic_error when not what is promised comes, or more than the latency is held back.
template <class Cut>
std::vector<float> streamInPieces(tavrin::StreamEngine& engine, const tavrin::StreamPlan& plan,
                                  const std::vector<float>& planar, Cut cut) {
    using Output = tavrin::StreamEngine::Output;
    const size_t length = planar.size() / 2;
    std::vector<float> woven = interleaved(planar), all(2 * length * plan.outputs());
    for (size_t from = 0, done = 0, call = 0, isLast = 0; !isLast; ++call) {
        isLast = from == length;
        const size_t n = std::min(size_t{cut(from)}, length - from);
        const size_t finished = isLast ? engine.pending() : engine.outputFor(n);
        std::vector<float> room(2 * finished * plan.outputs() + 1, 9.0f);
        std::vector<Output> targets;
        for (float* at = room.data(); targets.size() < plan.outputs(); at += 2 * finished)
            targets.push_back(call % 2 == 0 ? Output{at, at + 1, 2} : Output{at, at + finished, 1});
        const float *const pair = woven.data() + 2 * from, *const left = planar.data() + from;
        if (isLast)
            engine.finish(targets.data());
        else if (call % 2 == 0)
            engine.process({pair, pair + 1, 2}, n, targets.data());
        else
            engine.process({left, left + length, 1}, n, targets.data());
        from += n, done += finished;
        if (room.back() != 9.0f || engine.pending() != from - done || from - done > (isLast ? 0 : plan.latency()))
            throw std::logic_error("too much or too little is written or held back");
        for (size_t o = 0; o < plan.outputs(); ++o)
            for (size_t i = 0; i < finished; ++i) {
                float* const at = &all[2 * o * length + done - finished + i];
                at[0] = targets[o].left[i * targets[o].step], at[length] = targets[o].right[i * targets[o].step];
            }
    }
    return all;
}
