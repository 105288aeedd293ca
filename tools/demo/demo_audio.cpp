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

// Writes the sum of all tracks, as long as the longest, as float samples: a sum beyond full scale is kept.
// @param tracks a gain in decibels and a file, in turn; the first file gives the rate.
void mix(const std::string& output, const std::vector<std::string>& tracks) {
    Track sum;
    for (std::size_t i = 0; i + 1 < tracks.size(); i += 2) {
        const Track track = load(tracks[i + 1], sum.rate);
        sum.rate = track.rate;
        add(sum.samples, track.samples, static_cast<float>(std::pow(10, std::stod(tracks[i]) / 20)));
    }
    AudioOutput file;
    file.place.path = output;
    file.format = findAudioFormat("wav");
    file.rate = sum.rate;
    AudioWriter writer(file);
    writer.write(sum.samples);
    writer.finish();
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

// Prints how near the stems come to the tracks. Returns whether all stems are as long as the mix and add up to it.
// @param rows a name, the track and the stem that is to be it, in turn.
bool score(const std::string& mixFile, const std::vector<std::string>& rows) {
    const Track mix = load(mixFile);
    Samples sum;
    bool isWhole = true;
    std::printf("  %-10s %12s %12s %8s   (signal-to-distortion ratio, dB)\n", "track", "in the mix", "separated",
                "gain");
    for (std::size_t i = 0; i + 2 < rows.size(); i += 3) {
        Samples track = load(rows[i + 1], mix.rate).samples;
        const Samples stem = load(rows[i + 2]).samples;
        track.resize(mix.samples.size());
        const double before = ratio(track, mix.samples);
        const double after = ratio(track, stem);
        std::printf("  %-10s %12.1f %12.1f %+8.1f\n", rows[i].c_str(), before, after, after - before);
        isWhole = isWhole && stem.size() == mix.samples.size();
        add(sum, stem);
    }
    if (!isWhole) {
        std::fprintf(stderr, "tavrin-demo-audio: the stems are not as long as the mix\n");
        return false;
    }
    double deviation = 0;
    for (std::size_t i = 0; i < sum.size(); ++i)
        deviation = std::max(deviation, std::abs(static_cast<double>(sum[i]) - mix.samples[i]));
    const double deviationDb = 20 * std::log10(deviation);
    std::printf("  stems together against the mix: at most %.0f dB of full scale apart\n", deviationDb);
    return deviationDb <= largestDeviationDb;
}

constexpr const char* usage =
    "usage: tavrin-demo-audio mix OUTPUT.wav {GAIN_DB TRACK}...\n"
    "       tavrin-demo-audio score MIX {NAME TRACK STEM}...\n";

int run(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    const std::vector<std::string> more(words.begin() + std::min<std::ptrdiff_t>(2, std::ssize(words)), words.end());
    if (verb == "mix" && !more.empty() && more.size() % 2 == 0) {
        mix(words[1], more);
        return 0;
    }
    if (verb == "score" && !more.empty() && more.size() % 3 == 0) return score(words[1], more) ? 0 : 1;
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
