// tavrin-demo-audio: what the demo needs beside the separation itself. Mixes tracks, and scores stems against them.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/resampler.h"

namespace {

using namespace tavrin::tool;
using Samples = std::vector<float>;  // interleaved stereo

// The parts are a float sum away from the mix: more than this is a fault.
constexpr double largestDeviationDb = -120.0;

struct Track {
    Samples samples;
    int rate = 0;
};

// A whole file, at its own rate or at another one.
Track load(const std::string& path, int rate = 0) {
    AudioInput input;
    input.place.path = path;
    AudioReader reader(input);
    Track track{{}, rate > 0 ? rate : reader.rate()};
    Resampler resampler(reader.rate(), track.rate);
    const auto append = [&](const Samples& more) {
        track.samples.insert(track.samples.end(), more.begin(), more.end());
    };
    for (Samples block = reader.read(); !block.empty(); block = reader.read()) append(resampler.process(block));
    append(resampler.finish());
    if (reader.isDamaged()) throw std::runtime_error(path + ": is damaged; delete it and run the demo again");
    return track;
}

// Adds `gain` times the samples; the sum becomes as long as the longer one.
void add(Samples& sum, const Samples& samples, float gain = 1) {
    sum.resize(std::max(sum.size(), samples.size()));
    for (std::size_t i = 0; i < samples.size(); ++i) sum[i] += gain * samples[i];
}

// Float samples: a sum beyond full scale is kept.
void write(const std::string& output, const Track& track) {
    AudioOutput file;
    file.place.path = output;
    file.format = findAudioFormat("wav");
    file.rate = track.rate;
    AudioWriter writer(file);
    writer.write(track.samples);
    writer.finish();
}

// Writes the sum of all tracks, as long as the first one.
// @param tracks a gain in decibels and a file, in turn; the first file gives the rate.
void mix(const std::string& output, const std::vector<std::string>& tracks) {
    Track sum;
    for (std::size_t i = 0; i + 1 < tracks.size(); i += 2) {
        Track track = load(tracks[i + 1], sum.rate);
        if (sum.rate == 0) sum.samples.resize(track.samples.size());
        track.samples.resize(sum.samples.size());
        sum.rate = track.rate;
        add(sum.samples, track.samples, static_cast<float>(std::pow(10, std::stod(tracks[i]) / 20)));
    }
    write(output, sum);
}

// Signal-to-distortion ratio: 10 log10(sum s^2 / sum (s - e)^2) over all samples of both channels.
double ratio(const Samples& signal, const Samples& estimate) {
    double power = 0;
    double distortion = 0;
    for (std::size_t i = 0; i < std::min(signal.size(), estimate.size()); ++i) {
        power += static_cast<double>(signal[i]) * signal[i];
        distortion += std::pow(static_cast<double>(signal[i]) - estimate[i], 2);
    }
    return 10 * std::log10(power / distortion);
}

// Writes recordings one after the other, each as loud as the others, with pauses between them. The first begins at
// `start` seconds.
void join(const std::string& output, double start, const std::vector<std::string>& files) {
    constexpr double pause = 0.3;  // seconds
    constexpr double level = 0.1;  // root mean square, of full scale
    Track sum;
    for (const std::string& path : files) {
        Track track = load(path, sum.rate);
        if (sum.rate == 0) sum.samples.resize(2 * static_cast<std::size_t>(start * track.rate));
        sum.rate = track.rate;
        double power = 1e-9;
        for (const float sample : track.samples) power += static_cast<double>(sample) * sample;
        const double gain =
            level / std::sqrt(power / static_cast<double>(std::max<std::size_t>(1, track.samples.size())));
        for (const float sample : track.samples) sum.samples.push_back(static_cast<float>(gain) * sample);
        sum.samples.resize(sum.samples.size() + 2 * static_cast<std::size_t>(pause * track.rate));
    }
    write(output, sum);
}

// Splits at each ":".
std::vector<std::vector<std::string>> groupsOf(const std::vector<std::string>& words) {
    std::vector<std::vector<std::string>> groups(1);
    for (const std::string& word : words) {
        if (word != ":") groups.back().push_back(word);
        if (word == ":") groups.emplace_back();
    }
    return groups;
}

// Prints how near the stems come to the tracks. Returns whether all stems are as long as the mix, and each column's add
// up to it.
// @param table the columns' names, then for each row its name, its track and the stem that is to be it in each column.
bool score(const std::string& mixFile, const std::vector<std::vector<std::string>>& table) {
    const Track mix = load(mixFile);
    const std::vector<std::string>& columns = table.front();
    std::vector<Samples> sums(columns.size());
    bool isWhole = true;
    std::printf("  %-8s %12s", "", "in the mix");
    for (const std::string& column : columns) std::printf(" %10s", column.c_str());
    std::printf("   (signal-to-distortion ratio, dB)\n");
    for (std::size_t row = 1; row < table.size(); ++row) {
        Samples track = load(table[row][1], mix.rate).samples;
        track.resize(mix.samples.size());
        std::printf("  %-8s %12.1f", table[row][0].c_str(), ratio(track, mix.samples));
        for (std::size_t column = 0; column < columns.size(); ++column) {
            const Samples stem = load(table[row][2 + column]).samples;
            std::printf(" %10.1f", ratio(track, stem));
            isWhole = isWhole && stem.size() == mix.samples.size();
            add(sums[column], stem);
        }
        std::printf("\n");
    }
    if (!isWhole) {
        std::fprintf(stderr, "tavrin-demo-audio: the stems are not as long as the mix\n");
        return false;
    }
    float deviation = 0;
    for (Samples& sum : sums) {
        add(sum, mix.samples, -1);
        for (const float difference : sum) deviation = std::max(deviation, std::abs(difference));
    }
    const double deviationDb = 20 * std::log10(deviation);
    std::printf("  stems together against the mix: at most %.0f dB of full scale apart\n", deviationDb);
    return deviationDb <= largestDeviationDb;
}

constexpr const char* usage =
    "usage: tavrin-demo-audio mix OUTPUT.wav {GAIN_DB TRACK}...\n"
    "       tavrin-demo-audio join OUTPUT.wav START_SECONDS RECORDING...\n"
    "       tavrin-demo-audio score MIX COLUMN... {: ROW TRACK STEM_OF_EACH_COLUMN...}...\n";

int run(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    const std::vector<std::string> more(words.begin() + std::min<std::ptrdiff_t>(2, std::ssize(words)), words.end());
    if (verb == "mix" && !more.empty() && more.size() % 2 == 0) {
        mix(words[1], more);
        return 0;
    }
    if (verb == "join" && more.size() > 1) {
        join(words[1], std::stod(more[0]), {more.begin() + 1, more.end()});
        return 0;
    }
    const auto table = groupsOf(more);
    const auto fits = [&](const auto& row) { return row.size() == 2 + table[0].size(); };
    if (verb == "score" && !table[0].empty() && table.size() > 1 && std::all_of(table.begin() + 1, table.end(), fits))
        return score(words[1], table) ? 0 : 1;
    std::fputs(usage, stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tavrin-demo-audio: %s\n", error.what());
        return 1;
    }
}
