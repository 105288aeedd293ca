/// @file
/// Separation of a whole stream at once, by definition: no ring, no window of frames, double precision.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <functional>
#include <vector>

/// The geometry of a separation; a frame is a power of two of samples.
struct PlainGeometry {
    size_t hop, bins;
    std::vector<float> window;
};

using PlainFrame = std::vector<std::complex<double>>;

/// All frames of each channel, [channels][frames][bins].
using PlainSpectra = std::vector<std::vector<PlainFrame>>;

/// The discrete Fourier transform, by halves. @param direction -1 forward, 1 backward (not scaled).
inline PlainFrame plainTransform(const PlainFrame& x, double direction) {
    const size_t half = x.size() / 2;
    if (half == 0) return x;
    PlainFrame even, odd, result(x.size());
    for (size_t i = 0; i < half; ++i) even.push_back(x[2 * i]), odd.push_back(x[2 * i + 1]);
    even = plainTransform(even, direction), odd = plainTransform(odd, direction);
    for (size_t k = 0; k < half; ++k) {
        odd[k] *= std::polar(1.0, direction * 3.141592653589793 * double(k) / double(half));
        result[k] = even[k] + odd[k], result[k + half] = even[k] - odd[k];
    }
    return result;
}

/// A planar stereo song through `model`, which turns the spectra of all frames into those of one stem.
/// @return planar, as many samples as given.
inline std::vector<double> separatePlainly(const std::vector<float>& song, const PlainGeometry& geometry,
                                           const std::function<PlainSpectra(const PlainSpectra&)>& model) {
    const long length = long(song.size() / 2), frame = long(geometry.window.size()), hop = long(geometry.hop);
    if (length == 0) return {};
    // Sample k of the song is k + frame of the mirrored one.
    const size_t total = size_t((length + hop - 1) / hop * hop + 2 * frame);
    PlainSpectra spectra(2);
    for (size_t c = 0; c < 2; ++c) {
        std::vector<double> mirrored(total);
        for (long k = 0; k < long(total) - frame; ++k) {
            const long from = k < length ? k : 2 * (length - 1) - k;
            mirrored[size_t(k + frame)] = from >= 0 ? double(song[size_t(long(c) * length + from)]) : 0.0;
        }
        for (long k = 1; k <= frame; ++k) mirrored[size_t(frame - k)] = mirrored[size_t(frame + k)];
        for (size_t start = 0; start + size_t(frame) <= total; start += geometry.hop) {
            PlainFrame windowed;
            for (size_t i = 0; i < size_t(frame); ++i)
                windowed.emplace_back(double(geometry.window[i]) * mirrored[start + i]);
            spectra[c].push_back(plainTransform(windowed, -1.0));
            spectra[c].back().resize(geometry.bins);
        }
    }
    std::vector<double> result;
    for (const std::vector<PlainFrame>& frames : model(spectra)) {
        std::vector<double> sums(total), norms(total);
        for (size_t f = 0; f < frames.size(); ++f) {
            PlainFrame spectrum = frames[f];
            for (std::complex<double>& bin : spectrum) bin *= 2.0;  // and those that mirror them
            spectrum[0] = frames[f][0].real();
            spectrum.resize(size_t(frame));
            spectrum = plainTransform(spectrum, 1.0);
            for (size_t i = 0; i < size_t(frame); ++i) {
                const double w = double(geometry.window[i]);
                sums[f * geometry.hop + i] += w * spectrum[i].real() / double(frame);
                norms[f * geometry.hop + i] += w * w;
            }
        }
        for (size_t k = size_t(frame); k < size_t(frame + length); ++k) result.push_back(sums[k] / norms[k]);
    }
    return result;
}
