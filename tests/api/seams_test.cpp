// Separations by the shipped model of what is struck, whose frames depend on sixteen neighbours to either side, against
// its formula over all frames at once: what a model call's borders leave in the sound.
#include <gtest/gtest.h>

#include <algorithm>

#include "dsp/window.h"
#include "models/model_bytes.h"
#include "support/plain_separation.h"
#include "support/signals.h"
#include "tavrin/separator.h"

namespace {

constexpr size_t kHop = 1024, kFrame = 4096, kBins = 2048;
constexpr long kReach = 8;  // frames or bins to either side of an opening's minimum, and again of its maximum

// A chord of slow and fast beats, a noise, and a stroke every eleven hops. Planar.
std::vector<float> song(size_t hops) {
    const size_t length = hops * kHop + 77;
    std::vector<float> samples = noise(2 * length, 5);
    for (size_t i = 0; i < samples.size(); ++i) {
        const double t = double(i % length), strokes = std::exp(-double(i % length % (11 * kHop)) / 300.0);
        const double detuned = i < length ? 0.031 : 0.0312;
        samples[i] = float((0.01 + 0.3 * strokes) * double(samples[i]) +
                           0.1 * (std::sin(detuned * t) + std::sin(0.047 * t) + std::sin(0.0473 * t)));
    }
    return samples;
}

std::vector<float> struck(const std::vector<float>& samples) {
    static const std::vector<std::uint8_t> bytes = modelBytes("../../models/percussive.onnx");
    static const tavrin::Model model({bytes.data(), bytes.size()});
    return separate(model, samples, {{}, false, tavrin::Layout::planar}).front();
}

using Energies = std::vector<std::vector<double>>;  // [frames][bins]

// The extreme of every place's neighbours along frames or bins, as far as there are any.
template <class Extreme>
Energies extremes(const Energies& from, long frames, long bins, Extreme extreme) {
    Energies to = from;
    const long lastFrame = long(from.size()) - 1, lastBin = long(kBins) - 1;
    for (long f = 0; f <= lastFrame; ++f)
        for (long k = 0; k <= lastBin; ++k)
            for (long i = -kReach; i <= kReach; ++i)
                to[size_t(f)][size_t(k)] =
                    extreme(to[size_t(f)][size_t(k)], from[size_t(std::clamp(f + i * frames, 0L, lastFrame))]
                                                          [size_t(std::clamp(k + i * bins, 0L, lastBin))]);
    return to;
}

PlainSpectra formula(const PlainSpectra& in) {
    Energies energy(in[0].size(), std::vector<double>(kBins));
    for (size_t f = 0; f < energy.size(); ++f)
        for (size_t k = 0; k < kBins; ++k) energy[f][k] = std::norm(in[0][f][k]) + std::norm(in[1][f][k]);
    const auto smaller = [](double a, double b) { return std::min(a, b); };
    const auto larger = [](double a, double b) { return std::max(a, b); };
    const Energies held = extremes(extremes(energy, 1, 0, smaller), 1, 0, larger);
    const Energies hit = extremes(extremes(energy, 0, 1, smaller), 0, 1, larger);
    PlainSpectra out = in;
    for (auto& channel : out)
        for (size_t f = 0; f < energy.size(); ++f)
            for (size_t k = 0; k < kBins; ++k) channel[f][k] *= hit[f][k] / (hit[f][k] + held[f][k] + 1e-30);
    return out;
}

// How far b, from its sample `late` on, is from a: decibels of the difference's energy below a's, without the
// twenty-five hops at either end of a, where what a frame sees depends on where the stream begins and ends.
template <class Samples>
double decibels(const Samples& a, const std::vector<float>& b, size_t late = 0) {
    double energy = 0.0, difference = 0.0;
    const size_t length = a.size() / 2;
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 25 * kHop; i < length - 25 * kHop; ++i) {
            const double x = double(a[c * length + i]), d = double(b[c * (length + late) + late + i]) - x;
            energy += x * x, difference += d * d;
        }
    return 10.0 * std::log10(difference / energy);
}

TEST(Seams, areNotThereWhereverTheModelCallsFall) {
    const std::vector<float> early = song(240), first = struck(early);
    // A call gives 224 frames.
    for (const size_t delay : {1U, 15U, 16U, 17U, 100U, 207U, 208U, 223U, 224U, 300U}) {
        std::vector<float> late(early.size() + 2 * delay * kHop);
        std::copy_n(early.begin(), early.size() / 2, late.begin() + ptrdiff_t(delay * kHop));
        std::copy_n(early.rbegin(), early.size() / 2, late.rbegin());
        EXPECT_LT(decibels(first, struck(late), delay * kHop), -100.0) << delay;
    }
}

TEST(Seams, leaveTheFormulaOverAllFramesAtOnce) {
    const std::vector<float> samples = song(270);
    const std::vector<float> window = getWindow(WindowType::Blackman, kFrame);
    const std::vector<double> plain = separatePlainly(samples, {kHop, kBins, window}, formula);
    const double seamless = decibels(plain, struck(samples));
    EXPECT_LT(seamless, -100.0);
    RecordProperty("decibels", std::to_string(seamless));
}

}  // namespace
