#include "dsp/fft_transformer.h"

#include <pffft.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "dsp/lane_order.h"
#include "support/transform_length.h"

namespace {

constexpr size_t kPadding = 2;

// What PFFFT's real transform can do, tested here because the library itself would stop the process.
size_t requireTransformLength(size_t length) {
    constexpr auto kLongest = static_cast<size_t>(std::numeric_limits<int>::max());
    if (length > kLongest || !tavrin::isTransformLength(length))
        throw std::invalid_argument("FFT of length " + std::to_string(length) +
                                    ": it must be a positive multiple of 32 without prime factors above 5");
    return length;
}

}  // namespace

IFFTTransformer::~IFFTTransformer() = default;

void PFFFTTransformer::SetupDeleter::operator()(PFFFT_Setup* setup) const noexcept { pffft_destroy_setup(setup); }

void PFFFTTransformer::RowDeleter::operator()(float* row) const noexcept { pffft_aligned_free(row); }

PFFFTTransformer::Row PFFFTTransformer::makeRow(size_t length) {
    Row row(static_cast<float*>(pffft_aligned_malloc(length * sizeof(float))));
    if (!row) throw std::bad_alloc();
    std::fill_n(row.get(), length, 0.0f);
    return row;
}

PFFFTTransformer::PFFFTTransformer(size_t N, bool padded)
    : _setup(pffft_new_setup(static_cast<int>(requireTransformLength(N)), PFFFT_REAL)),
      _input(makeRow(N + kPadding)),
      _output(makeRow(N + kPadding)),
      _padded(padded),
      _size(N),
      _laneOrder(hasLaneOrder()) {}

// PFFFT does not promise an order of its own, and builds without SIMD have another one: it is read off the library.
bool PFFFTTransformer::hasLaneOrder() {
    if (!_setup) throw std::bad_alloc();
    // A float counts exactly up to here.
    if (_size > size_t{1} << std::numeric_limits<float>::digits) return false;
    for (size_t i = 0; i < _size; ++i) _input.get()[i] = static_cast<float>(i);
    pffft_zreorder(_setup.get(), _input.get(), _output.get(), PFFFT_BACKWARD);
    const bool matches = tavrin::isLaneOrder(_output.get(), _size);
    std::fill_n(_input.get(), _size, 0.0f);
    std::fill_n(_output.get(), _size, 0.0f);
    return matches;
}

PFFFTTransformer::~PFFFTTransformer() = default;

xt::xtensor<float, 2> PFFFTTransformer::forward(const xt::xtensor<float, 2>& input) { return transform(input, false); }

xt::xtensor<float, 2> PFFFTTransformer::backward(const xt::xtensor<float, 2>& input) { return transform(input, true); }

xt::xtensor<float, 2> PFFFTTransformer::transform(const xt::xtensor<float, 2>& input, bool inverse) {
    const size_t rows = input.shape(0);
    const size_t spectrumLength = _padded ? _size + kPadding : _size;
    const size_t inputLength = inverse ? spectrumLength : _size;
    if (rows == 0) {  // no rows to judge: what their length would become
        const size_t length = input.shape(1) + (_padded && !inverse ? kPadding : 0);
        return xt::xtensor<float, 2>::from_shape({0, length - std::min(length, _padded && inverse ? kPadding : 0)});
    }
    const size_t outputLength = inverse ? _size : spectrumLength;
    if (input.shape(1) != inputLength)
        throw std::invalid_argument("FFT row of " + std::to_string(input.shape(1)) + " values: this transform takes " +
                                    std::to_string(inputLength));

    auto result = xt::xtensor<float, 2>::from_shape({rows, outputLength});
    const float scale = inverse ? 1.0f / static_cast<float>(outputLength) : 1.0f;
    for (size_t r = 0; r < rows; ++r) {
        std::copy_n(input.data() + r * inputLength, _size, staging());
        const float* transformed = transformStaged(inverse);
        float* out = result.data() + r * outputLength;
        for (size_t i = 0; i < _size; ++i) out[i] = transformed[i] * scale;
        std::fill(out + _size, out + outputLength, 0.0f);
    }
    return result;
}

const float* PFFFTTransformer::transformStaged(bool inverse) {
    float* output = _output.get();
    pffft_transform_ordered(_setup.get(), _input.get(), output, nullptr, inverse ? PFFFT_BACKWARD : PFFFT_FORWARD);
    if (!inverse) output[1] = 0.0f;
    return output;
}

// In place: tables, work space and one row fit a first-level cache.
const float* PFFFTTransformer::unorderedTransform(bool inverse) {
    pffft_transform(_setup.get(), _input.get(), _input.get(), nullptr, inverse ? PFFFT_BACKWARD : PFFFT_FORWARD);
    return _input.get();
}

void PFFFTTransformer::planesOfStaged(float* real, float* imaginary) {
    if (_laneOrder) {
        tavrin::splitPlanes(unorderedTransform(false), _size, real, imaginary);
        return;
    }
    const float* spectrum = transformStaged(false);
    for (size_t k = 0; k < _size / 2; ++k) {
        real[k] = spectrum[2 * k];
        imaginary[k] = spectrum[2 * k + 1];
    }
}

const float* PFFFTTransformer::signalOfPlanes(const float* real, const float* imaginary) {
    float* spectrum = staging();
    if (_laneOrder) {
        tavrin::joinPlanes(real, imaginary, _size, spectrum);
        return unorderedTransform(true);
    }
    for (size_t k = 0; k < _size / 2; ++k) {
        spectrum[2 * k] = real[k];
        spectrum[2 * k + 1] = imaginary[k];
    }
    return transformStaged(true);
}
