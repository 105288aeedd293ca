/// @file
/// Analysis: from audio blocks through the model to spectra.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "inference/inference.h"
#include "pipeline/model_window.h"
#include "support/index_range.h"
#include "support/tensor.h"
#include "tavrin/export.h"

/// Frames, windows and transforms blocks of audio, calls the model on the newest `frames` frames, and gives back the
/// frames that are final.
///
/// The model's input tensor, [2·channels, frames, fftSize / 2] with the real and the imaginary plane of each channel,
/// persists: it keeps the newest frames of earlier calls, oldest first. The Nyquist bin has no place in it. With
/// `trimEdges` a frame is returned only when the model has seen a neighbour on each side: the newest frame of a call is
/// withheld until the next one.
///
/// One object serves one stream; nothing resets it. Threads: one at a time.
class TAVRIN_EXPORT PreProcessor {
public:
    /// @param channels audio channels.
    /// @param fftSize frame length in samples, a length that PFFFTTransformer takes.
    /// @param hopSize samples between the starts of consecutive frames, at least 1.
    /// @param window fftSize analysis coefficients.
    /// @param inference the model.
    /// @param frames frames per model call.
    /// @param trimEdges whether to withhold frames at the edges of a call.
    /// @param outputCount number of the model's output tensors, each like the input.
    /// @throws std::invalid_argument for a length that cannot be transformed, a window of another length, or no
    /// channels
    ///         or frames.
    PreProcessor(size_t channels, size_t fftSize, size_t hopSize, xt::xarray<float> window,
                 std::shared_ptr<IInference> inference, size_t frames, bool trimEdges, size_t outputCount);

    /// Analyses a block and runs the model once.
    ///
    /// Frames are aligned to the block's end: when its length minus fftSize is not a multiple of the hop, its first
    /// samples belong to no frame.
    ///
    /// @param signal [channels, samples]: at least fftSize and at most needData() samples.
    /// @param eof true for the stream's last block: the newest frame is not withheld.
    /// @return [outputs, channels, n · fftSize], the ordered spectra of n frames after one another; the rank-0 tensor
    ///         when the model call reports failure.
    /// @throws std::invalid_argument for a block of another shape or with more new frames than a model call has, before
    ///         anything has changed; what the model call throws.
    xt::xarray<float> process(xt::xarray<float> signal, bool eof);

    /// The samples that the next block should have: fftSize + (frames - 1)·hopSize at first, after a call with edge
    /// trimming two hops less, because two frames of context are kept.
    size_t needData() const;

    /// The frames behind the last ones returned; with any real geometry [outputs, channels, 0]. Changes nothing.
    xt::xarray<float> flush();

    /// New frames that a block of `samples` samples, at least fftSize, brings. The hop must not be 0.
    size_t newFrames(size_t samples) const { return (samples - _fftSize) / _hopSize + 1; }

    /// process() of rows without the copies: the final frames stay where the model wrote them.
    /// @param rows the first channel's samples; @param stride floats from one channel to the next.
    /// @return the frames of modelOutput() that are final; nothing when the model call reports failure.
    std::optional<tavrin::IndexRange> analyse(const float* rows, size_t stride, size_t samples, bool eof);

    /// The first output of the last model call, [2·channels, frames, fftSize / 2].
    const float* modelOutput() const { return _outputs.front().data(); }

private:
    struct Ranges {
        tavrin::IndexRange frames;  // slots that are final
        tavrin::IndexRange tail;    // positions that flush() returns
    };
    std::optional<Ranges> run(const float* rows, size_t stride, size_t samples, bool eof);
    void requireChannels(size_t channels) const;
    void requireBlock(size_t samples) const;
    bool runModel();
    Ranges finalFrames(size_t newFrames, bool eof) const;
    void succeed(const tavrin::IndexRange& tail);
    xt::xarray<float> spectra(const tavrin::IndexRange& positions) const;

    size_t _channels;
    size_t _fftSize;
    size_t _hopSize;
    size_t _outputCount;
    std::shared_ptr<IInference> _inference;
    size_t _frames;
    bool _trimEdges;
    size_t _contextFrames = 0;
    tavrin::ModelWindow _window;
    xt::xarray<float> _pendingTail;
    bool _firstCall = true;
    std::vector<std::vector<float>> _outputs;  // of the last model call
};
