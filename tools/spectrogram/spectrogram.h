/// @file
/// How loud a stream is at every time and frequency.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

struct PFFFT_Setup;

namespace tavrin::tool {

/// How frequencies lie on an axis.
struct FrequencyScale {
    double lowest;  ///< Hz
    double highest;
    bool isLinear;  ///< false: every octave is equally long

    /// From 0 to half the rate, or from 40 Hz to it.
    FrequencyScale(int rate, bool linear);

    double hertzAt(double share) const;  ///< share of the axis, from 0 to 1
    double shareOf(double hertz) const;
};

/// The spectrogram of a stereo stream of any length in bounded memory: columns of equal length in time, at most
/// maxColumns of them. When they are full, every two become one, and from then on each covers twice the time.
///
/// A cell holds the loudest moment in its stretch of time and of frequencies, both channels together, so that short
/// and narrow sounds do not vanish.
class Spectrogram {
public:
    static constexpr std::size_t maxColumns = 2048;  ///< even
    static constexpr std::size_t rows = 256;         ///< of equal height on the scale

    Spectrogram(int rate, const FrequencyScale& scale);

    /// @param samples interleaved.
    void add(const std::vector<float>& samples);

    /// After the last samples.
    void finish();

    std::size_t columns() const { return _power.size() / rows; }
    std::size_t samplesPerColumn() const { return _hop * _perColumn; }  ///< per channel
    std::size_t samples() const { return _samples; }                    ///< of the stream, per channel

    /// Decibels of full scale: a sine of amplitude 1 in both channels has 0 dB.
    float decibels(std::size_t column, std::size_t row) const;

private:
    struct Free {
        void operator()(PFFFT_Setup* setup) const;
        void operator()(float* aligned) const;
    };

    void analyse(const float* samples);
    float rowPower(std::size_t row) const;
    void halve();

    std::vector<float> _edges;  // of the rows, in bins
    std::vector<float> _window;
    std::unique_ptr<PFFFT_Setup, Free> _setup;
    std::unique_ptr<float, Free> _spectrum;  // complex
    std::vector<float> _bins;                // power of each
    std::vector<float> _waiting;             // interleaved samples from the next window's first one
    std::vector<float> _power;               // column after column
    std::size_t _samples = 0;
    std::size_t _windows = 0;
    std::size_t _hop;            // samples from one window to the next
    std::size_t _perColumn = 1;  // windows
};

}  // namespace tavrin::tool
