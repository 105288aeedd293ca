#include "pipeline/pre_processor.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/log.h"

namespace {

constexpr const char* kProcess = "xt::xarray<float> PreProcessor::process(xt::xarray<float>, bool)";

// A frame that is returned late was kept from the previous call together with the one before it.
constexpr size_t kContextFrames = 2;

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
      _outputs(outputCount, _spectrum) {
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
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal: " << signal.samples;
    requireBlock(signal);
    const size_t fresh = newFrames(signal.samples);
    ageSpectrum(fresh);
    for (size_t i = 0; i < fresh; ++i) writeFrame(signal, signal.samples - _fftSize - i * _hopSize, _frames - 1 - i);
    if (!runModel()) {
        TAVRIN_LOG(plog::error, kProcess) << "Inference failed";
        return std::nullopt;
    }
    const IndexRange frames = finalFrames(fresh, eof);
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal finished";
    return frames;
}

void PreProcessor::requireBlock(const AudioView& signal) const {
    const auto refuse = [](const std::string& what) { throw std::invalid_argument("PreProcessor: " + what); };
    if (!_inference) refuse("there is no model to run");
    if (_hopSize == 0) refuse("a hop of 0 samples does not advance");
    if (signal.channels != _channels)
        refuse("a block of " + std::to_string(signal.channels) + " channels instead of " + std::to_string(_channels));
    if (signal.samples < _fftSize)
        refuse("a block of " + std::to_string(signal.samples) + " samples holds no frame of " +
               std::to_string(_fftSize));
    if (newFrames(signal.samples) > _frames)
        refuse("a block of " + std::to_string(newFrames(signal.samples)) + " new frames for a model of " +
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

// Windows and transforms one frame of every channel into a slot of the model's input.
void PreProcessor::writeFrame(const AudioView& signal, size_t firstSample, size_t slot) {
    const size_t bins = _fftSize / 2;
    const float* window = _window.data();
    float* staging = _fft.staging();
    for (size_t c = 0; c < _channels; ++c) {
        const float* samples = signal.row(c) + firstSample;
        for (size_t i = 0; i < _fftSize; ++i) staging[i] = samples[i] * window[i];
        const float* spectrum = _fft.transformStaged(false);
        float* real = _spectrum.data() + (2 * c * _frames + slot) * bins;
        float* imaginary = real + _frames * bins;
        for (size_t k = 0; k < bins; ++k) {
            real[k] = spectrum[2 * k];
            imaginary[k] = spectrum[2 * k + 1];
        }
    }
}

bool PreProcessor::runModel() {
    std::vector<float*> outputs;
    outputs.reserve(_outputs.size());
    for (xt::xarray<float>& output : _outputs) {
        // A run that the back-end swallows leaves the buffers alone: let that be silence.
        output.fill(0.0f);
        outputs.push_back(output.data());
    }
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
    _pendingTail = spectra(clampRange(end * frameLength, static_cast<ptrdiff_t>(_channels), _frames * _fftSize));
    return clampRange(begin, end, _frames);
}

// The outputs as ordered spectra, frame after frame along the last axis: the given positions of that axis, from an
// even one on.
xt::xarray<float> PreProcessor::spectra(const IndexRange& positions) const {
    const size_t bins = _fftSize / 2;
    auto result = xt::xarray<float>::from_shape({_outputCount, _channels, positions.count()});
    float* out = result.data();
    for (const xt::xarray<float>& output : _outputs) {
        for (size_t c = 0; c < _channels; ++c) {
            const float* real = output.data() + 2 * c * _frames * bins;
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
