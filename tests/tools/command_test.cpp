// The command as its users run it: arguments in; files, messages and exit codes out.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sndfile.hh>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Samples = std::vector<float>;
using Gains = std::vector<std::pair<std::string, double>>;

const std::string tool = TAVRIN_SEPARATE " ";
const std::string models = TAVRIN_TEST_MODELS "/";

// Writes a song with a tone of its own in each channel. Returns it in stereo: of a mono song twice the same channel.
Samples writeTones(const std::string& file, int rate, int channels, int frames, double amplitude = 0.5,
                   int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    Samples stereo;
    Samples song;
    for (int i = 0; i < 2 * frames; ++i) {
        const double turns = (i % channels == 0 ? 440.0 : 1040.0) * (i / 2) / rate;
        stereo.push_back(static_cast<float>(amplitude * std::sin(2 * M_PI * turns)));
        if (i % 2 < channels) song.push_back(stereo.back());
    }
    SndfileHandle(file, SFM_WRITE, format, channels, rate).write(song.data(), std::ssize(song));
    return stereo;
}

Samples readStereo(const std::string& file, int rate) {
    SndfileHandle handle(file);
    EXPECT_EQ(handle.samplerate(), rate) << file;
    Samples samples(static_cast<std::size_t>(handle.frames() * 2));
    EXPECT_EQ(handle.read(samples.data(), std::ssize(samples)), std::ssize(samples)) << file;
    return samples;
}

std::string contents(const fs::path& file) { return {std::istreambuf_iterator(std::ifstream(file).rdbuf()), {}}; }

// Returns the exit code. Nothing may ever come on standard output.
int shell(const std::string& command) {
    const int status = std::system(("exec >out.txt 2>messages.txt; " + command).c_str());
    EXPECT_EQ(contents("out.txt"), "") << command;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The exit code, a message that names the culprit, and nothing left behind.
void expectFailure(int code, const std::string& culprit, const std::string& arguments, const std::string& limit = "") {
    EXPECT_EQ(shell(limit + tool + "--only rest -o new/results " + arguments), code) << arguments;
    EXPECT_NE(contents("messages.txt").find(culprit), std::string::npos) << culprit;
    EXPECT_FALSE(fs::exists("new")) << arguments;
}

// Of the samples from the song's times `gain`.
double largestDifference(const Samples& samples, const Samples& song, double gain = 1, std::size_t margin = 0) {
    double largest = samples.size() == song.size() ? 0 : INFINITY;
    for (std::size_t i = margin; i + margin < std::min(samples.size(), song.size()); ++i)
        largest = std::max(largest, std::abs(samples[i] - gain * song[i]));
    return largest;
}

// Every stem is the song times a gain, the rest makes them the song again, there is no other file, and one message.
void expectParts(const Gains& gains, const std::string& model, int rate, int channels, int frames) {
    const Samples song = writeTones("my song.wav", rate, channels, frames);
    const std::string command = "rm -rf stems; " + tool + "'my song.wav' -o stems --model " + models + model;
    EXPECT_EQ(shell(command + " && [ $(wc -l <messages.txt) = 1 ]"), 0) << contents("messages.txt");
    Samples sum = readStereo("stems/my song/rest.wav", rate);
    for (const auto& [name, gain] : gains) {
        const Samples stem = readStereo("stems/my song/" + name + ".wav", rate);
        // A shift by one sample would be 0.01 · gain or more. A resampler may ring where the tone begins and ends.
        EXPECT_LT(largestDifference(stem, song, gain, 400), 1e-4) << name << " " << rate;
        std::transform(sum.begin(), sum.end(), stem.begin(), sum.begin(), std::plus());
    }
    EXPECT_LT(largestDifference(sum, song), 1e-7) << rate;
    EXPECT_EQ(std::distance(fs::directory_iterator("stems/my song"), {}), std::ssize(gains) + 1);
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

TEST_F(Command, givesStemsAndRestAtTheSongsOwnRateLengthAndPlace) {
    expectParts({{"passthrough", 1}}, "passthrough.onnx", 44100, 2, 300001);
    expectParts({{"passthrough", 1}}, "passthrough.onnx", 48000, 1, 0);
    // The conversion of 1000 samples from 96 kHz and back gives 999.
    expectParts({{"passthrough", 1}}, "passthrough.onnx", 96000, 1, 1000);
    const std::string six = "six_stems.onnx --stems ";
    expectParts({{"vocals", 0.5}, {"bass", 0.125}}, six + "bass,Voice,vocals", 48000, 2, 330007);
    expectParts({{"drums", 0.25}, {"acoustic_guitar", 0.03125}}, six + "drum,Acoustic-Guitar", 44100, 1, 270000);
    expectParts({{"piano", 0.0625}, {"electric_guitar", 0.015625}}, six + "keys,electric", 44100, 2, 5000);
    EXPECT_EQ(shell("[ \"$(" + tool + "--list-stems | tail -n 2 | xargs)\" = 'acoustic_guitar electric_guitar' ]"), 0);
}

TEST_F(Command, writesWhatIsWantedAndReplacesOldResultsButNeverTheSong) {
    writeTones("song.flac", 44100, 2, 5000, 0.5, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    EXPECT_EQ(shell(tool + "song.flac --quiet && [ ! -s messages.txt ]"), 0);
    EXPECT_EQ(shell(tool + "song.flac --only stem --format flac24"), 0);
    EXPECT_EQ(shell("[ \"$(ls -A song | xargs)\" = 'centre.flac centre.wav rest.wav' ]"), 0);
    EXPECT_EQ(shell(tool + "song/centre.wav -o ."), 0);
    EXPECT_EQ(shell(tool + "centre/centre.wav -o ."), 1);
}

TEST_F(Command, clipsWhatAnIntegerFormatCannotHold) {
    Samples song = writeTones("loud.wav", 44100, 2, 20000, 1.7);
    for (float& sample : song) sample = std::clamp(sample, -1.0F, 1.0F);
    for (const std::string format : {"wav16", "wav24", "flac16", "flac24"}) {
        EXPECT_EQ(shell(tool + "loud.wav --only stem --model " + models + "passthrough.onnx --format " + format), 0);
        const std::string stem = "loud/passthrough." + format.substr(0, format.size() - 2);
        EXPECT_LT(largestDifference(readStereo(stem, 44100), song), 1e-4) << format;
    }
}

TEST_F(Command, saysWhatWentWrongAndLeavesNothingBehind) {
    writeTones("song.wav", 44100, 2, 400000);
    writeTones("three.wav", 44100, 3, 300);
    std::ofstream("text") << "neither a song nor a model\n";
    expectFailure(1, "\"kazoo\"", "song.wav --model text --stems vocals,kazoo");
    expectFailure(1, "--model", "song.wav --stems all");
    expectFailure(1, "--stems", "song.wav --provider CPUExecutionProvider");
    expectFailure(3, "unified_input", "song.wav --stems all --model " + models + "passthrough.onnx");
    expectFailure(2, "missing.wav", "missing.wav");
    expectFailure(2, "3 channels", "three.wav");
    expectFailure(3, "--key", "song.wav --key wrong");
    expectFailure(3, "[1, 4, 8, 16]", "song.wav --model " + models + "small.onnx");
    expectFailure(3, "failing.onnx: the model run failed", "song.wav --model " + models + "failing.onnx");
    // As when the disk is full.
    expectFailure(4, "rest.wav", "song.wav", "ulimit -f 1000; ");
    EXPECT_EQ(shell(tool + "song.wav -o text"), 4);
    // More than an hour: more than can be done before the signal arrives.
    writeTones("long.wav", 1000, 1, 4800000, 0, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    expectFailure(130, "interrupted", "long.wav", "timeout --preserve-status -s INT 0.5 ");
    expectFailure(130, "interrupted", "long.wav", "timeout --preserve-status -s TERM 0.5 ");
}

}  // namespace
