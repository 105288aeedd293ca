/// @file
/// Streams in their steady state: every call brings one block and takes one home.
#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "api/multi_stem_stream.h"
#include "bare_transforms.h"
#include "models.h"
#include "signals.h"
#include "tavrin/stream_separator.h"

/// A StreamSeparator that has its first block behind it.
class SteadyStream {
public:
    SteadyStream(const tavrin::TavrinProcConfig& config, std::vector<float> block, size_t hostBlock = kBlockSamples)
        : _separator(config) {
        _separator.process(std::vector<float>(2 * kFirstBlockSamples));
        for (size_t from = 0; from < block.size(); from += 2 * hostBlock) {
            const auto begin = block.begin() + std::ptrdiff_t(from);
            _calls.emplace_back(begin, begin + std::ptrdiff_t(std::min(2 * hostBlock, block.size() - from)));
        }
        this->block();
    }

    /// Feeds a block, in calls of the host's size.
    void block() {
        for (const std::vector<float>& samples : _calls) {
            std::vector<float> output = _separator.process(samples);
            benchmark::DoNotOptimize(output.data());
        }
    }

private:
    tavrin::StreamSeparator _separator;
    std::vector<std::vector<float>> _calls;
};

/// The same for several stems of a model that does nothing.
class SteadyStems {
public:
    explicit SteadyStems(size_t wanted) : _stream(std::make_shared<IdleModel>(), false, true), _wanted(6) {
        std::fill_n(_wanted.begin(), wanted, true);
        _stream.process(std::vector<float>(2 * kFirstBlockSamples), false, _wanted);
        block();
    }

    void block() {
        tavrin::SeparatedStems output = _stream.process(_block, false, _wanted);
        benchmark::DoNotOptimize(output.stems[0].data());
    }

private:
    tavrin::MultiStemStream _stream;
    std::vector<bool> _wanted;
    std::vector<float> _block = noise(2 * kBlockSamples);
};
