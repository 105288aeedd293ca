// The command as its users run it: arguments in; files, messages and exit codes out.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sndfile.hh>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Samples = std::vector<float>;

const std::string tool = TAVRIN_SEPARATE " ";
const std::string models = TAVRIN_TEST_MODELS "/";
const std::string passthrough = tool + "--model " + models + "passthrough.onnx ";

// Interleaved channels with a tone of its own in each.
Samples tones(int rate, int channels, int frames, double amplitude) {
    Samples samples;
    for (int i = 0; i < channels * frames; ++i) {
        const int frame = i / channels;
        const double phase = 2 * M_PI * (440 + 600 * (i % channels)) * frame / rate;
        samples.push_back(static_cast<float>(amplitude * std::sin(phase)));
    }
    return samples;
}

void write(const std::string& file, int rate, int channels, const Samples& samples,
           int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    SndfileHandle handle(file, SFM_WRITE, format, channels, rate);
    ASSERT_EQ(handle.write(samples.data(), std::ssize(samples)), std::ssize(samples)) << file;
}

Samples readStereo(const std::string& file, int rate) {
    SndfileHandle handle(file);
    EXPECT_EQ(handle.samplerate(), rate) << file;
    Samples samples(static_cast<std::size_t>(handle.frames() * 2));
    EXPECT_EQ(handle.read(samples.data(), std::ssize(samples)), std::ssize(samples)) << file;
    return samples;
}

std::string contents(const fs::path& file) { return (std::ostringstream() << std::ifstream(file).rdbuf()).str(); }

// Returns the exit code. Nothing may ever come on standard output.
int shell(const std::string& command) {
    const int status = std::system(("exec >out.txt 2>messages.txt; " + command).c_str());
    EXPECT_EQ(contents("out.txt"), "") << command;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The exit code, one line that names the culprit, and nothing left behind.
void expectFailure(int code, const std::string& culprit, const std::string& arguments, const std::string& limit = "") {
    EXPECT_EQ(shell(limit + tool + "--only rest -o new/results " + arguments), code) << arguments;
    const std::string message = contents("messages.txt");
    EXPECT_TRUE(message.starts_with("tavrin-separate: ")) << message;
    EXPECT_NE(message.find(culprit), std::string::npos) << message;
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1) << message;
    EXPECT_FALSE(fs::exists("new")) << arguments;
}

double largestDifference(const Samples& a, const Samples& b, std::size_t margin = 0) {
    double largest = a.size() == b.size() ? 0 : INFINITY;
    for (std::size_t i = margin; i + margin < std::min(a.size(), b.size()); ++i)
        largest = std::max(largest, std::abs(double{a[i]} - b[i]));
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

TEST_F(Command, givesStemAndRestAtTheSongsOwnRateLengthAndPlace) {
    // The conversion of 1000 samples from 96 kHz and back gives 999.
    const int songs[][3] = {{44100, 2, 300001}, {48000, 1, 330007}, {96000, 1, 1000}, {44100, 1, 0}, {48000, 2, 0}};
    for (const auto& [rate, channels, frames] : songs) {
        const Samples song = tones(rate, channels, frames, 0.5);
        write("my song.wav", rate, channels, song);
        EXPECT_EQ(shell(passthrough + "'my song.wav' -o stems"), 0) << contents("messages.txt");
        const Samples stem = readStereo("stems/my song/passthrough.wav", rate);
        Samples sum = readStereo("stems/my song/rest.wav", rate);
        std::transform(sum.begin(), sum.end(), stem.begin(), sum.begin(), std::plus());
        Samples stereo(2 * static_cast<std::size_t>(frames));
        for (std::size_t i = 0; i < stereo.size(); ++i) stereo[i] = song.at(channels == 2 ? i : i / 2);
        EXPECT_LT(largestDifference(sum, stereo), 1e-7) << rate;
        // A shift by one sample would be 0.01 or more. A resampler may ring where the tone begins and ends.
        EXPECT_LT(largestDifference(stem, stereo, 400), 1e-4) << rate;
    }
}

TEST_F(Command, writesWhatIsWantedAndReplacesOldResultsButNeverTheSong) {
    write("song.flac", 44100, 2, tones(44100, 2, 5000, 0.5), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    EXPECT_EQ(shell(tool + "song.flac --quiet"), 0);
    EXPECT_EQ(contents("messages.txt"), "");
    EXPECT_EQ(shell(tool + "song.flac --only stem --format flac24"), 0);
    EXPECT_EQ(shell("[ \"$(ls -A song | xargs)\" = 'centre.flac centre.wav rest.wav' ]"), 0);
    EXPECT_EQ(shell(tool + "song/centre.wav -o ."), 0);
    EXPECT_EQ(shell(tool + "centre/centre.wav -o ."), 1);
}

TEST_F(Command, clipsWhatAnIntegerFormatCannotHold) {
    Samples song = tones(44100, 2, 20000, 1.7);
    write("loud.wav", 44100, 2, song);
    for (float& sample : song) sample = std::clamp(sample, -1.0F, 1.0F);
    const std::string command = passthrough + "loud.wav --only stem --format ";
    for (const std::string format : {"wav16", "wav24", "flac16", "flac24"}) {
        EXPECT_EQ(shell(command + format), 0) << contents("messages.txt");
        const std::string stem = "loud/passthrough." + format.substr(0, format.size() - 2);
        EXPECT_LT(largestDifference(readStereo(stem, 44100), song), 1e-4) << format;
    }
}

TEST_F(Command, saysWhatWentWrongAndLeavesNothingBehind) {
    write("song.wav", 44100, 2, tones(44100, 2, 400000, 0.5));
    write("three.wav", 44100, 3, tones(44100, 3, 100, 0.5));
    std::ofstream("text") << "neither a song nor a model\n";
    expectFailure(1, "SONG", "");
    expectFailure(1, "mp3", "song.wav --format mp3");
    expectFailure(2, "missing.wav", "missing.wav");
    expectFailure(2, "text", "text");
    expectFailure(2, "3 channels", "three.wav");
    expectFailure(3, "text", "song.wav --model text");
    expectFailure(3, "--key", "song.wav --key wrong");
    expectFailure(3, "[1, 4, 8, 16]", "song.wav --model " + models + "small.onnx");
    // As when the disk is full.
    expectFailure(4, "rest.wav", "song.wav", "ulimit -f 1000; ");
    EXPECT_EQ(shell(tool + "song.wav -o text"), 4);
    EXPECT_EQ(shell(tool + "song.wav -o new --model " + models + "failing.onnx"), 3);
    EXPECT_FALSE(fs::exists("new"));
}

TEST_F(Command, leavesNothingBehindWhenInterrupted) {
    // Ten minutes: more than can be done before the signal arrives.
    write("long.wav", 8000, 1, Samples(std::size_t{600} * 8000), SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    const std::string interrupt = TAVRIN_SEPARATE
        " long.wav -o new & song=$!; while kill -0 $song && [ ! -e new/long/.centre.wav.part ]; do sleep 0.01; done;"
        "kill $signal $song; wait $song";
    for (const std::string signal : {"signal=-INT; ", "signal=-TERM; "}) {
        EXPECT_EQ(shell(signal + interrupt), 130);
        EXPECT_FALSE(fs::exists("new"));
    }
}

}  // namespace
