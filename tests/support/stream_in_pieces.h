/// @file
/// A whole stream through an engine, cut in any way.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "pipeline/stream_engine.h"
#include "support/signals.h"

/// Sends a planar stereo stream through an engine in pieces of cut(position) samples, which are given planar or
/// interleaved by turns; `cut` is asked at the end, too. @return all outputs after one another, planar.
/// @throws std::logic_error when not what is promised comes, or more than the latency is held back.
template <class Cut>
std::vector<float> streamInPieces(tavrin::StreamEngine& engine, const tavrin::StreamPlan& plan,
                                  const std::vector<float>& planar, Cut cut) {
    const size_t length = planar.size() / 2;
    const std::vector<float> woven = interleaved(planar);
    std::vector<float> all(2 * length * plan.outputs() + 1, INFINITY);  // which no engine gives
    for (size_t from = 0, done = 0, call = 0, isLast = 0; !isLast; ++call) {
        isLast = from == length;
        const size_t n = std::min(size_t{cut(from)}, length - from);
        const size_t finished = isLast ? engine.pending() : engine.outputFor(n);
        std::vector<tavrin::StreamEngine::Output> targets;
        for (float* at = &all[done]; targets.size() < plan.outputs(); at += 2 * length)
            targets.push_back({at, at + length, 1});
        const float *const pair = woven.data() + 2 * from, *const left = planar.data() + from;
        if (isLast)
            engine.finish(targets.data());
        else if (call % 2 == 0)
            engine.process({pair, pair + 1, 2}, n, targets.data());
        else
            engine.process({left, left + length, 1}, n, targets.data());
        from += n, done += finished;
        const auto written = std::ranges::count_if(all, [](float sample) { return std::isfinite(sample); });
        if (size_t(written) != 2 * done * plan.outputs() || engine.pending() != from - done ||
            from - done > (isLast ? 0 : plan.latency()))
            throw std::logic_error("too much or too little is written or held back");
    }
    all.pop_back();
    return all;
}
