#include "pipeline/post_processor.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "dsp/row_loops.h"
#include "support/log.h"

namespace {

// The signatures as one particular compiler spells them, so that the log is the same with every other.
constexpr const char* kShiftRow =
    "void shiftArray(T &, size_t) [T = xt::xtensor_container<xt::uvector<float, xsimd::aligned_allocator<float>>, 1, "
    "xt::layout_type::row_major>]";
constexpr const char* kShiftRows =
    "void shiftArray(T &, size_t) [T = xt::xtensor_container<xt::uvector<float, xsimd::aligned_allocator<float>>, 2, "
    "xt::layout_type::row_major>]";

std::vector<float> coefficientsOf(const xt::xtensor<float, 1>& window, size_t fftSize) {
    if (window.size() != fftSize)
        throw xt::broadcast_error(("PostProcessor: a window of " + std::to_string(window.size()) +
                                   " coefficients for frames of " + std::to_string(fftSize) + " samples")
                                      .c_str());
    return {window.begin(), window.end()};
}

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
    : _channels(channels),
      _fftSize(fftSize),
      _hopSize(hopSize),
      _overlapAdd(channels, emitted(), coefficientsOf(window, fftSize), fftSize / 2) {}

xt::xarray<float> PostProcessor::process(xt::xarray<float> spectrum) {
    if (spectrum.dimension() == 2) return processFrame(spectrum);
    if (spectrum.dimension() != 3)
        throw std::invalid_argument("PostProcessor: spectra of rank " + std::to_string(spectrum.dimension()) +
                                    "; they must be [channels, length] or [channels, length, frames]");
    const size_t rows = spectrum.shape(0);
    const size_t length = spectrum.shape(1);
    const size_t frames = spectrum.shape(2);
    if (frames > 0 && _channels != 2)
        throw xt::concatenate_error("PostProcessor: several frames at once need two channels");

    auto result = xt::xarray<float>::from_shape({2, frames * emitted()});
    auto frame = xt::xtensor<float, 2>::from_shape({rows, length});
    for (size_t f = 0; f < frames; ++f) {
        for (size_t i = 0; i < rows * length; ++i) frame.data()[i] = spectrum.data()[i * frames + f];
        const xt::xarray<float> block = processFrame(frame);
        for (size_t c = 0; c < _channels; ++c)
            std::copy_n(block.data() + c * emitted(), emitted(), result.data() + c * result.shape(1) + f * emitted());
    }
    return result;
}

xt::xarray<float> PostProcessor::processFrame(xt::xtensor<float, 2> frame) {
    const size_t rows = frame.shape(0);
    if (rows != _channels && rows != 1)
        throw xt::broadcast_error(("PostProcessor: a frame of " + std::to_string(rows) + " rows for " +
                                   std::to_string(_channels) + " channels")
                                      .c_str());
    if (frame.shape(1) != _fftSize)
        throw std::invalid_argument("PostProcessor: a frame of " + std::to_string(frame.shape(1)) +
                                    " values instead of " + std::to_string(_fftSize));
    auto out = xt::xarray<float>::from_shape({_channels, emitted()});
    _overlapAdd.advance();
    for (size_t c = 0; c < _channels; ++c)
        _overlapAdd.addSpectrum(c, frame.data() + (rows == 1 ? 0 : c * _fftSize), out.data() + c * emitted());
    logShifts();
    return out;
}

xt::xarray<float> PostProcessor::flush() {
    auto out = xt::xarray<float>::from_shape({_channels, pending()});
    for (size_t c = 0; c < _channels; ++c) _overlapAdd.copyUnfinished(c, pending(), out.data() + c * pending());
    return out;
}

void PostProcessor::synthesise(const float* planes, size_t planeStride, float* out, size_t outStride) {
    _overlapAdd.advance();
    for (size_t c = 0; c < _channels; ++c) {
        const float* real = planes + 2 * c * planeStride;
        _overlapAdd.addPlanes(c, real, real + planeStride, out + c * outStride);
    }
    logShifts();
}

// The records of the slides that the overlap-add has made, of all channels together and of the window sum.
void PostProcessor::logShifts() const {
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
    for (float* row = array.data(); row != array.data() + array.size(); row += length) tavrin::slide(row, length, step);
}

template <class T>
void applyTiny(T& values, const T& norm) {
    const size_t length = norm.size();
    if (values.dimension() == 0 || values.shape(values.dimension() - 1) != length)
        throw xt::broadcast_error("applyTiny: one norm is needed for every column");
    for (float* row = values.data(); length > 0 && row != values.data() + values.size(); row += length)
        tavrin::divideByNorm(row, norm.data(), length);
}

template void shiftArray(xt::xtensor<float, 1>& array, size_t step);
template void shiftArray(xt::xtensor<float, 2>& array, size_t step);
template void applyTiny(xt::xarray<float>& values, const xt::xarray<float>& norm);
