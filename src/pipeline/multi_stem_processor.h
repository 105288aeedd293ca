/// @file
/// The streaming separation of one stereo stream into several stems.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "inference/inference.h"
#include "pipeline/block_forming.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/pre_processor.h"
#include "pipeline/stem_synthesiser.h"
#include "support/audio_view.h"
#include "support/index_range.h"

/// What ChunkProcessor is for one output: one analysis and one model call per block, one synthesis per stem that is on.
/// To be fed by a StreamCutter, whose calls keep its rules.
class MultiStemProcessor {
public:
    /// Asked once per block for each stem that sounds, then for the rest (track number `stems`) if it is wanted: where
    /// a number of finished samples go, rows or interleaved.
    using Output = std::function<AudioTarget(size_t track, size_t samples)>;

    /// @param inference a model with `stems` outputs. @param wantRest also return the input minus all stems.
    MultiStemProcessor(const std::shared_ptr<IInference>& inference, size_t stems, size_t frame, size_t hop,
                       size_t frames, bool wantRest);

    /// Takes a block [2, n]; with `completesBlock`, runs the model on what is queued.
    /// @param wanted which stems are on, one flag per stem.
    /// @return false, and `output` was not asked, while the block is incomplete or when the model call reported
    /// failure.
    bool process(const AudioView& input, bool eof, bool completesBlock, const std::vector<bool>& wanted,
                 const Output& output);

    /// Whether the next block brings output of a stem: it is on, or still fades out.
    bool sounds(size_t stem, const std::vector<bool>& wanted) const {
        return wanted[stem] || _synthesiser.isSounding(stem);
    }

private:
    void synthesise(const IndexRange& frames, const std::vector<bool>& wanted, const SplitAudio& block);
    const float* restOf(const SplitAudio& block, size_t first);

    size_t _frame;
    size_t _hop;
    size_t _frames;
    size_t _stems;
    bool _wantRest;
    PreProcessor _preproc;
    StemSynthesiser _synthesiser;
    BufferAggregator _queue;
    bool _first = true;

    // Work memory of a call, one entry per stem.
    std::vector<StemSynthesiser::Track> _tracks;
    std::vector<BlockOutput> _outputs;  // and one for the rest
    std::vector<float> _hops;           // [stems + 1, 2, hop], a frame's finished samples
};
