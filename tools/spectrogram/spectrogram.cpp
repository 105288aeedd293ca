#include "spectrogram/spectrogram.h"

#include <pffft.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace tavrin::tool {

namespace {

constexpr std::size_t windowLength = 4096;
constexpr std::size_t firstHop = windowLength / 16;
constexpr std::size_t largestHop = windowLength / 4;
constexpr double lowestHertz = 40;  // of a logarithmic scale

// Hann, scaled so that a sine of amplitude 1 has a magnitude of 1.
std::vector<float> hann() {
    std::vector<float> window(windowLength);
    for (std::size_t i = 0; i < windowLength; ++i) {
        const double turn = static_cast<double>(i) / windowLength;
        window[i] = static_cast<float>((1 - std::cos(2 * std::numbers::pi * turn)) * 2 / windowLength);
    }
    return window;
}

}  // namespace

FrequencyScale::FrequencyScale(int rate, bool linear)
    : lowest(linear ? 0 : lowestHertz), highest(rate / 2.0), isLinear(linear) {}

double FrequencyScale::hertzAt(double share) const {
    return isLinear ? lowest + share * (highest - lowest) : lowest * std::pow(highest / lowest, share);
}

double FrequencyScale::shareOf(double hertz) const {
    return isLinear ? (hertz - lowest) / (highest - lowest) : std::log(hertz / lowest) / std::log(highest / lowest);
}

void Spectrogram::Free::operator()(PFFFT_Setup* setup) const { pffft_destroy_setup(setup); }
void Spectrogram::Free::operator()(float* aligned) const { pffft_aligned_free(aligned); }

// Half a window of silence first: a column begins at its first window's middle.
Spectrogram::Spectrogram(int rate, const FrequencyScale& scale)
    : _window(hann()),
      _setup(pffft_new_setup(windowLength, PFFFT_COMPLEX)),
      _spectrum(static_cast<float*>(pffft_aligned_malloc(2 * windowLength * sizeof(float)))),
      _bins(windowLength / 2 + 1),
      _waiting(windowLength),
      _hop(firstHop) {
    if (!_setup || !_spectrum) throw std::bad_alloc();
    for (std::size_t row = 0; row <= rows; ++row) {
        const double hertz = scale.hertzAt(static_cast<double>(row) / rows);
        _edges.push_back(static_cast<float>(hertz / rate * windowLength));
    }
}

void Spectrogram::add(const std::vector<float>& samples) {
    _samples += samples.size() / 2;
    _waiting.insert(_waiting.end(), samples.begin(), samples.end());
    std::size_t at = 0;
    for (; at + 2 * windowLength <= _waiting.size(); at += 2 * _hop) analyse(_waiting.data() + at);
    _waiting.erase(_waiting.begin(), _waiting.begin() + static_cast<std::ptrdiff_t>(at));
}

void Spectrogram::finish() {
    const std::size_t samples = _samples;
    add(std::vector<float>(windowLength));
    _samples = samples;
}

void Spectrogram::analyse(const float* samples) {
    // Left and right as real and imaginary part: one transform serves both.
    float* const spectrum = _spectrum.get();
    for (std::size_t i = 0; i < 2 * windowLength; ++i) spectrum[i] = samples[i] * _window[i / 2];
    pffft_transform_ordered(_setup.get(), spectrum, spectrum, nullptr, PFFFT_FORWARD);
    const auto norm = [&](std::size_t k) {
        return spectrum[2 * k] * spectrum[2 * k] + spectrum[2 * k + 1] * spectrum[2 * k + 1];
    };
    // The squared magnitudes of the bins k and N - k add up to twice those of left and right at bin k.
    for (std::size_t k = 1; k < windowLength / 2; ++k) _bins[k] = (norm(k) + norm(windowLength - k)) / 4;
    if (_windows == maxColumns * _perColumn) halve();
    const std::size_t column = _windows / _perColumn;
    _power.resize((column + 1) * rows);
    for (std::size_t row = 0; row < rows; ++row) {
        float& power = _power[column * rows + row];
        power = std::max(power, rowPower(row));
    }
    ++_windows;
}

// The loudest bin of the row; where rows are narrower than bins, a value between its neighbours.
float Spectrogram::rowPower(std::size_t row) const {
    const float low = _edges[row];
    const auto below = static_cast<std::size_t>(low);
    const float above = low - static_cast<float>(below);
    float power = _bins[below] * (1 - above) + _bins[std::min(below + 1, _bins.size() - 1)] * above;
    for (std::size_t k = below + 1; static_cast<float>(k) < _edges[row + 1]; ++k) power = std::max(power, _bins[k]);
    return power;
}

// First the windows move apart, which costs less time as well; then columns take in more windows.
void Spectrogram::halve() {
    for (std::size_t column = 0; column < maxColumns / 2; ++column) {
        for (std::size_t row = 0; row < rows; ++row) {
            _power[column * rows + row] =
                std::max(_power[2 * column * rows + row], _power[(2 * column + 1) * rows + row]);
        }
    }
    _power.resize(maxColumns / 2 * rows);
    if (_hop < largestHop) {
        _hop *= 2;
        _windows /= 2;
    } else {
        _perColumn *= 2;
    }
}

float Spectrogram::decibels(std::size_t column, std::size_t row) const {
    return 10 * std::log10(_power[column * rows + row] + 1e-20F);
}

}  // namespace tavrin::tool
