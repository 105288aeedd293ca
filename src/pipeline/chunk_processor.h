/// @file
/// The streaming separation of one stereo stream.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "inference/inference.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/post_processor.h"
#include "pipeline/pre_processor.h"
#include "support/audio_view.h"
#include "support/index_range.h"
#include "support/tensor.h"
#include "tavrin/export.h"

class BlockOutput;

/// Queues audio, cuts it into blocks that fill a model call, sends them through analysis, model and synthesis, and
/// hands the finished samples out in order.
///
/// Consecutive blocks overlap by one frame. The stream's first block is padded with one mirrored frame on the left, its
/// last with one on the right; both are cut off again. One object serves one stream; nothing resets it.
///
/// Rules: a call without `eof` carries exactly maxInputSize() samples, asked anew before each; the last call, with
/// `eof`, carries at most that many. Off these rules blocks leave the grid of hops, and samples are skipped at their
/// borders.
///
/// Threads: one at a time. The model may be shared as far as its implementation allows.
class TAVRIN_EXPORT ChunkProcessor {
public:
    /// @param inference the model, for spectra [2·channels, frameCount, fftSize / 2].
    /// @param channels must be 2.
    /// @param fftSize frame length in samples. @param hopSize samples between frames.
    /// @param reserved kept, not used.
    /// @param frameCount frames per model call.
    /// @param subtractFromInput return the input minus the separated signal.
    /// @throws std::invalid_argument for frames with gaps between them, a geometry whose first block would not advance,
    /// or
    ///         other channel counts.
    ///         Blocks go on advancing from about frameCount = 4 · fftSize / hopSize on.
    ChunkProcessor(const std::shared_ptr<IInference>& inference, size_t channels, size_t fftSize, size_t hopSize,
                   size_t reserved, size_t frameCount, bool subtractFromInput);
    ~ChunkProcessor();
    ChunkProcessor(const ChunkProcessor&) = delete;
    ChunkProcessor& operator=(const ChunkProcessor&) = delete;

    /// Takes a block [2, n], n may be 0, and returns finished samples [2, m], or the rank-0 tensor when there is not
    /// enough input yet or the model call reported failure.
    /// @param eof true for the stream's last call, which returns all that is left; [2, 0] for an empty stream.
    /// @throws std::runtime_error when the queue cannot take the block, std::invalid_argument when the rest of the
    ///         stream needs more frames than a model call has (nothing has changed in both cases); what the model call
    ///         throws. Aborts the process when more is queued at the end than a model call takes.
    xt::xarray<float> process(xt::xarray<float> input, bool eof);

    /// Asked once per block, when the model has run, where a number of finished samples go: rows or interleaved.
    using Output = std::function<AudioTarget(size_t samples)>;

    /// process() without copies: from wherever the block is to wherever its output goes.
    /// @return false, and `output` was not asked, where process() returns the rank-0 tensor.
    /// @throws also what `output` throws; the block is lost then.
    bool process(const AudioView& input, bool eof, const Output& output);

    /// The samples per channel that the next call should carry.
    size_t maxInputSize();

private:
    void requireFramesForRest(size_t incoming) const;
    std::optional<SplitAudio> takeBlock(bool eof);
    void synthesise(const IndexRange& frames, const SplitAudio& block, BlockOutput& output);

    size_t _channels;
    size_t _fftSize;
    size_t _hopSize;
    [[maybe_unused]] size_t _reserved;
    size_t _frameCount;
    bool _subtractFromInput;
    std::unique_ptr<PreProcessor> _preproc;
    std::unique_ptr<PostProcessor> _postproc;
    BufferAggregator _inputAggregator;
    bool _firstChunk = true;
    bool _firstOutput = true;
    std::vector<bool> _wanted = {true};  // the model's one output is read
    std::vector<float> _hop;             // a frame's finished samples, [2, hopSize]
};
