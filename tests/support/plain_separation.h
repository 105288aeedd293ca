/// @file
/// Separation of a whole stream at once, by definition: no ring, no window of frames, no fast transform.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <functional>
#include <vector>

/// The geometry of a separation.
struct PlainGeometry {
    size_t hop, bins;
    std::vector<float> window;
};

/// All frames of one channel, [frames][bins].
using PlainSpectra = std::vector<std::vector<std::complex<double>>>;

/// One channel through `model`, which turns the spectra of all its frames into those of one stem.
/// @return as many samples as given.
inline std::vector<double> separatePlainly(const std::vector<float>& song, const PlainGeometry& geometry,
                                           const std::function<PlainSpectra(const PlainSpectra&)>& model) {
    const long length = long(song.size()), frame = long(geometry.window.size()), hop = long(geometry.hop);
    if (length == 0) return {};
    // Sample k of the song is k + frame of the mirrored one.
    const long end = (length + hop - 1) / hop * hop;
    std::vector<double> mirrored(size_t(end + 2 * frame));
    for (long k = 0; k < end + frame; ++k) {
        const long from = k < length ? k : 2 * (length - 1) - k;
        mirrored[size_t(k + frame)] = from >= 0 ? double(song[size_t(from)]) : 0.0;
    }
    for (long k = 1; k <= frame; ++k) mirrored[size_t(frame - k)] = mirrored[size_t(frame + k)];

    const double turn = 2.0 * 3.141592653589793 / double(frame);
    PlainSpectra spectra;
    for (size_t start = 0; start + size_t(frame) <= mirrored.size(); start += geometry.hop) {
        spectra.emplace_back(geometry.bins);
        for (size_t k = 0; k < geometry.bins; ++k)
            for (size_t i = 0; i < size_t(frame); ++i)
                spectra.back()[k] += double(geometry.window[i]) * mirrored[start + i] *
                                     std::polar(1.0, -turn * double(k * i % size_t(frame)));
    }
    spectra = model(spectra);
    std::vector<double> sums(mirrored.size()), norms(mirrored.size());
    for (size_t f = 0; f < spectra.size(); ++f)
        for (size_t i = 0; i < size_t(frame); ++i) {
            double sample = spectra[f][0].real();
            for (size_t k = 1; k < geometry.bins; ++k)
                sample += 2.0 * (spectra[f][k] * std::polar(1.0, turn * double(k * i % size_t(frame)))).real();
            const double w = double(geometry.window[i]);
            sums[f * geometry.hop + i] += w * sample / double(frame);
            norms[f * geometry.hop + i] += w * w;
        }
    std::vector<double> result;
    for (size_t k = 0; k < song.size(); ++k) result.push_back(sums[size_t(frame) + k] / norms[size_t(frame) + k]);
    return result;
}
