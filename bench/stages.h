/// @file
/// The stages of one steady-state block, each on its own.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "api/sample_layout.h"
#include "bare_transforms.h"
#include "dsp/window.h"
#include "models.h"
#include "pipeline/block_forming.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/model_output.h"
#include "pipeline/post_processor.h"
#include "pipeline/pre_processor.h"
#include "pipeline/stream_cutter.h"
#include "signals.h"

/// What a StreamSeparator's call is made of; interleaved.
class Stages {
public:
    Stages() {
        // What nobody has written to would be read off one page of zeros.
        std::fill_n(_output.prepare(), 4 * _output.planeStride(), 1e-3f);
        std::fill_n(_spectra.prepare(), 4 * _spectra.planeStride(), 1e-3f);
        _queue.append(rowsOf(kBlockSamples).first(kFrameLength));
        hostIn(), queue(), analysis(), synthesis();  // warm, and the first analysis behind it
    }

    /// Cutting the host's vector into engine calls.
    void hostIn() {
        const auto feed = [](const AudioView& samples, bool, bool) { benchmark::DoNotOptimize(samples.data); };
        _cutter.add(rowsOf(kBlockSamples), feed);
    }

    /// Through the queue, with one frame kept.
    void queue() {
        _queue.append(rowsOf(kBlockSamples));
        benchmark::DoNotOptimize(_queue.take(kFrameLength + kBlockSamples, kFrameLength));
    }

    /// Windows, forward transforms, planes; and what handover() measures.
    void analysis() { benchmark::DoNotOptimize(_pre.analyse({_rows.data(), 2, kSignal, kSignal}, false)); }

    /// The model's output buffer before and after its run.
    void handover() {
        benchmark::DoNotOptimize(_output.prepare());
        for (size_t f = 0; f < kBlockFrames; ++f) benchmark::DoNotOptimize(_output.frame(2 + f));
    }

    /// Planes, inverse transforms, overlap-add.
    void synthesis() {
        for (size_t f = 0; f < kBlockFrames; ++f)
            _post.synthesise(_spectra.frame(2 + f), _spectra.planeStride(), _hop.data(), kHop);
    }

    /// From finished hops into a new vector.
    void hostOut() {
        std::vector<float> output(2 * kBlockSamples);
        BlockOutput block(stereoTarget(output, true), 0);
        for (size_t f = 0; f < kBlockFrames; ++f) block.write(_hop.data(), _hop.data() + kHop, kHop);
        benchmark::DoNotOptimize(output.data());
    }

private:
    static constexpr size_t kSignal = kFrameLength + (kBlockFrames - 1) * kHop;

    AudioView rowsOf(size_t samples) const { return stereoView(_block, true).first(samples); }

    static std::vector<float> window() { return getWindow(WindowType::Blackman, int(kFrameLength)); }

    static xt::xtensor<float, 1> windowTensor() {
        const std::vector<float> coefficients = window();
        auto tensor = xt::xtensor<float, 1>::from_shape({kFrameLength});
        std::copy(coefficients.begin(), coefficients.end(), tensor.begin());
        return tensor;
    }

    std::vector<float> _block = noise(2 * kBlockSamples);
    std::vector<float> _rows = noise(2 * kSignal);
    std::vector<float> _hop = std::vector<float>(2 * kHop);
    StreamCutter _cutter{kFrameLength, kHop, kFrames};
    BufferAggregator _queue{2, 2 * (kFirstBlockSamples - kFrameLength), 1};
    PreProcessor _pre{2, kFrameLength, kHop, windowTensor(), std::make_shared<IdleModel>(), kFrames, true, 1};
    PostProcessor _post{2, kFrameLength, kHop, windowTensor()};
    ModelOutput _output{4, kFrames, kFrameLength / 2};
    ModelOutput _spectra{4, kFrames, kFrameLength / 2};
};
