#include "dsp/window.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace {

constexpr double kTwoPi = 6.283185307179586;

std::vector<float> zeros(int n) {
    if (n < 0) throw std::length_error("window of negative length " + std::to_string(n));
    return std::vector<float>(static_cast<size_t>(n));
}

// offset - scale·cos(2π·i / period): symmetric with a period of n - 1, where n = 1 divides by zero and gives NaN.
std::vector<float> raisedCosine(int n, double offset, double scale, double period) {
    std::vector<float> window = zeros(n);
    for (size_t i = 0; i < window.size(); ++i)
        window[i] = static_cast<float>(offset - scale * std::cos(kTwoPi * static_cast<double>(i) / period));
    return window;
}

}  // namespace

std::vector<float> hannWindow(int n) { return raisedCosine(n, 0.5, 0.5, n - 1.0); }

std::vector<float> hammingWindow(int n) { return raisedCosine(n, 0.54, 0.46, n - 1.0); }

std::vector<float> blackmanWindow(int n) {
    std::vector<float> window = zeros(n);
    const auto step = static_cast<float>(kTwoPi / static_cast<double>(static_cast<float>(n)));
    const float doubleStep = step + step;
    for (size_t i = 0; i < window.size(); ++i) {
        const auto x = static_cast<float>(i);
        window[i] = 0.42f - 0.5f * std::cos(x * step) + 0.08f * std::cos(x * doubleStep);
    }
    return window;
}

std::vector<float> getWindow(WindowType type, int n) {
    switch (type) {
        case WindowType::Hann:
            return hannWindow(n);
        case WindowType::Hamming:
            return hammingWindow(n);
        case WindowType::Blackman:
            return blackmanWindow(n);
    }
    throw std::runtime_error("Unknown window type");
}

std::vector<float> tavrin::periodicHannWindow(int n) { return raisedCosine(n, 0.5, 0.5, n); }
