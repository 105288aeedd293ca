/// @file
/// How loud a stream is at every time and frequency.
#pragma once

#include <fftw3.h>

#include <complex>
#include <cstddef>
#include <memory>
#include <vector>

namespace tavrin::tool {

/// The spectrogram of a stereo stream of any length in bounded memory: columns of equal length in time, at most
/// maxColumns of them. When they are full, every two become one, and from then on each covers twice the time.
///
/// A cell holds the loudest moment in its stretch of time and of frequencies, both channels together, so that short
/// and narrow sounds do not vanish.
class Spectrogram {
public:
    static constexpr std::size_t maxColumns = 2048;  ///< even
    static constexpr std::size_t rows = 256;         ///< of equal height, from 0 to half the rate

    Spectrogram();

    /// @param samples interleaved.
    void add(const std::vector<float>& samples);

    /// After the last samples.
    void finish();

    std::size_t columns() const { return _power.size() / rows; }
    std::size_t framesPerColumn() const { return _hop * _perColumn; }  ///< samples per channel
    std::size_t frames() const { return _frames; }                     ///< of the stream

    /// Decibels of full scale: a sine of amplitude 1 in both channels has 0 dB.
    float decibels(std::size_t column, std::size_t row) const;

private:
    struct Plan {
        void operator()(fftwf_plan_s* plan) const;
    };

    void analyse(const float* samples);
    void halve();

    std::vector<float> _window;
    std::vector<std::complex<float>> _spectrum;
    std::unique_ptr<fftwf_plan_s, Plan> _plan;
    std::vector<float> _waiting;  // interleaved samples from the next window's first one
    std::vector<float> _power;    // column after column
    std::size_t _frames = 0;
    std::size_t _windows = 0;
    std::size_t _hop;            // samples from one window to the next
    std::size_t _perColumn = 1;  // windows
};

}  // namespace tavrin::tool
