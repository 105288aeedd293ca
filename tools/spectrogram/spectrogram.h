/// @file
/// How loud streams are at every time and frequency, and the picture of it that --spectrogram writes.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "common/hidden_file.h"

namespace tavrin::tool {

/// How frequencies lie on an axis: from 0 in even steps, or in octaves of equal length.
struct FrequencyScale {
    double lowest;   ///< Hz; 0: even steps
    double highest;  ///< Hz

    bool isLinear() const { return lowest == 0; }
    /// @param share of the axis, from 0 to 1.
    double hertzAt(double share) const {
        return isLinear() ? share * highest : lowest * std::pow(highest / lowest, share);
    }
    double shareOf(double hertz) const {
        return isLinear() ? hertz / highest : std::log(hertz / lowest) / std::log(highest / lowest);
    }
};

/// The spectrogram of a stereo stream of any length in bounded memory: columns of equal length in time. When there are
/// too many, every two become one, and from then on each covers twice the time.
/// A cell holds the loudest moment in its stretch of time and of frequencies, both channels together, so that short
/// and narrow sounds do not vanish.
class Spectrogram {
public:
    static constexpr std::size_t rows = 256;  ///< of equal height on the scale

    /// Power from the lowest row up. A sine of amplitude 1 in both channels has 1.
    using Column = std::array<float, rows>;

    /// @param scale up to half the stream's rate.
    explicit Spectrogram(const FrequencyScale& scale);

    /// @param samples interleaved.
    void add(const std::vector<float>& samples);

    /// After the last samples.
    void finish();

    /// The loudest of a stretch. @param from, to samples per channel.
    Column loudest(std::size_t from, std::size_t to) const;

private:
    void analyse(const float* samples);

    std::vector<float> _edges;    // of the rows, in bins
    std::vector<float> _waiting;  // interleaved samples from the next window's first one
    std::vector<Column> _columns;
    std::size_t _columnLength = 256;  // samples per channel
    std::size_t _analysed = 0;        // samples per channel, up to the middle of the next window
};

/// Spectrograms of equally long streams, one above the other: a common time axis in minutes and seconds, a
/// frequency axis each, and one scale of decibels. Their samples are taken as they come.
class SpectrogramPicture {
public:
    /// @param names of the streams, in UTF-8 of any script; long ones are cut. @param rate samples per second.
    /// @param start seconds at which the time axis begins. @param linear frequencies; false: logarithmic.
    SpectrogramPicture(std::vector<std::string> names, int rate, double start, bool linear);

    /// @param samples interleaved stereo samples of one of the streams.
    void add(std::size_t stream, const std::vector<float>& samples);

    /// After the last samples. Writes a PNG. @throws Failure with ExitCode::writeFailed.
    void writeTo(HiddenFile& file);

private:
    FrequencyScale _scale;
    std::vector<std::pair<std::string, Spectrogram>> _streams;  // each with its name
    double _rate, _start;
    std::size_t _samples = 0;  // per channel, of each stream
};

}  // namespace tavrin::tool
