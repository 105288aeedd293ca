#include "spectrogram/spectrogram.h"

#include <pffft.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <new>
#include <numbers>

namespace tavrin::tool {

namespace {

constexpr std::size_t windowLength = 4096;
constexpr std::size_t largestHop = windowLength / 4;
constexpr std::size_t maxColumns = 2048;  // even

// Hann, scaled so that a sine of amplitude 1 has a magnitude of 1.
std::vector<float> hann() {
    std::vector<float> window(windowLength);
    for (std::size_t i = 0; i < windowLength; ++i) {
        const double turn = static_cast<double>(i) / windowLength;
        window[i] = static_cast<float>((1 - std::cos(2 * std::numbers::pi * turn)) * 2 / windowLength);
    }
    return window;
}

// The power of each bin, both channels together. That of the first one, a constant, is left out.
std::array<float, windowLength / 2 + 1> powerOf(const float* samples) {
    using Setup = std::unique_ptr<PFFFT_Setup, decltype(&pffft_destroy_setup)>;
    static const Setup setup(pffft_new_setup(windowLength, PFFFT_COMPLEX), pffft_destroy_setup);
    static const std::vector<float> window = hann();
    if (!setup) throw std::bad_alloc();
    // Left and right as real and imaginary part: one transform serves both.
    alignas(64) std::array<std::complex<float>, windowLength> spectrum;
    for (std::size_t i = 0; i < windowLength; ++i)
        spectrum[i] = {samples[2 * i] * window[i], samples[2 * i + 1] * window[i]};
    auto* const values = reinterpret_cast<float*>(spectrum.data());
    pffft_transform_ordered(setup.get(), values, values, nullptr, PFFFT_FORWARD);
    // The squared magnitudes of the bins k and N - k add up to twice those of left and right at bin k.
    std::array<float, windowLength / 2 + 1> bins{};
    for (std::size_t k = 1; k < windowLength / 2; ++k)
        bins[k] = (std::norm(spectrum[k]) + std::norm(spectrum[windowLength - k])) / 4;
    return bins;
}

void takeLouder(Spectrogram::Column& column, const Spectrogram::Column& other) {
    for (std::size_t row = 0; row < column.size(); ++row) column[row] = std::max(column[row], other[row]);
}

}  // namespace

// Half a window of silence first: a column begins at its first window's middle.
Spectrogram::Spectrogram(const FrequencyScale& scale) : _waiting(windowLength) {
    for (std::size_t row = 0; row <= rows; ++row) {
        const double share = scale.hertzAt(static_cast<double>(row) / rows) / scale.highest;
        _edges.push_back(static_cast<float>(share * windowLength / 2));
    }
}

void Spectrogram::add(const std::vector<float>& samples) {
    _waiting.insert(_waiting.end(), samples.begin(), samples.end());
    std::size_t at = 0;
    while (at + 2 * windowLength <= _waiting.size()) {
        analyse(_waiting.data() + at);
        // Windows move apart as columns grow, which saves time, as far as they still hear every sample.
        const std::size_t hop = std::min(_columnLength, largestHop);
        _analysed += hop;
        at += 2 * hop;
    }
    _waiting.erase(_waiting.begin(), _waiting.begin() + static_cast<std::ptrdiff_t>(at));
}

void Spectrogram::finish() { add(std::vector<float>(windowLength)); }

void Spectrogram::analyse(const float* samples) {
    if (_analysed == maxColumns * _columnLength) {
        for (std::size_t i = 0; i < maxColumns / 2; ++i) {
            _columns[i] = _columns[2 * i];
            takeLouder(_columns[i], _columns[2 * i + 1]);
        }
        _columns.resize(maxColumns / 2);
        _columnLength *= 2;
    }
    _columns.resize(_analysed / _columnLength + 1);
    const auto bins = powerOf(samples);
    for (std::size_t row = 0; row < rows; ++row) {
        // The loudest bin of the row; where rows are narrower than bins, a value between its neighbours.
        const auto below = static_cast<std::size_t>(_edges[row]);
        const float above = _edges[row] - static_cast<float>(below);
        float& power = _columns.back()[row];
        power = std::max(power, bins[below] * (1 - above) + bins[below + 1] * above);
        for (std::size_t k = below + 1; static_cast<float>(k) < _edges[row + 1]; ++k) power = std::max(power, bins[k]);
    }
}

Spectrogram::Column Spectrogram::loudest(std::size_t from, std::size_t to) const {
    const std::size_t last = _columns.size() - 1;
    Column column = _columns[std::min(from / _columnLength, last)];
    for (std::size_t i = from / _columnLength + 1; i < std::min(to / _columnLength, last); ++i)
        takeLouder(column, _columns[i]);
    return column;
}

}  // namespace tavrin::tool
