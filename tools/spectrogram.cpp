#include "spectrogram.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numbers>

namespace tavrin::tool {

namespace {

constexpr std::size_t windowLength = 2048;
constexpr std::size_t firstHop = windowLength / 8;
constexpr std::size_t largestHop = windowLength / 2;
constexpr std::size_t binsPerRow = windowLength / 2 / Spectrogram::rows;

std::mutex planning;  // FFTW makes and destroys one plan at a time

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

void Spectrogram::Plan::operator()(fftwf_plan_s* plan) const {
    const std::lock_guard lock(planning);
    fftwf_destroy_plan(plan);
}

// Half a window of silence first: a column begins at its first window's middle.
Spectrogram::Spectrogram() : _window(hann()), _spectrum(windowLength), _waiting(windowLength), _hop(firstHop) {
    const std::lock_guard lock(planning);
    auto* const spectrum = reinterpret_cast<fftwf_complex*>(_spectrum.data());
    _plan.reset(fftwf_plan_dft_1d(windowLength, spectrum, spectrum, FFTW_FORWARD, FFTW_ESTIMATE));
}

void Spectrogram::add(const std::vector<float>& samples) {
    _frames += samples.size() / 2;
    _waiting.insert(_waiting.end(), samples.begin(), samples.end());
    std::size_t at = 0;
    for (; at + 2 * windowLength <= _waiting.size(); at += 2 * _hop) analyse(_waiting.data() + at);
    _waiting.erase(_waiting.begin(), _waiting.begin() + static_cast<std::ptrdiff_t>(at));
}

void Spectrogram::finish() {
    const std::size_t frames = _frames;
    add(std::vector<float>(windowLength));
    _frames = frames;
}

void Spectrogram::analyse(const float* samples) {
    // Left and right as real and imaginary part: one transform serves both.
    for (std::size_t i = 0; i < windowLength; ++i) {
        _spectrum[i] = {samples[2 * i] * _window[i], samples[2 * i + 1] * _window[i]};
    }
    fftwf_execute(_plan.get());
    if (_windows == maxColumns * _perColumn) halve();
    const std::size_t column = _windows / _perColumn;
    _power.resize((column + 1) * rows);
    float* power = &_power[column * rows];
    // The squared magnitudes of the bins k and N - k add up to twice those of left and right at bin k.
    for (std::size_t k = 1; k < windowLength / 2; ++k) {
        const float both = (std::norm(_spectrum[k]) + std::norm(_spectrum[windowLength - k])) / 4;
        power[k / binsPerRow] = std::max(power[k / binsPerRow], both);
    }
    ++_windows;
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
