#include "pipeline/pre_processor.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "inference/run_failure.h"
#include "support/log.h"

namespace {

constexpr const char* kProcess = "xt::xarray<float> PreProcessor::process(xt::xarray<float>, bool)";

// A frame that is returned late was kept from the previous call together with the one before it.
constexpr size_t kContextFrames = 2;

std::vector<float> coefficientsOf(const xt::xarray<float>& window, size_t fftSize) {
    if (window.size() != fftSize)
        throw std::invalid_argument("PreProcessor: a window of " + std::to_string(window.size()) +
                                    " coefficients for frames of " + std::to_string(fftSize) + " samples");
    return {window.begin(), window.end()};
}

}  // namespace

PreProcessor::PreProcessor(size_t channels, size_t fftSize, size_t hopSize, xt::xarray<float> window,
                           std::shared_ptr<IInference> inference, size_t frames, bool trimEdges, size_t outputCount)
    : _channels(channels),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _outputCount(outputCount),
      _inference(std::move(inference)),
      _frames(frames),
      _trimEdges(trimEdges),
      _window(channels, frames, fftSize / 2, coefficientsOf(window, fftSize), 0),
      _outputs(outputCount) {
    for (std::vector<float>& output : _outputs) output.resize(2 * channels * frames * (fftSize / 2));
    if (channels == 0 || frames == 0) throw std::invalid_argument("PreProcessor: neither channels nor frames may be 0");
}

xt::xarray<float> PreProcessor::process(xt::xarray<float> signal, bool eof) {
    if (signal.dimension() != 2)
        throw std::invalid_argument("PreProcessor: a block of rank " + std::to_string(signal.dimension()) +
                                    "; it must be [channels, samples]");
    requireChannels(signal.shape(0));
    const std::optional<Ranges> final = run(signal.data(), signal.shape(1), signal.shape(1), eof);
    if (!final) return {};
    // Before the flags change, because memory may run out here.
    xt::xarray<float> result = spectra({final->frames.begin * _fftSize, final->frames.end * _fftSize});
    succeed(final->tail);
    return result;
}  // namespace

size_t PreProcessor::needData() const { return _fftSize + (_frames - 1 - _contextFrames) * _hopSize; }

xt::xarray<float> PreProcessor::flush() { return _pendingTail; }

std::optional<tavrin::IndexRange> PreProcessor::analyse(const float* rows, size_t stride, size_t samples, bool eof) {
    const std::optional<Ranges> final = run(rows, stride, samples, eof);
    if (!final) return std::nullopt;
    succeed(final->tail);
    return final->frames;
}

// Analyses a block and runs the model; the flags stay as they are.
std::optional<PreProcessor::Ranges> PreProcessor::run(const float* rows, size_t stride, size_t samples, bool eof) {
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal: " << samples;
    requireBlock(samples);
    const size_t fresh = newFrames(samples);
    _window.advance(fresh);
    const size_t firstSample = samples - _fftSize - (fresh - 1) * _hopSize;
    for (size_t c = 0; c < _channels; ++c)
        for (size_t i = 0; i < fresh; ++i)
            _window.analyse(c, _frames - fresh + i,
                            {rows + c * stride + firstSample + i * _hopSize, _fftSize, nullptr, 0});
    if (!runModel()) {
        TAVRIN_LOG(plog::error, kProcess) << "Inference failed";
        return std::nullopt;
    }
    const Ranges final = finalFrames(fresh, eof);
    TAVRIN_LOG(plog::debug, kProcess) << "Process signal finished";
    return final;
}

void PreProcessor::requireChannels(size_t channels) const {
    if (channels != _channels)
        throw std::invalid_argument("PreProcessor: a block of " + std::to_string(channels) + " channels instead of " +
                                    std::to_string(_channels));
}

void PreProcessor::requireBlock(size_t samples) const {
    const auto refuse = [](const std::string& what) { throw std::invalid_argument("PreProcessor: " + what); };
    if (!_inference) refuse("there is no model to run");
    if (_hopSize == 0) refuse("a hop of 0 samples does not advance");
    if (samples < _fftSize)
        refuse("a block of " + std::to_string(samples) + " samples holds no frame of " + std::to_string(_fftSize));
    if (newFrames(samples) > _frames)
        refuse("a block of " + std::to_string(newFrames(samples)) + " new frames for a model of " +
               std::to_string(_frames));
}

bool PreProcessor::runModel() {
    // The interface takes the list by value: the only allocation of a call.
    std::vector<float*> outputs;
    outputs.reserve(_outputs.size());
    for (std::vector<float>& output : _outputs) outputs.push_back(output.data());
    tavrin::RunFailure::take();  // an earlier call's, which nobody asked for
    if (!_inference->run(_window.data(), std::move(outputs), {1, 2 * _channels, _frames, _fftSize / 2})) return false;
    // The back-ends swallow a failed execution; what it left behind may be an earlier call's output, or half of one.
    if (tavrin::RunFailure::take())
        for (std::vector<float>& output : _outputs) std::fill(output.begin(), output.end(), 0.0f);
    return true;
}

// The slots to return, and the positions that flush() is to return then.
PreProcessor::Ranges PreProcessor::finalFrames(size_t newFrames, bool eof) const {
    auto begin = static_cast<ptrdiff_t>(_frames - newFrames);
    auto end = static_cast<ptrdiff_t>(_frames);
    if (_trimEdges) {
        if (!_firstCall) --begin;  // withheld by the previous call
        if (!eof) --end;           // the model has not seen the frame after it
    }
    // The tail's bound is the channel count although columns are meant: with any real geometry it is empty.
    const auto frameLength = static_cast<ptrdiff_t>(_fftSize);
    return {tavrin::clampRange(begin, end, _frames),
            tavrin::clampRange(end * frameLength, static_cast<ptrdiff_t>(_channels), _frames * _fftSize)};
}

// With edge trimming, the step from the first call to the later ones.
void PreProcessor::succeed(const tavrin::IndexRange& tail) {
    const bool isEmpty = _pendingTail.dimension() == 3 && _pendingTail.shape(2) == 0;
    if (tail.count() > 0 || !isEmpty) _pendingTail = spectra(tail);
    if (!_trimEdges) return;
    _contextFrames = kContextFrames;
    _firstCall = false;
}

// The outputs as ordered spectra, frame after frame along the last axis: the given positions of that axis, from an
// even one on.
xt::xarray<float> PreProcessor::spectra(const tavrin::IndexRange& positions) const {
    auto result = xt::xarray<float>::from_shape({_outputCount, _channels, positions.count()});
    float* out = result.data();
    const size_t plane = _frames * (_fftSize / 2);
    for (const std::vector<float>& output : _outputs)
        for (size_t c = 0; c < _channels; ++c) {
            const float* real = output.data() + 2 * c * plane;
            const float* imaginary = real + plane;
            // The bins of consecutive frames follow one another in a plane: bin k fills positions 2k and 2k + 1.
            for (size_t k = positions.begin / 2; k < positions.end / 2; ++k) {
                *out++ = real[k];
                *out++ = imaginary[k];
            }
            if (positions.end % 2 != 0 && positions.count() > 0) *out++ = real[positions.end / 2];
        }
    return result;
}
