// Audio files in and out: known signals through every format, and what becomes of damaged ones.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "audio/audio_error.h"
#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/resampler.h"

namespace {

using namespace tavrin::tool;
namespace fs = std::filesystem;
using Samples = std::vector<float>;

// A rising tone, different on both sides, faded in and out: every shift and every gap shows.
Samples chirp(int rate, std::size_t count, int channels = 2) {
    Samples samples(2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        const double time = static_cast<double>(i) / rate;
        const double fade = std::min({1.0, time * 50, static_cast<double>(count - i) / rate * 50});
        for (std::size_t side = 0; side < 2; ++side) {
            const double phase = 2 * M_PI * (150 * time + 900 * time * time) + (channels == 2 ? 1.5 * static_cast<double>(side) : 0.0);
            samples[2 * i + side] = static_cast<float>(0.6 * fade * std::sin(phase));
        }
    }
    return samples;
}

std::string bytesOf(const fs::path& file) { return {std::istreambuf_iterator(std::ifstream(file).rdbuf()), {}}; }
void writeBytes(const fs::path& file, const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }

AudioOutput output(const fs::path& file, const std::string& format, int rate = 44100, int channels = 2) {
    AudioOutput result;
    result.place.path = file;
    result.format = findAudioFormat(format);
    result.rate = rate;
    result.channels = channels;
    return result;
}

AudioWriter write(const AudioOutput& target, const Samples& samples) {
    AudioWriter writer(target);
    for (std::size_t i = 0; i < samples.size(); i += 6002) {
        writer.write(std::span(samples).subspan(i, std::min<std::size_t>(6002, samples.size() - i)));
    }
    writer.finish();
    return writer;
}

AudioInput input(const fs::path& file) {
    AudioInput result;
    result.place.path = file;
    return result;
}

Samples drain(AudioReader& reader) {
    Samples all;
    for (Samples block = reader.read(); !block.empty(); block = reader.read()) {
        all.insert(all.end(), block.begin(), block.end());
    }
    return all;
}

Samples readAll(const AudioInput& source) {
    AudioReader reader(source);
    return drain(reader);
}

// What a reader gets from a pipe in which these bytes come.
Samples readPiped(const std::string& bytes, bool* isDamaged = nullptr) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::thread feeder([&] {
        for (std::size_t i = 0; i < bytes.size(); i += 3000) {
            if (::write(ends[1], bytes.data() + i, std::min<std::size_t>(3000, bytes.size() - i)) < 0) break;
        }
        close(ends[1]);
    });
    AudioInput source;
    source.place.descriptor = ends[0];
    AudioReader reader(source);
    const Samples samples = drain(reader);
    if (isDamaged) *isDamaged = reader.isDamaged();
    feeder.join();
    close(ends[0]);
    return samples;
}

// Of `samples` against `expected`, with the lag at which they fit best.
struct Fit {
    int lag = 0;
    double error = 1;  // root mean square, relative to the signal's
};
Fit fit(const Samples& samples, const Samples& expected) {
    Fit best;
    constexpr int most = 40;
    for (int lag = -most; lag <= most; ++lag) {
        double error = 0;
        double power = 0;
        for (std::size_t i = 2 * most; i + 2 * most < std::min(samples.size(), expected.size()); ++i) {
            const double wanted = expected[i];
            error += std::pow(samples[i + static_cast<std::size_t>(2 * (lag + most)) - 2 * most] - wanted, 2);
            power += wanted * wanted;
        }
        if (std::sqrt(error / power) < best.error) best = {lag, std::sqrt(error / power)};
    }
    return best;
}

Samples stretch(const Samples& samples, std::size_t from, std::size_t count) {
    return {samples.begin() + static_cast<std::ptrdiff_t>(2 * from),
            samples.begin() + static_cast<std::ptrdiff_t>(2 * (from + count))};
}

// Every test works in an empty folder of its own.
struct Audio : testing::Test {
    const fs::path folder = fs::temp_directory_path() / ("tavrin-audio-" + std::to_string(getpid()));
    Audio() {
        fs::create_directory(folder);
        fs::current_path(folder);
        testing::internal::CaptureStderr();
    }
    ~Audio() override {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the libraries' messages are for the caller";
        fs::remove_all(folder);
    }
};

// The largest error that each format may make of the chirp, relative to its power: a step of 16 bits is 7e-5 of it.
const std::map<std::string, double> errors = {{"wav", 0},     {"wav16", 1e-4},  {"wav24", 2e-7},
                                              {"flac", 1e-4}, {"flac24", 2e-7}, {"mp3", 0.02},
                                              {"m4a", 0.02},  {"opus", 0.1},    {"ogg", 0.05}};

TEST_F(Audio, everyFormatKeepsLengthAndPlaceAtEveryRate) {
    for (const auto& [format, largestError] : errors) {
        for (const int rate : {8000, 11025, 22050, 32000, 44100, 48000, 96000, 192000}) {
            for (const int channels : {1, 2}) {
                const std::string what = format + " at " + std::to_string(rate) + " Hz, " + std::to_string(channels);
                const auto count = static_cast<std::size_t>(rate) * 7 / 10 + 13;
                const Samples song = chirp(rate, count, channels);
                const AudioWriter writer = write(output("song", format, rate, channels), song);
                Samples expected = song;
                if (writer.rate() != rate) {
                    Resampler resampler(rate, writer.rate());
                    expected = resampler.process(song);
                    const Samples rest = resampler.finish();
                    expected.insert(expected.end(), rest.begin(), rest.end());
                }
                AudioReader reader(input("song"));
                const Samples result = drain(reader);
                EXPECT_EQ(reader.rate(), findAudioFormat(format)->rateFor(rate)) << what;
                EXPECT_EQ(reader.channels(), channels) << what;
                EXPECT_EQ(result.size(), expected.size()) << what;
                EXPECT_FALSE(reader.isDamaged()) << what;
                const Fit found = fit(result, expected);
                EXPECT_EQ(found.lag, 0) << what;
                EXPECT_LE(found.error, largestError) << what;
                EXPECT_EQ(readPiped(bytesOf("song")), result) << what << " in a pipe";
                AudioInput part = input("song");
                part.start = 0.123;
                part.duration = 0.2;
                const auto from = static_cast<std::size_t>(std::llround(0.123 * reader.rate()));
                const auto length = static_cast<std::size_t>(std::llround(0.2 * reader.rate()));
                EXPECT_EQ(readAll(part), stretch(result, from, length)) << what << " from 0.123 s";
            }
        }
    }
}

}  // namespace
