#include "pipeline/pre_processor.h"

#include <algorithm>
#include <cassert>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/denormals.h"
#include "support/log.h"
#include "support/restrict.h"

namespace {

constexpr const char* kProcess = "xt::xarray<float> PreProcessor::process(xt::xarray<float>, bool)";

// A frame that is returned late was kept from the previous call together with the one before it.
constexpr size_t kContextFrames = 2;

void multiply(const float* TAVRIN_RESTRICT a, const float* TAVRIN_RESTRICT b, float* TAVRIN_RESTRICT product,
              size_t n) {
    for (size_t i = 0; i < n; ++i) product[i] = a[i] * b[i];
}

}  // namespace

PreProcessor::PreProcessor(size_t channels, size_t fftSize, size_t hopSize, xt::xarray<float> window,
                           std::shared_ptr<IInference> inference, size_t frames, bool trimEdges, size_t outputCount)
    : _channels(channels),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _outputCount(outputCount),
      _window(std::move(window)),
      _inference(std::move(inference)),
      _fft(fftSize, false),
      _frames(frames),
      _trimEdges(trimEdges),
      _spectrum(xt::xarray<float>::shape_type{2 * channels, frames, fftSize / 2}, 0.0f),
      _allOutputs(outputCount, true) {
    for (size_t i = 0; i < outputCount; ++i) _outputs.emplace_back(2 * channels, frames, fftSize / 2);
    if (channels == 0 || frames == 0) throw std::invalid_argument("PreProcessor: neither channels nor frames may be 0");
    if (_window.size() != fftSize)
        throw std::invalid_argument("PreProcessor: a window of " + std::to_string(_window.size()) +
                                    " coefficients for frames of " + std::to_string(fftSize) + " samples");
}

xt::xarray<float> PreProcessor::process(xt::xarray<float> signal, bool eof) {
    if (signal.dimension() != 2)
        throw std::invalid_argument("PreProcessor: a block of rank " + std::to_string(signal.dimension()) +
                                    "; it must be [channels, samples]");
    const std::optional<IndexRange> frames = analyse(viewOf(signal), eof);
    if (!frames) return {};
    return spectra({frames->begin * _fftSize, frames->end * _fftSize});
}

size_t PreProcessor::needData() const { return _fftSize + (_frames - 1 - _contextFrames) * _hopSize; }

xt::xarray<float> PreProcessor::flush() { return _pendingTail; }

std::optional<IndexRange> PreProcessor::analyse(const AudioView& signal, bool eof) {
    assert(signal.step == 1);
    return analyse({signal, {}}, eof, _allOutputs);
}

std::optional<IndexRange> PreProcessor::analyse(const SplitAudio& signal, bool eof, const std::vector<bool>& wanted) {
    const size_t samples = signal.samples();
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal: " << samples;
    requireBlock(signal);
    const size_t fresh = newFrames(samples);
    ageSpectrum(fresh);
    const size_t firstSample = samples - _fftSize - (fresh - 1) * _hopSize;
    for (size_t c = 0; c < _channels; ++c)
        for (size_t i = 0; i < fresh; ++i) writeFrame(signal, c, firstSample + i * _hopSize, _frames - fresh + i);
    if (!runModel(wanted)) {
        TAVRIN_LOG(plog::error, kProcess) << "Inference failed";
        return std::nullopt;
    }
    const IndexRange frames = finalFrames(fresh, eof);
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal finished";
    return frames;
}

void PreProcessor::requireBlock(const SplitAudio& signal) const {
    const auto refuse = [](const std::string& what) { throw std::invalid_argument("PreProcessor: " + what); };
    if (!_inference) refuse("there is no model to run");
    if (_hopSize == 0) refuse("a hop of 0 samples does not advance");
    if (signal.channels() != _channels)
        refuse("a block of " + std::to_string(signal.channels()) + " channels instead of " + std::to_string(_channels));
    const size_t samples = signal.samples();
    if (samples < _fftSize)
        refuse("a block of " + std::to_string(samples) + " samples holds no frame of " + std::to_string(_fftSize));
    if (newFrames(samples) > _frames)
        refuse("a block of " + std::to_string(newFrames(samples)) + " new frames for a model of " +
               std::to_string(_frames));
}

// Moves every plane's newest frames to the front; the last `newFrames` slots are about to be written.
void PreProcessor::ageSpectrum(size_t newFrames) {
    const size_t bins = _fftSize / 2;
    const size_t plane = _frames * bins;
    for (size_t p = 0; p < 2 * _channels; ++p) {
        float* slots = _spectrum.data() + p * plane;
        std::copy(slots + newFrames * bins, slots + plane, slots);
    }
}

// Windows and transforms one channel's frame into a slot of the model's input.
void PreProcessor::writeFrame(const SplitAudio& signal, size_t channel, size_t firstSample, size_t slot) {
    const size_t bins = _fftSize / 2;
    const float* window = _window.data();
    float* staging = _fft.staging();
    const DenormalsAsZero guard;
    signal.eachPiece(channel, firstSample, _fftSize, [=](const float* piece, size_t offset, size_t n) {
        multiply(piece, window + offset, staging + offset, n);
    });
    float* real = _spectrum.data() + (2 * channel * _frames + slot) * bins;
    _fft.planesOfStaged(real, real + _frames * bins);
}

bool PreProcessor::runModel(const std::vector<bool>& wanted) {
    // The interface takes the list by value: the only allocation of a call.
    std::vector<float*> outputs;
    outputs.reserve(_outputs.size());
    for (size_t i = 0; i < _outputs.size(); ++i)
        outputs.push_back(wanted[i] ? _outputs[i].prepare() : _outputs[i].prepareUnread());
    const Shape shape{1, 2 * _channels, _frames, _fftSize / 2};
    return _inference->run(_spectrum.data(), std::move(outputs), shape);
}

// The slots to return, and with edge trimming the step from the first call to the later ones.
IndexRange PreProcessor::finalFrames(size_t newFrames, bool eof) {
    auto begin = static_cast<ptrdiff_t>(_frames - newFrames);
    auto end = static_cast<ptrdiff_t>(_frames);
    if (_trimEdges) {
        _contextFrames = kContextFrames;
        if (!std::exchange(_firstCall, false)) --begin;  // withheld by the previous call
        if (!eof) --end;                                 // the model has not seen the frame after it
    }
    // The bound is the channel count although columns are meant: with any real geometry the tail is empty.
    const auto frameLength = static_cast<ptrdiff_t>(_fftSize);
    const IndexRange tail = clampRange(end * frameLength, static_cast<ptrdiff_t>(_channels), _frames * _fftSize);
    const bool isEmpty = _pendingTail.dimension() == 3 && _pendingTail.shape(2) == 0;
    if (tail.count() > 0 || !isEmpty) _pendingTail = spectra(tail);
    return clampRange(begin, end, _frames);
}

// The outputs as ordered spectra, frame after frame along the last axis: the given positions of that axis, from an
// even one on.
xt::xarray<float> PreProcessor::spectra(const IndexRange& positions) {
    const size_t bins = _fftSize / 2;
    auto result = xt::xarray<float>::from_shape({_outputCount, _channels, positions.count()});
    float* out = result.data();
    for (ModelOutput& output : _outputs) {
        for (size_t f = positions.begin / _fftSize; f * _fftSize < positions.end; ++f) output.frame(f);
        for (size_t c = 0; c < _channels; ++c) {
            const float* real = output.frame(0) + 2 * c * output.planeStride();
            const float* imaginary = real + _frames * bins;
            // The bins of consecutive frames follow one another in a plane: bin k fills positions 2k and 2k + 1.
            for (size_t k = positions.begin / 2; k < positions.end / 2; ++k) {
                *out++ = real[k];
                *out++ = imaginary[k];
            }
            if (positions.end % 2 != 0 && positions.count() > 0) *out++ = real[positions.end / 2];
        }
    }
    return result;
}
