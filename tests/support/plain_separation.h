/// @file
/// Separation of a whole stream at once, by definition: no ring, no window of frames, no fast transform, double
/// precision.
#pragma once

#include <cmath>
#include <complex>
#include <functional>

#include "pipeline/stream_engine.h"

/// All frames of each channel, [channels][frames][bins].
using PlainSpectra = std::vector<std::vector<std::vector<std::complex<double>>>>;

/// A planar stereo song through `model`, which turns the spectra of all frames into those of one stem.
/// @return planar, as many samples as given.
inline std::vector<double> separatePlainly(const std::vector<float>& song, const tavrin::StreamPlan& plan,
                                           const std::function<PlainSpectra(const PlainSpectra&)>& model) {
    const size_t length = song.size() / 2, frame = plan.window.size();
    if (length == 0) return {};
    const size_t total = (length + plan.hop - 1) / plan.hop * plan.hop + 2 * frame;
    std::vector<std::complex<double>> turns;
    for (size_t i = 0; i < frame; ++i)
        turns.push_back(std::polar(1.0, 2.0 * 3.141592653589793 * double(i) / double(frame)));
    PlainSpectra spectra(2);
    for (size_t c = 0; c < 2; ++c) {
        const auto mirrored = [&](size_t position) {  // sample k of the song is k + frame of the mirrored one
            const size_t k = std::max(position, frame) - std::min(position, frame);
            return k < 2 * length - 1 ? double(song[c * length + std::min(k, 2 * (length - 1) - k)]) : 0.0;
        };
        for (size_t start = 0; start + frame <= total; start += plan.hop) {
            auto& spectrum = spectra[c].emplace_back(plan.bins);
            for (size_t k = 0; k < plan.bins; ++k)
                for (size_t i = 0; i < frame; ++i)
                    spectrum[k] += double(plan.window[i]) * mirrored(start + i) * std::conj(turns[i * k % frame]);
        }
    }
    std::vector<double> result;
    for (const auto& frames : model(spectra)) {
        std::vector<double> sums(total), norms(total);
        for (size_t f = 0; f < frames.size(); ++f)
            for (size_t i = 0; i < frame; ++i) {
                double sample = -frames[f][0].real();  // DC is there once, every other bin has its mirror
                for (size_t k = 0; k < plan.bins; ++k) sample += 2.0 * (frames[f][k] * turns[i * k % frame]).real();
                const double w = double(plan.window[i]);
                sums[f * plan.hop + i] += w * sample / double(frame);
                norms[f * plan.hop + i] += w * w;
            }
        for (size_t k = frame; k < frame + length; ++k) result.push_back(sums[k] / norms[k]);
    }
    return result;
}
