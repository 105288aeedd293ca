/// @file
/// The picture that --spectrogram writes.
#pragma once

#include <cairo.h>

#include <cstddef>
#include <string>
#include <vector>

#include "common/hidden_file.h"
#include "spectrogram/spectrogram.h"

namespace tavrin::tool {

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
    double secondsShown() const;
    int plotTop(std::size_t stream) const;
    int pictureHeight() const;
    double xOf(double second) const;
    void drawPlot(cairo_t* canvas, std::size_t stream) const;
    void drawFrequencies(cairo_t* canvas, std::size_t stream) const;
    void drawTimes(cairo_t* canvas) const;
    void drawScale(cairo_t* canvas) const;

    std::vector<std::string> _names;
    FrequencyScale _scale;
    std::vector<Spectrogram> _streams;
    double _rate;
    double _start;
};

}  // namespace tavrin::tool
