/// @file
/// The streaming separation of one stereo stream into several stems.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "inference/inference.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/pre_processor.h"
#include "pipeline/stem_synthesiser.h"
#include "support/index_range.h"
#include "support/tensor.h"

/// What ChunkProcessor is for one output: one analysis and one model call per block, one synthesis per stem that is on.
/// To be fed by a StreamCutter, whose calls keep its rules.
class MultiStemProcessor {
public:
    /// Finished samples: a [2, m] tensor per stem, rank 0 for a stem without output, and the rest if wanted.
    struct Output {
        std::vector<xt::xarray<float>> stems;
        xt::xarray<float> rest;
        size_t samples = 0;  ///< m
    };

    /// @param inference a model with `stems` outputs. @param wantRest also return the input minus all stems.
    MultiStemProcessor(const std::shared_ptr<IInference>& inference, size_t stems, size_t frame, size_t hop,
                       size_t frames, bool wantRest);

    /// Takes a block [2, n]; with `completesBlock`, runs the model on what is queued.
    /// @param wanted which stems are on, one flag per stem.
    /// @return nothing while the block is incomplete, or when the model call reported failure.
    std::optional<Output> process(xt::xarray<float> input, bool eof, bool completesBlock,
                                  const std::vector<bool>& wanted);

private:
    Output synthesise(const IndexRange& frames, const std::vector<bool>& wanted);

    size_t _frame;
    size_t _hop;
    size_t _frames;
    bool _wantRest;
    PreProcessor _preproc;
    StemSynthesiser _synthesiser;
    BufferAggregator _queue;
    bool _first = true;
};
