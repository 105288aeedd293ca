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
    if (hopSize > fftSize)
        throw std::invalid_argument("ChunkProcessor: a hop of " + std::to_string(hopSize) +
                                    " samples leaves gaps between frames of " + std::to_string(fftSize));
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

// A block with its padding. Mirrored samples do not repeat the edge sample; the left side mirrors the right one, too,
// in a block as short as that.
xt::xarray<float> padded(const xt::xarray<float>& block, size_t left, size_t rightMirror, size_t rightZeros) {
    const size_t length = block.shape(1);
    auto result = xt::xarray<float>::from_shape({block.shape(0), left + length + rightMirror + rightZeros});
    for (size_t c = 0; c < block.shape(0); ++c) {
        float* begin = result.data() + c * result.shape(1) + left;
        float* end = std::copy_n(block.data() + c * length, length, begin);
        end = std::reverse_copy(end - 1 - rightMirror, end - 1, end);
        std::fill_n(end, rightZeros, 0.0f);
        std::reverse_copy(begin + 1, begin + 1 + left, begin - left);
    }
    return result;
}

}  // namespace

ChunkProcessor::ChunkProcessor(const std::shared_ptr<IInference>& inference, size_t channels, size_t fftSize,
                               size_t hopSize, size_t reserved, size_t frameCount, bool subtractFromInput)
    : _channels(channels),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _reserved(reserved),
      _frameCount(frameCount),
      _subtractFromInput(subtractFromInput),
      _hop(kOutputChannels * hopSize) {
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
    if (block.dimension() != 2 || block.shape(1) == 0) return block;
    const Padding padding = paddingFor(block.shape(1), eof);
    const size_t right = padding.rightMirror + padding.rightZeros;
    if (padding.left + right > 0) block = padded(block, padding.left, padding.rightMirror, padding.rightZeros);
    if (std::exchange(_firstChunk, false)) logPeak(block);
    TAVRIN_LOG(plog::debug, kProcess) << "Data prepared for preprocessing, shape: " << block.shape(0) << "x"
                                      << block.shape(1);

    // From the second output on, the block's first frame was a new frame of the previous call.
    const size_t dropped = std::min(_firstOutput ? 0 : _hopSize, block.shape(1));
    const std::optional<tavrin::IndexRange> frames =
        _preproc->analyse(block.data() + dropped, block.shape(1), block.shape(1) - dropped, eof);
    if (!frames) return {};
    const size_t columns = frames->count() * _hopSize;
    TAVRIN_LOG(plog::debug, kProcess) << "Preprocessed data shape: 1x" << _channels << "x"
                                      << frames->count() * _fftSize;
    if (_subtractFromInput && columns > block.shape(1))
        throw xt::broadcast_error("more separated samples than their block has");

    // The stream ends with silence in the place of the unfinished tail, which lies in the padding.
    const size_t skipped = std::min(_firstOutput ? padding.left : 0, columns);
    const size_t kept = columns - skipped + (eof ? _postproc->pending() : 0);
    auto result = xt::xarray<float>::from_shape({kOutputChannels, kept - std::min(right, kept)});
    separate(*frames, block, skipped, result);
    _firstOutput = false;
    TAVRIN_LOG(plog::debug, kProcess) << "ChunkProcessor::process result shape: " << kOutputChannels << "x"
                                      << result.shape(1);
    return result;
}  // namespace

size_t ChunkProcessor::maxInputSize() { return _preproc->needData() - 2 * _fftSize; }

// Refuses a last block, before anything has changed, when padding would make more frames of it than the model has. A
// queue that cannot take it, or holds more than any block, is not judged here.
void ChunkProcessor::requireFramesForRest(size_t incoming) const {
    const size_t length = _inputAggregator.length() + incoming;
    if (length == 0 || length > _preproc->needData() || length > _inputAggregator.capacity()) return;
    const Padding padding = paddingFor(length, true);
    const size_t dropped = _firstOutput ? 0 : _hopSize;
    const size_t samples = padding.left + length + padding.rightMirror + padding.rightZeros - dropped;
    const size_t frames = _preproc->newFrames(samples);
    if (frames > _frameCount)
        throw std::invalid_argument("ChunkProcessor: the last " + std::to_string(length) + " samples need " +
                                    std::to_string(frames) + " new frames, a model call has " +
                                    std::to_string(_frameCount));
}

// A frame on the left of the first block, a frame and what is missing to a whole number of hops on the right of the
// last one; mirrored as far as there is something to mirror. The left side of a block that is both mirrors the right.
ChunkProcessor::Padding ChunkProcessor::paddingFor(size_t length, bool eof) const {
    Padding padding;
    if (eof) {
        const size_t wanted = _fftSize + (_hopSize - length % _hopSize) % _hopSize;
        padding.rightMirror = std::min(length - 1, wanted);
        padding.rightZeros = wanted - padding.rightMirror;
    }
    if (_firstChunk) padding.left = std::min(length + padding.rightMirror + padding.rightZeros - 1, _fftSize);
    return padding;
}

// The next block from the queue: the rank-0 tensor when it is not ready, [2, 0] at the end of an empty stream.
xt::xarray<float> ChunkProcessor::takeBlock(bool eof) {
    if (eof) {
        TAVRIN_LOG(plog::debug, kProcess) << "Processing EOF";
        if (_inputAggregator.length() == 0) return xt::xarray<float>::from_shape({kOutputChannels, size_t{0}});
        return _inputAggregator.flush();
    }
    if (!_inputAggregator.canReturn(maxInputSize())) {
        TAVRIN_LOG(plog::debug, kProcess) << "Not enough data to process, returning empty";
        return {};
    }
    const size_t wanted = _preproc->needData() - (_firstChunk ? _fftSize : 0);
    return _inputAggregator.get(std::min(wanted, _inputAggregator.length()), _fftSize);
}

// Overlap-adds the given frames of the model's output into the result, without its first `skipped` columns; what lies
// behind the last column is silence or cut off.
void ChunkProcessor::separate(const tavrin::IndexRange& frames, const xt::xarray<float>& block, size_t skipped,
                              xt::xarray<float>& result) {
    const size_t bins = _fftSize / 2;
    const size_t length = result.shape(1);
    size_t written = 0;
    for (size_t i = 0; i < frames.count(); ++i) {
        const float* planes = _preproc->modelOutput() + (frames.begin + i) * bins;
        _postproc->synthesise(planes, _frameCount * bins, _hop.data(), _hopSize);
        const size_t left = std::min(skipped, _hopSize);
        skipped -= left;
        const size_t count = std::min(_hopSize - left, length - written);
        for (size_t c = 0; c < kOutputChannels; ++c) {
            const float* hop = _hop.data() + c * _hopSize + left;
            float* out = std::copy_n(hop, count, result.data() + c * length + written) - count;
            if (!_subtractFromInput) continue;
            const float* in = block.data() + c * block.shape(1) + i * _hopSize + left;
            for (size_t k = 0; k < count; ++k) out[k] = in[k] - out[k];
        }
        written += count;
    }
    for (size_t c = 0; c < kOutputChannels; ++c)
        std::fill_n(result.data() + c * length + written, length - written, 0.0f);
}
