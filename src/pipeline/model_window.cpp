#include "pipeline/model_window.h"

#include <algorithm>
#include <utility>

#include "dsp/row_loops.h"
#include "support/denormals.h"

namespace tavrin {

ModelWindow::ModelWindow(size_t channels, size_t frames, size_t bins, std::vector<float> coefficients, size_t slack)
    : _planes(2 * channels),
      _frames(frames),
      _bins(bins),
      _slack(slack),
      _window(std::move(coefficients)),
      _fft(_window.size(), false),
      _spectra((_planes * frames + slack) * bins, 0.0f),
      _halfRows(bins == _window.size() / 2 ? 0 : _window.size()) {}

void ModelWindow::advance(size_t n) {
    if (_start + n <= _slack) {
        _start += n;
        return;
    }
    const size_t from = std::exchange(_start, 0);
    const size_t kept = _frames - std::min(n, _frames);
    for (size_t p = 0; p < _planes; ++p) {
        const float* oldest = _spectra.data() + (from + p * _frames + n) * _bins;
        if (kept > 0) std::copy(oldest, oldest + kept * _bins, row(p, 0));
    }
}

void ModelWindow::analyse(size_t channel, size_t slot, const RingSpan& samples) {
    const DenormalsAsZero guard;
    float* staging = _fft.staging();
    multiply(samples.head, _window.data(), staging, samples.headLength);
    multiply(samples.tail, _window.data() + samples.headLength, staging + samples.headLength, samples.tailLength);
    float* real = row(2 * channel, slot);
    float* imaginary = row(2 * channel + 1, slot);
    if (_halfRows.empty()) {
        _fft.planesOfStaged(real, imaginary);
        return;
    }
    float* allReal = _halfRows.data();
    float* allImaginary = allReal + _halfRows.size() / 2;
    _fft.planesOfStaged(allReal, allImaginary);
    std::copy_n(allReal, _bins, real);
    std::copy_n(allImaginary, _bins, imaginary);
}

void ModelWindow::silence(size_t slot) {
    for (size_t p = 0; p < _planes; ++p) std::fill_n(row(p, slot), _bins, 0.0f);
}

void ModelWindow::clear() {
    std::fill(_spectra.begin(), _spectra.end(), 0.0f);
    _start = 0;
}

}  // namespace tavrin
