// tavrin-demo-audio: what scripts/demo.sh needs beside the separation. It trusts that script's words.
//     tavrin-demo-audio mix OUTPUT.wav {GAIN_DB TRACK}...
//     tavrin-demo-audio join OUTPUT.wav START_SECONDS RECORDING...
//     tavrin-demo-audio score MIX COLUMN... {: ROW TRACK STEM_OF_EACH_COLUMN...}...
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/resampler.h"

namespace {

using namespace tavrin::tool;
using Samples = std::vector<float>;  // interleaved stereo

struct Track {
    Samples samples;
    int rate = 0;
};

// Adds `gain` times the samples to those from `at` on; the sum becomes longer where that takes it.
void add(Samples& sum, const Samples& samples, double gain = 1, std::size_t at = 0) {
    sum.resize(std::max(sum.size(), at + samples.size()));
    for (std::size_t i = 0; i < samples.size(); ++i) sum[at + i] += static_cast<float>(gain) * samples[i];
}

// A whole file, at its own rate or at another one.
Track load(const std::string& path, int rate = 0) {
    AudioReader reader({.place = {.path = path}});
    Track track{{}, rate > 0 ? rate : reader.rate()};
    Resampler resampler(reader.rate(), track.rate);
    const auto append = [&](const Samples& more) { add(track.samples, more, 1, track.samples.size()); };
    for (Samples block = reader.read(); !block.empty(); block = reader.read()) append(resampler.process(block));
    append(resampler.finish());
    if (reader.isDamaged()) throw std::runtime_error(path + ": is damaged; delete it and run the demo again");
    return track;
}

// The sum of all squares.
double power(const Samples& samples) {
    const auto square = [](double sample) { return sample * sample; };
    return std::transform_reduce(samples.begin(), samples.end(), 0.0, std::plus(), square);
}

// Float samples: a sum beyond full scale is kept.
void write(const std::string& output, const Track& track) {
    AudioWriter writer({.place = {.path = output}, .format = findAudioFormat("wav"), .rate = track.rate});
    writer.write(track.samples);
    writer.finish();
}

// Writes the sum of all tracks, as long as the first one.
// @param tracks a gain in decibels and a file, in turn; the first file gives the rate.
void mix(const std::string& output, const std::vector<std::string>& tracks) {
    Track sum;
    for (std::size_t i = 0; i < tracks.size(); i += 2) {
        Track track = load(tracks[i + 1], sum.rate);
        if (sum.rate == 0) sum = {Samples(track.samples.size()), track.rate};
        track.samples.resize(sum.samples.size());
        add(sum.samples, track.samples, std::pow(10, std::stod(tracks[i]) / 20));
    }
    write(output, sum);
}

// Writes recordings one after the other, each as loud as the others, with pauses between them. The first begins at
// `start` seconds and gives the rate.
void join(const std::string& output, double start, const std::vector<std::string>& files) {
    constexpr double pause = 0.3;  // seconds
    constexpr double level = 0.1;  // root mean square, of full scale
    Track sum;
    for (const std::string& path : files) {
        const auto [samples, rate] = load(path, sum.rate);
        if (sum.rate == 0) sum = {Samples(2 * static_cast<std::size_t>(start * rate)), rate};
        const double loudness =
            std::sqrt((power(samples) + 1e-9) / static_cast<double>(std::max<std::size_t>(1, samples.size())));
        add(sum.samples, samples, level / loudness, sum.samples.size());
        sum.samples.resize(sum.samples.size() + 2 * static_cast<std::size_t>(pause * rate));
    }
    write(output, sum);
}

// Signal-to-distortion ratio: 10 log10(sum s^2 / sum (s - e)^2) over all samples of both channels.
double ratio(const Samples& signal, Samples estimate) {
    add(estimate, signal, -1);
    return 10 * std::log10(power(signal) / power(estimate));
}

// Prints how near the stems come to the tracks. Returns whether each column's stems add up to the mix.
// @param table names of columns, then for each row a ":", its name, its track, and the stem of each column.
bool score(const std::string& mixFile, const std::vector<std::string>& table, std::size_t columns) {
    const auto [mix, rate] = load(mixFile);
    std::vector<Samples> sums(columns);
    std::printf("  %-8s %12s", "", "in the mix");
    for (std::size_t i = 0; i < columns; ++i) std::printf(" %10s", table[i].c_str());
    std::printf("   (signal-to-distortion ratio, dB)\n");
    for (std::size_t row = columns; row < table.size(); row += 3 + columns) {
        Samples track = load(table[row + 2], rate).samples;
        track.resize(mix.size());
        std::printf("  %-8s %12.1f", table[row + 1].c_str(), ratio(track, mix));
        for (std::size_t i = 0; i < columns; ++i) {
            const std::string& file = table[row + 3 + i];
            const Samples stem = load(file).samples;
            if (stem.size() != mix.size()) throw std::runtime_error(file + ": is not as long as the mix");
            std::printf(" %10.1f", ratio(track, stem));
            add(sums[i], stem);
        }
        std::printf("\n");
    }
    float deviation = 0;
    for (Samples& sum : sums) {
        add(sum, mix, -1);
        for (const float difference : sum) deviation = std::max(deviation, std::abs(difference));
    }
    const double deviationDb = 20 * std::log10(deviation);
    std::printf("  stems together against the mix: at most %.0f dB of full scale apart\n", deviationDb);
    return deviationDb <= -120;  // they are a float sum away from the mix: more is a fault
}

}  // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string& verb = words.at(0);
    const std::vector<std::string> more(words.begin() + 2, words.end());
    if (verb == "mix") mix(words[1], more);
    if (verb == "join") join(words[1], std::stod(words.at(2)), {words.begin() + 3, words.end()});
    if (verb != "score") return 0;
    const auto columns = static_cast<std::size_t>(std::find(more.begin(), more.end(), ":") - more.begin());
    return score(words[1], more, columns) ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "tavrin-demo-audio: %s\n", error.what());
    return 1;
}
