// Runs the commands as their users do, and looks at what they leave behind.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"

namespace fs = std::filesystem;
using namespace tavrin::tool;
using Samples = std::vector<float>;  // interleaved stereo

inline std::string contents(const fs::path& file) {
    return {std::istreambuf_iterator(std::ifstream(file, std::ios::binary).rdbuf()), {}};
}

struct Outcome {
    std::string command;
    int code = -1;
    std::string out, messages;

    bool says(const std::string& text) const { return messages.find(text) != std::string::npos; }
};

inline std::ostream& operator<<(std::ostream& to, const Outcome& outcome) {
    return to << "\n$ " << outcome.command << "\n" << outcome.out << outcome.messages << "exit code " << outcome.code;
}

// Runs it and expects the exit code and a text in the messages.
inline Outcome expect(int code, const std::string& command, const std::string& text = "") {
    const int status = std::system(("exec >.out 2>.messages; " + command).c_str());
    Outcome outcome{command, WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(".out"), contents(".messages")};
    EXPECT_EQ(outcome.code, code) << outcome;
    EXPECT_TRUE(outcome.says(text)) << "lacks: " << text << outcome;
    return outcome;
}

// The names of all that lies below a folder, sorted, with spaces between them.
inline std::string filesBelow(const fs::path& folder) {
    return expect(0, "find " + folder.string() + " -type f -printf '%P\n' | LC_ALL=C sort | xargs echo -n").out;
}

inline AudioOutput output(const fs::path& file, const std::string& format, int rate = 44100, int channels = 2) {
    return {.place = {.path = file}, .format = findAudioFormat(format), .rate = rate, .channels = channels};
}

inline void writeSound(const AudioOutput& target, const Samples& samples) {
    AudioWriter writer(target);
    for (std::size_t i = 0; i < samples.size(); i += 6002)
        writer.write(std::span(samples).subspan(i, std::min<std::size_t>(6002, samples.size() - i)));
    writer.finish();
}

struct Sound {
    Samples samples{};
    std::shared_ptr<AudioReader> reader{};  // none when the song is refused
    std::string refusal{};

    std::string tag(const std::string& name) const {
        const auto found = reader->tags().find(name);
        return found == reader->tags().end() ? "" : found->second;
    }
    bool isReported() const { return !reader || reader->isDamaged(); }
};

inline Sound readSound(const AudioInput& input) {
    Sound sound;
    try {
        sound.reader = std::make_shared<AudioReader>(input);
        for (Samples block = sound.reader->read(); !block.empty(); block = sound.reader->read())
            sound.samples.insert(sound.samples.end(), block.begin(), block.end());
    } catch (const Failure& refusal) {
        EXPECT_EQ(refusal.code(), ExitCode::inputUnreadable) << refusal.what();
        sound = {.refusal = refusal.what()};
    }
    return sound;
}

inline Sound soundIn(const fs::path& file) { return readSound({.place = {.path = file}}); }

// Of a song that is whole.
inline Samples samplesOf(const fs::path& file) {
    const Sound sound = soundIn(file);
    EXPECT_FALSE(sound.isReported()) << file << sound.refusal;
    return sound.samples;
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
