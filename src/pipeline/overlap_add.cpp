#include "pipeline/overlap_add.h"

#include <algorithm>
#include <limits>

#include "dsp/row_loops.h"
#include "support/denormals.h"

namespace tavrin {

OverlapAdd::OverlapAdd(size_t rows, size_t hop, const std::vector<float>& coefficients, size_t bins)
    : _frame(coefficients.size()),
      _hop(hop),
      _bins(bins),
      _fft(_frame, false),
      _window(coefficients),
      _windowSquared(coefficients),
      _windowSum(_frame),
      _gain(hop),
      _halfRows(bins == _frame / 2 ? 0 : _frame),
      _sums(rows * _frame) {
    for (float& w : _windowSquared) w *= w;
    for (float& w : _window) w *= 1.0f / static_cast<float>(_frame);
    clear();
}

void OverlapAdd::advance() {
    // Once as many frames overlap as ever do, the sum repeats from hop to hop.
    if (_framesToRepeat == 0) return;
    --_framesToRepeat;
    for (size_t i = 0; i < _frame; ++i) _windowSum[i] += _windowSquared[i];
    std::fill(_gain.begin(), _gain.end(), 1.0f);
    divideByNorm(_gain.data(), _windowSum.data(), _hop);
    slide(_windowSum.data(), _frame, _hop);
}

void OverlapAdd::addPlanes(size_t row, const float* real, const float* imaginary, float* out) {
    const DenormalsAsZero guard;
    if (!_halfRows.empty()) {
        float* allReal = _halfRows.data();
        float* allImaginary = allReal + _halfRows.size() / 2;
        std::copy_n(real, _bins, allReal);
        std::copy_n(imaginary, _bins, allImaginary);
        real = allReal;
        imaginary = allImaginary;
    }
    add(row, _fft.signalOfPlanes(real, imaginary), out);
}

void OverlapAdd::addSpectrum(size_t row, const float* spectrum, float* out) {
    const DenormalsAsZero guard;
    std::copy_n(spectrum, _frame, _fft.staging());
    add(row, _fft.transformStaged(true), out);
}

void OverlapAdd::addNothing(size_t row, float* out) {
    float* sums = _sums.data() + row * _frame;
    multiply(sums, _gain.data(), out, _hop);
    slide(sums, _frame, _hop);
}

// Adds, finishes the oldest hop and moves the others to the front in one pass: what is moved is read one hop ahead of
// where it is written. The newest hop of the sums is zero before and after.
void OverlapAdd::add(size_t row, const float* time, float* out) {
    float* sums = _sums.data() + row * _frame;
    const float* window = _window.data();
    if (_hop == 0) {
        for (size_t i = 0; i < _frame; ++i) sums[i] += window[i] * time[i];
        return;
    }
    finishWindowed(sums, window, time, _gain.data(), out, _hop);
    for (size_t i = _hop; i < _frame; i += _hop)
        addWindowed(sums + i, window + i, time + i, sums + i - _hop, std::min(_hop, _frame - i));
}

void OverlapAdd::copyUnfinished(size_t row, size_t n, float* out) const {
    std::copy_n(_sums.data() + row * _frame, n, out);
    divideByNorm(out, _windowSum.data(), n);
}

void OverlapAdd::clear() {
    std::fill(_sums.begin(), _sums.end(), 0.0f);
    std::fill(_windowSum.begin(), _windowSum.end(), 0.0f);
    std::fill(_gain.begin(), _gain.end(), 1.0f);
    _framesToRepeat = _hop > 0 ? (_frame + _hop - 1) / _hop : std::numeric_limits<size_t>::max();
}

}  // namespace tavrin
