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
    if (hopSize > fftSize)
        throw std::invalid_argument("ChunkProcessor: a hop of " + std::to_string(hopSize) +
                                    " samples leaves gaps between frames of " + std::to_string(fftSize));
    // The step from block to block is (frameCount - 1)·hopSize - fftSize.
    if (frameCount == 0 || (frameCount - 1) * hopSize <= fftSize)
        throw std::invalid_argument("ChunkProcessor: " + std::to_string(frameCount) + " frames at a hop of " +
                                    std::to_string(hopSize) + " do not reach beyond one frame of " +
                                    std::to_string(fftSize) + " samples and its overlap");
}

void logPeak(const SplitAudio& block) {
    float peak = std::numeric_limits<float>::lowest();
    for (size_t c = 0; c < block.channels(); ++c)
        block.eachPiece(c, 0, block.samples(), [&peak](const float* piece, size_t, size_t n) {
            for (size_t i = 0; i < n; ++i) peak = std::max(peak, std::abs(piece[i]));
        });
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
    xt::xarray<float> result;
    process(viewOf(input), eof, [&result](size_t samples) {
        result = xt::xarray<float>::from_shape({kOutputChannels, samples});
        return targetIn(result);
    });
    return result;
}

bool ChunkProcessor::process(const AudioView& input, bool eof, const Output& output) {
    TAVRIN_LOG(plog::debug, kProcess) << "ChunkProcessor::process input shape: " << input.channels << "x"
                                      << input.samples << ", eof: " << eof;
    if (eof) requireFramesForRest(input.samples);
    _inputAggregator.append(input);
    TAVRIN_CHECK(!eof || _inputAggregator.length() <= _preproc->needData());

    const std::optional<SplitAudio> queued = takeBlock(eof);
    if (!queued) return false;
    if (queued->samples() == 0) {
        output(0);
        return true;
    }
    const BlockEdges edges = BlockEdges::of(queued->samples(), _fftSize, _hopSize, _firstChunk, eof);
    const PaddedBlock padded(*queued, edges);
    const SplitAudio& block = padded.audio();
    if (std::exchange(_firstChunk, false)) logPeak(block);
    TAVRIN_LOG(plog::debug, kProcess) << "Data prepared for preprocessing, shape: " << block.channels() << "x"
                                      << block.samples();

    // From the second output on, the block's first frame was a new frame of the previous call.
    const SplitAudio signal = block.dropFirst(_firstOutput ? 0 : _hopSize);
    const std::optional<IndexRange> frames = _preproc->analyse(signal, eof, _wanted);
    if (!frames) return false;
    const size_t columns = frames->count() * _hopSize;
    TAVRIN_LOG(plog::debug, kProcess) << "Preprocessed data shape: 1x" << _channels << "x"
                                      << frames->count() * _fftSize;
    if (_subtractFromInput && columns > block.samples())
        throw xt::broadcast_error("more separated samples than their block has");

    // The stream ends with silence in the place of the unfinished tail, which lies in the padding.
    const size_t tail = eof ? _postproc->pending() : 0;
    BlockEdges trimmed = edges;
    if (!std::exchange(_firstOutput, false)) trimmed.left = 0;
    const size_t samples = BlockOutput::trimmed(columns, trimmed, tail);
    BlockOutput target(output(samples), trimmed.left);
    synthesise(*frames, block, target);
    target.finish();
    TAVRIN_LOG(plog::debug, kProcess) << "ChunkProcessor::process result shape: " << kOutputChannels << "x" << samples;
    return true;
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

// The next block from the queue: nothing when it is not ready, no samples at the end of an empty stream.
std::optional<SplitAudio> ChunkProcessor::takeBlock(bool eof) {
    if (eof) {
        TAVRIN_LOG(plog::debug, kProcess) << "Processing EOF";
        return _inputAggregator.takeAll();
    }
    if (!_inputAggregator.canReturn(maxInputSize())) {
        TAVRIN_LOG(plog::debug, kProcess) << "Not enough data to process, returning empty";
        return std::nullopt;
    }
    const size_t wanted = _preproc->needData() - (_firstChunk ? _fftSize : 0);
    return _inputAggregator.take(std::min(wanted, _inputAggregator.length()), _fftSize);
}

// Overlap-adds the given frames of the model's output.
void ChunkProcessor::synthesise(const IndexRange& frames, const SplitAudio& block, BlockOutput& output) {
    ModelOutput& spectra = _preproc->modelOutput(0);
    for (size_t i = 0; i < frames.count(); ++i) {
        _postproc->synthesise(spectra.frame(frames.begin + i), spectra.planeStride(), _hop.data(), _hopSize);
        for (size_t c = 0; _subtractFromInput && c < kOutputChannels; ++c)
            block.eachPiece(c, i * _hopSize, _hopSize, [&](const float* piece, size_t offset, size_t n) {
                float* samples = _hop.data() + c * _hopSize + offset;
                for (size_t k = 0; k < n; ++k) samples[k] = piece[k] - samples[k];
            });
        output.write(_hop.data(), _hop.data() + _hopSize, _hopSize);
    }
}
