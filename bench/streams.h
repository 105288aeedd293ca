/// @file
/// Streams in their steady state: every call brings samples and takes others home.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "models.h"
#include "signals.h"
#include "tavrin/separator.h"
#include "tavrin/tavrin_proc.h"

/// A Separator on the caller's memory that has its start behind it.
class SteadyStream {
public:
    /// @param samples per call of a block; the last one brings what is left.
    SteadyStream(const tavrin::Model& model, const tavrin::SeparatorConfig& config, std::vector<float> input,
                 size_t samples = kBlockSamples)
        : _separator(model, config),
          _isPlanar(config.layout == tavrin::Layout::planar),
          _input(std::move(input)),
          _call(samples),
          _outputs(_separator.outputs().size() * 2 * kRoom, 1e-3f) {
        for (size_t o = 0; o < _separator.outputs().size(); ++o) {
            _pointers.push_back(&_outputs[2 * o * kRoom]);
            if (_isPlanar) _pointers.push_back(&_outputs[(2 * o + 1) * kRoom]);
        }
        for (int i = 0; i < 3; ++i) block();
    }

    /// Feeds a block, in calls of the host's size.
    void block() {
        const size_t step = _isPlanar ? 1 : 2;
        for (size_t from = 0; from < kBlockSamples; from += _call) {
            const float* const input[] = {&_input[step * from], &_input[kBlockSamples + from]};
            const size_t n = std::min(_call, kBlockSamples - from);
            benchmark::DoNotOptimize(_separator.process(input, n, _pointers.data(), kRoom));
        }
    }

private:
    static constexpr size_t kRoom = 2 * kBlockSamples;

    tavrin::Separator _separator;
    bool _isPlanar;
    std::vector<float> _input;
    size_t _call;
    std::vector<float> _outputs;
    std::vector<float*> _pointers;
};

/// A TavrinProc that has its first block behind it.
class SteadyFacade {
public:
    SteadyFacade() : _facade(configFor(std::make_shared<IdleModel>(1))) { block(), block(); }

    /// Feeds the block that the facade wants.
    void block() {
        const std::vector<float> input(_input.begin(), _input.begin() + std::ptrdiff_t(2 * _facade.maxInputSize()));
        std::vector<float> output = _facade.process(input, false);
        benchmark::DoNotOptimize(output.data());
    }

    /// The hops of a block, for comparison with the floor.
    static constexpr size_t kHops = 249;

private:
    static tavrin::TavrinProcConfig configFor(std::shared_ptr<IInference> model) {
        inferenceInstances["benchmark"] = std::move(model);  // a stream keeps the one that it was made with
        return {.modelTag = "benchmark"};
    }

    std::vector<float> _input = noise(2 * kFirstBlockSamples);
    tavrin::TavrinProc _facade;
};
