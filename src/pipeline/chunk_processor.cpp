#include "pipeline/chunk_processor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dsp/window.h"
#include "pipeline/block_forming.h"
#include "support/audio_view.h"
#include "support/check.h"
#include "support/log.h"

namespace {

constexpr const char* kProcess = "xt::xarray<float> ChunkProcessor::process(xt::xarray<float>, bool)";

// The output is stereo whatever the queue could hold.
constexpr size_t kOutputChannels = 2;

// Above this the stream's first block is reported as clipping.
constexpr float kLoudPeak = 1.1f;

void requireGeometry(size_t channels, size_t fftSize, size_t hopSize, size_t frameCount) {
    if (channels != kOutputChannels)
        throw std::invalid_argument("ChunkProcessor: " + std::to_string(channels) + " channels; it separates stereo");
    // The step from block to block is (frameCount - 1)·hopSize - fftSize.
    if (frameCount == 0 || (frameCount - 1) * hopSize <= fftSize)
        throw std::invalid_argument("ChunkProcessor: " + std::to_string(frameCount) + " frames at a hop of " +
                                    std::to_string(hopSize) + " do not reach beyond one frame of " +
                                    std::to_string(fftSize) + " samples and its overlap");
}

void logPeak(const xt::xarray<float>& block) {
    float peak = std::numeric_limits<float>::lowest();
    for (const float sample : block) peak = std::max(peak, std::abs(sample));
    if (peak > kLoudPeak) {
        TAVRIN_LOG(plog::info, kProcess) << "MAX2: [" << peak << "]";
    }
}

}  // namespace

ChunkProcessor::ChunkProcessor(const std::shared_ptr<IInference>& inference, size_t channels, size_t fftSize,
                               size_t hopSize, size_t reserved, size_t frameCount, bool subtractFromInput)
    : _channels(channels),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _reserved(reserved),
      _frameCount(frameCount),
      _subtractFromInput(subtractFromInput) {
    requireGeometry(channels, fftSize, hopSize, frameCount);
    const std::vector<float> coefficients = getWindow(WindowType::Blackman, static_cast<int>(fftSize));
    auto window = xt::xtensor<float, 1>::from_shape({fftSize});
    std::copy(coefficients.begin(), coefficients.end(), window.begin());

    constexpr bool kTrimEdges = true;
    constexpr size_t kOutputs = 1;
    _preproc =
        std::make_unique<PreProcessor>(channels, fftSize, hopSize, window, inference, frameCount, kTrimEdges, kOutputs);
    _postproc = std::make_unique<PostProcessor>(channels, fftSize, hopSize, window);
    constexpr int kBatch = 1;
    _inputAggregator = BufferAggregator(channels, 2 * _preproc->needData() - 4 * fftSize, kBatch);
}

ChunkProcessor::~ChunkProcessor() = default;

xt::xarray<float> ChunkProcessor::process(xt::xarray<float> input, bool eof) {
    if (input.dimension() != 2)
        throw std::invalid_argument("ChunkProcessor: a block of rank " + std::to_string(input.dimension()) +
                                    "; it must be [channels, samples]");
    TAVRIN_LOG(plog::debug, kProcess) << "ChunkProcessor::process input shape: " << input.shape(0) << "x"
                                      << input.shape(1) << ", eof: " << eof;
    if (eof) requireFramesForRest(input.shape(1));
    _inputAggregator.add(std::move(input));
    TAVRIN_CHECK(!eof || _inputAggregator.length() <= _preproc->needData());

    xt::xarray<float> block = takeBlock(eof);
    if (block.dimension() == 0) return {};
    if (block.shape(1) == 0) return xt::xarray<float>::from_shape({kOutputChannels, 0});

    const BlockEdges edges = BlockEdges::of(block.shape(1), _fftSize, _hopSize, _firstChunk, eof);
    block = padBlock(std::move(block), edges);
    if (std::exchange(_firstChunk, false)) logPeak(block);
    TAVRIN_LOG(plog::debug, kProcess) << "Data prepared for preprocessing, shape: " << block.shape(0) << "x"
                                      << block.shape(1);

    // From the second output on, the block's first frame was a new frame of the previous call.
    const AudioView signal = viewOf(block).dropFirst(_firstOutput ? 0 : _hopSize);
    const std::optional<IndexRange> frames = _preproc->analyse(signal, eof);
    if (!frames) return {};
    TAVRIN_LOG(plog::debug, kProcess) << "Preprocessed data shape: 1x" << _channels << "x"
                                      << frames->count() * _fftSize;

    xt::xarray<float> result = synthesise(*frames);
    if (_subtractFromInput) subtractFromBlock(block, result);
    const size_t left = std::exchange(_firstOutput, false) ? edges.left : 0;
    // The stream ends with silence in the place of the unfinished tail, which lies in the padding.
    const size_t tail = eof ? _postproc->flush().shape(1) : 0;
    result = trimBlock(std::move(result), left, tail, edges.right());
    TAVRIN_LOG(plog::debug, kProcess) << "ChunkProcessor::process result shape: " << result.shape(0) << "x"
                                      << result.shape(1);
    return result;
}

size_t ChunkProcessor::maxInputSize() { return _preproc->needData() - 2 * _fftSize; }

// Refuses a last block, before anything has changed, when padding would make more frames of it than the model has. A
// queue that cannot take it, or holds more than any block, is not judged here.
void ChunkProcessor::requireFramesForRest(size_t incoming) const {
    const size_t length = _inputAggregator.length() + incoming;
    if (length == 0 || length > _preproc->needData() || !_inputAggregator.canAccept(incoming)) return;
    const BlockEdges edges = BlockEdges::of(length, _fftSize, _hopSize, _firstChunk, true);
    const size_t dropped = _firstOutput ? 0 : _hopSize;
    const size_t frames = _preproc->newFrames(edges.left + length + edges.right() - dropped);
    if (frames > _frameCount)
        throw std::invalid_argument("ChunkProcessor: the last " + std::to_string(length) + " samples need " +
                                    std::to_string(frames) + " new frames, a model call has " +
                                    std::to_string(_frameCount));
}

// The next block from the queue: rank 0 when it is not ready, [channels, 0] at the end of an empty stream.
xt::xarray<float> ChunkProcessor::takeBlock(bool eof) {
    if (eof) {
        TAVRIN_LOG(plog::debug, kProcess) << "Processing EOF";
        if (_inputAggregator.length() == 0) return xt::xarray<float>::from_shape({_channels, 0});
        return _inputAggregator.flush();
    }
    if (!_inputAggregator.canReturn(maxInputSize())) {
        TAVRIN_LOG(plog::debug, kProcess) << "Not enough data to process, returning empty";
        return {};
    }
    return takeFullBlock(_inputAggregator, _preproc->needData(), _fftSize, _firstChunk);
}

// Overlap-adds the given frames of the model's output: [2, frames · hop].
xt::xarray<float> ChunkProcessor::synthesise(const IndexRange& frames) {
    const xt::xarray<float>& output = _preproc->modelOutput(0);
    const size_t bins = output.shape(2);
    const size_t columns = frames.count() * _hopSize;
    auto result = xt::xarray<float>::from_shape({kOutputChannels, columns});
    for (size_t i = 0; i < frames.count(); ++i)
        _postproc->synthesise(output.data() + (frames.begin + i) * bins, _frameCount * bins,
                              result.data() + i * _hopSize, columns);
    return result;
}
