// Runs the commands as their users do, and looks at what they leave behind.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"

namespace fs = std::filesystem;
using Samples = std::vector<float>;  // interleaved stereo

inline std::string contents(const fs::path& file) {
    return {std::istreambuf_iterator(std::ifstream(file, std::ios::binary).rdbuf()), {}};
}

struct Outcome {
    std::string command;
    int code = -1;
    std::string out;
    std::string messages;
    double seconds = 0;

    bool says(const std::string& text) const { return messages.find(text) != std::string::npos; }
};

inline std::ostream& operator<<(std::ostream& to, const Outcome& outcome) {
    return to << "\n$ " << outcome.command << "\n" << outcome.out << outcome.messages << "exit code " << outcome.code;
}

inline Outcome run(const std::string& command) {
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system(("exec >.out 2>.messages; " + command).c_str());
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    return {command, WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(".out"), contents(".messages"),
            time.count()};
}

// Runs it and expects the exit code and a text in the messages.
inline void expect(int code, const std::string& command, const std::string& text = "") {
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.code, code) << outcome;
    EXPECT_TRUE(outcome.says(text)) << "lacks: " << text << outcome;
}

// The names of all that lies below a folder, sorted, with spaces between them.
inline std::string filesBelow(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) names.push_back(entry.path().lexically_relative(folder));
    }
    std::sort(names.begin(), names.end());
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : " ") + name;
    return list;
}

inline void writeSound(const fs::path& file, const Samples& samples, int rate = 44100, int channels = 2,
                       const std::string& format = "wav") {
    tavrin::tool::AudioOutput output;
    output.place.path = file;
    output.format = tavrin::tool::findAudioFormat(format);
    output.rate = rate;
    output.channels = channels;
    output.tags = {{"artist", "Zoë"}, {"title", "Tune"}};
    tavrin::tool::AudioWriter writer(output);
    writer.write(samples);
    writer.finish();
}

struct Sound {
    Samples samples;
    int rate = 0;
    tavrin::tool::Tags tags;
};

inline Sound readSound(const fs::path& file) {
    tavrin::tool::AudioInput input;
    input.place.path = file;
    tavrin::tool::AudioReader reader(input);
    Sound sound{{}, reader.rate(), reader.tags()};
    for (Samples block = reader.read(); !block.empty(); block = reader.read())
        sound.samples.insert(sound.samples.end(), block.begin(), block.end());
    EXPECT_FALSE(reader.isDamaged()) << file;
    return sound;
}

// Writes a song with a tone of its own in each channel. Returns it: of a mono song twice the same channel.
inline Samples writeTones(const fs::path& file, int rate, int channels, int count, double amplitude = 0.5,
                          const std::string& format = "wav") {
    Samples song;
    for (int i = 0; i < 2 * count; ++i) {
        const double hertz = i % channels == 0 ? 440 : 1040;
        song.push_back(static_cast<float>(amplitude * std::sin(2 * M_PI * hertz * (i / 2) / rate)));
    }
    writeSound(file, song, rate, channels, format);
    return song;
}

// Of the samples from the song's times `gain`, where both are longer than `margin`.
inline double largestDifference(const Samples& samples, const Samples& song, double gain = 1, std::size_t margin = 0) {
    double largest = samples.size() == song.size() ? 0 : INFINITY;
    for (std::size_t i = margin; i + margin < std::min(samples.size(), song.size()); ++i)
        largest = std::max(largest, std::abs(samples[i] - gain * song[i]));
    return largest;
}

// Every test works in an empty folder of its own.
struct Command : testing::Test {
    const fs::path folder = fs::temp_directory_path() / ("tavrin-command-" + std::to_string(getpid()));
    Command() {
        fs::create_directory(folder);
        fs::current_path(folder);
    }
    ~Command() override { fs::remove_all(folder); }
};
