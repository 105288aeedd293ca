#include "pipeline/post_processor.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "pipeline/overlap_add.h"
#include "support/denormals.h"
#include "support/log.h"

namespace {

// The signatures as one particular compiler spells them, so that the log is the same with every other.
constexpr const char* kShiftRow =
    "void shiftArray(T &, size_t) [T = xt::xtensor_container<xt::uvector<float, xsimd::aligned_allocator<float>>, 1, "
    "xt::layout_type::row_major>]";
constexpr const char* kShiftRows =
    "void shiftArray(T &, size_t) [T = xt::xtensor_container<xt::uvector<float, xsimd::aligned_allocator<float>>, 2, "
    "xt::layout_type::row_major>]";

// The records of a slide along the last axis.
void logShift(size_t rank, size_t length, size_t step) {
    [[maybe_unused]] const char* function = rank == 1 ? kShiftRow : kShiftRows;
    TAVRIN_LOG(plog::verbose, function) << "shiftArray called with step: " << step << ", input dimension: " << rank
                                        << ", input length: " << length;
    if (length <= step) {
        TAVRIN_LOG(plog::verbose, function) << "Shift step >= input size, filling with zeros";
    }
}

}  // namespace

PostProcessor::PostProcessor(size_t channels, size_t fftSize, size_t hopSize, xt::xtensor<float, 1> window)
    : _fft(fftSize, false),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _window(std::move(window)),
      _windowSquared(_window),
      _outputBuffer(xt::xtensor<float, 2>::from_shape({channels, fftSize})),
      _windowSum(xt::xtensor<float, 1>::from_shape({fftSize})),
      _scaledWindow(_window.begin(), _window.end()),
      _gain(emitted(), 1.0f),
      _framesToRepeat(callsToRepeat(fftSize, emitted())) {
    if (_window.size() != fftSize)
        throw xt::broadcast_error(("PostProcessor: a window of " + std::to_string(_window.size()) +
                                   " coefficients for frames of " + std::to_string(fftSize) + " samples")
                                      .c_str());
    for (float& w : _windowSquared) w *= w;
    for (float& w : _scaledWindow) w *= 1.0f / static_cast<float>(fftSize);
    _outputBuffer.fill(0.0f);
    _windowSum.fill(0.0f);
}

xt::xarray<float> PostProcessor::process(xt::xarray<float> spectrum) {
    if (spectrum.dimension() == 2) return processFrame(spectrum);
    if (spectrum.dimension() != 3)
        throw std::invalid_argument("PostProcessor: spectra of rank " + std::to_string(spectrum.dimension()) +
                                    "; they must be [channels, length] or [channels, length, frames]");
    const size_t rows = spectrum.shape(0);
    const size_t length = spectrum.shape(1);
    const size_t frames = spectrum.shape(2);
    const size_t channels = _outputBuffer.shape(0);
    if (frames > 0 && channels != 2)
        throw xt::concatenate_error("PostProcessor: several frames at once need two channels");

    auto result = xt::xarray<float>::from_shape({2, frames * emitted()});
    auto frame = xt::xtensor<float, 2>::from_shape({rows, length});
    for (size_t f = 0; f < frames; ++f) {
        for (size_t i = 0; i < rows * length; ++i) frame.data()[i] = spectrum.data()[i * frames + f];
        const xt::xarray<float> block = processFrame(frame);
        for (size_t c = 0; c < channels; ++c)
            std::copy_n(block.data() + c * emitted(), emitted(), result.data() + c * result.shape(1) + f * emitted());
    }
    return result;
}

xt::xarray<float> PostProcessor::processFrame(xt::xtensor<float, 2> frame) {
    const size_t channels = _outputBuffer.shape(0);
    if (frame.shape(0) != channels && frame.shape(0) != 1)
        throw xt::broadcast_error(("PostProcessor: a frame of " + std::to_string(frame.shape(0)) + " rows for " +
                                   std::to_string(channels) + " channels")
                                      .c_str());
    if (frame.shape(1) != _fftSize)
        throw std::invalid_argument("PostProcessor: a frame of " + std::to_string(frame.shape(1)) +
                                    " values instead of " + std::to_string(_fftSize));
    auto out = xt::xarray<float>::from_shape({channels, emitted()});
    overlapAddFrame(out.data(), emitted(), [&](size_t channel) {
        std::copy_n(frame.data() + (frame.shape(0) == 1 ? 0 : channel * _fftSize), _fftSize, _fft.staging());
        return _fft.transformStaged(true);
    });
    return out;
}

xt::xarray<float> PostProcessor::flush() {
    const size_t channels = _outputBuffer.shape(0);
    auto out = xt::xarray<float>::from_shape({channels, pending()});
    for (size_t c = 0; c < channels; ++c) {
        float* row = out.data() + c * pending();
        std::copy_n(_outputBuffer.data() + c * _fftSize, pending(), row);
        divideByNorm(row, _windowSum.data(), pending());
    }
    return out;
}

void PostProcessor::synthesise(const float* planes, size_t planeStride, float* out, size_t outStride) {
    overlapAddFrame(out, outStride, [&](size_t channel) {
        const float* real = planes + 2 * channel * planeStride;
        return _fft.signalOfPlanes(real, real + planeStride);
    });
}

// Emits the columns that no later frame reaches, and slides the accumulators on.
template <class TimeOfChannel>
void PostProcessor::overlapAddFrame(float* out, size_t outStride, const TimeOfChannel& timeOf) {
    if (_framesToRepeat > 0) {
        advanceWindowSum(_windowSquared.data(), _windowSum.data(), _gain.data(), _fftSize, emitted());
        --_framesToRepeat;
    }
    {
        const DenormalsAsZero guard;
        for (size_t c = 0; c < _outputBuffer.shape(0); ++c)
            overlapAdd(_outputBuffer.data() + c * _fftSize, _scaledWindow.data(), timeOf(c), _gain.data(),
                       out + c * outStride, _fftSize, emitted());
    }
    logShift(2, _fftSize, _hopSize);
    logShift(1, _fftSize, _hopSize);
}

template <class T>
void shiftArray(T& array, size_t step) {
    const size_t rank = array.dimension();
    const size_t length = array.shape(rank - 1);
    logShift(rank, length, step);
    if (length <= step) {
        array.fill(0.0f);
        return;
    }
    for (float* row = array.data(); row != array.data() + array.size(); row += length) slide(row, length, step);
}

template <class T>
void applyTiny(T& values, const T& norm) {
    const size_t length = norm.size();
    if (values.dimension() == 0 || values.shape(values.dimension() - 1) != length)
        throw xt::broadcast_error("applyTiny: one norm is needed for every column");
    for (float* row = values.data(); length > 0 && row != values.data() + values.size(); row += length)
        divideByNorm(row, norm.data(), length);
}

template void shiftArray(xt::xtensor<float, 1>& array, size_t step);
template void shiftArray(xt::xtensor<float, 2>& array, size_t step);
template void applyTiny(xt::xarray<float>& values, const xt::xarray<float>& norm);
