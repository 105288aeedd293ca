/// @file
/// The block-wise separation of one stereo stream.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "inference/inference.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/post_processor.h"
#include "pipeline/pre_processor.h"
#include "support/index_range.h"
#include "support/tensor.h"
#include "tavrin/export.h"

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
    /// @throws std::invalid_argument for frames with gaps between them, a geometry whose first block would not
    ///         advance, or other channel counts.
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

    /// The samples per channel that the next call should carry.
    size_t maxInputSize();

private:
    /// Samples that a block gains on its outer sides, so that every sample lies in full frames.
    struct Padding {
        size_t left = 0;
        size_t rightMirror = 0;  // of the right side, mirrored
        size_t rightZeros = 0;   // and zeros behind it
    };

    void requireFramesForRest(size_t incoming) const;
    Padding paddingFor(size_t length, bool eof) const;
    xt::xarray<float> takeBlock(bool eof);
    void separate(const tavrin::IndexRange& frames, const xt::xarray<float>& block, size_t skipped,
                  xt::xarray<float>& result);

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
    std::vector<float> _hop;  // a frame's finished samples, [2, hopSize]
};
