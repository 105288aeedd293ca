// The command as its users run it: arguments in; files, messages and exit codes out.
#include <cairo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sndfile.hh>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Samples = std::vector<float>;
using Gains = std::vector<std::pair<std::string, double>>;

const std::string tool = TAVRIN_SEPARATE " ";
const std::string models = TAVRIN_TEST_MODELS "/";

float tone(double hertz, int frame, int rate, double amplitude) {
    return static_cast<float>(amplitude * std::sin(2 * M_PI * hertz * frame / rate));
}

// Writes a song with a tone of its own in each channel. Returns it in stereo: of a mono song twice the same channel.
Samples writeTones(const std::string& file, int rate, int channels, int frames, double amplitude = 0.5,
                   int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    Samples stereo;
    Samples song;
    for (int i = 0; i < 2 * frames; ++i) {
        stereo.push_back(tone(i % channels == 0 ? 440.0 : 1040.0, i / 2, rate, amplitude));
        if (i % 2 < channels) song.push_back(stereo.back());
    }
    SndfileHandle handle(file, SFM_WRITE, format, channels, rate);
    handle.setString(SF_STR_ARTIST, "Zoë");
    handle.write(song.data(), std::ssize(song));
    return stereo;
}

// With the rate and the artist that its song has.
Samples readStereo(const std::string& file, int rate, const char* artist = "Zoë") {
    SndfileHandle handle(file);
    EXPECT_EQ(handle.samplerate(), rate) << file;
    EXPECT_STREQ(handle.getString(SF_STR_ARTIST), artist) << file;
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

TEST_F(Command, keepsTheStemsInBalanceOrClampsOrRefusesWhatIsTooLoud) {
    const Samples song = writeTones("loud.wav", 44100, 2, 20000, 4);
    Samples clamped = song;
    for (float& sample : clamped) sample = std::clamp(sample, -1.0F, 1.0F);
    const std::string command = tool + "loud.wav --overwrite --name '{stem}.{ext}' --model " + models;
    for (const std::string format : {"wav16", "wav24", "flac16", "flac24"}) {
        EXPECT_EQ(shell(command + "passthrough.onnx --only stem --format " + format), 0);
        const std::string stem = "passthrough." + format.substr(0, format.size() - 2);
        EXPECT_LT(largestDifference(readStereo(stem, 44100), clamped), 2e-4) << format;
    }
    // Vocals are half the song, so 2 at their loudest, and drums a quarter.
    const std::string two = command + "six_stems.onnx --stems vocals,drums --only stem ";
    EXPECT_EQ(shell(two + "--format flac24 --clip scale-all"), 0);
    EXPECT_LT(largestDifference(readStereo("vocals.flac", 44100), song, 0.25), 1e-4);
    EXPECT_LT(largestDifference(readStereo("drums.flac", 44100), song, 0.125), 1e-4);
    EXPECT_EQ(shell(two + "--format ogg --clip scale-all"), 0);
    EXPECT_LT(largestDifference(readStereo("drums.ogg", 44100), song, 0.125, 2000), 0.05);
    EXPECT_EQ(shell(two + "--clip none"), 0);
    EXPECT_LT(largestDifference(readStereo("vocals.wav", 44100), song, 0.5), 1e-4);
    EXPECT_EQ(shell(two + "--format wav16 --clip none"), 4);
    EXPECT_LT(largestDifference(readStereo("vocals.wav", 44100), song, 0.5), 1e-4) << "the old result is gone";
}

TEST_F(Command, goesOnPastABadSongAndSkipsWhatIsUpToDate) {
    fs::create_directories("album/second");
    const Samples song = writeTones("album/song.wav", 44100, 2, 400000);
    writeTones("album/second/song.wav", 22050, 1, 5000, 0.25);
    std::ofstream("album/bad.wav") << "no song\n";
    const std::string run = tool + "album album/song.wav -o album/stems --only stem --jobs 2 --duration 3 --model " +
                            models + "passthrough.onnx --name '{folder}/{song}-{stem}.{ext}' --json >json ";
    // The second song is too short.
    EXPECT_EQ(shell(run + "--start 0:05; x=$?; [ $(grep -c 'failed: album/.*; ' messages.txt) = 2 ] && exit $x"), 5);
    EXPECT_EQ(shell(run + "--quiet"), 5);
    std::map<std::string, nlohmann::json> lines;
    std::ifstream file("json");
    for (nlohmann::json line; file.peek() != EOF && file >> line >> std::ws;) lines[line["song"]] = line;
    EXPECT_EQ(lines.size(), 3);
    EXPECT_EQ(lines["album/bad.wav"]["exit_code"], 2);
    EXPECT_EQ(lines["album/song.wav"]["status"], "skipped") << "the first run did it";
    const nlohmann::json& done = lines["album/second/song.wav"];
    EXPECT_EQ(done["files"][0]["file"], "album/stems/second/song-passthrough.wav");
    EXPECT_NEAR(done["files"][0]["peak"], 0.25, 0.02);  // a resampler may ring
    EXPECT_NEAR(done["seconds"], 5000 / 22050.0, 1e-3);
    EXPECT_GT(done["times_real_time"], 0.01);
    EXPECT_EQ(done["provider"], "CPUExecutionProvider");
    const Samples part(song.begin() + 2 * 220500, song.begin() + 2 * 352800);
    EXPECT_LT(largestDifference(readStereo("album/stems/song-passthrough.wav", 44100), part, 1, 400), 1e-4);
    EXPECT_EQ(shell(run + "--overwrite; [ $(grep -c done json) = 2 ]"), 0);
    EXPECT_EQ(shell(tool + "album -o album/stems"), 1) << "both songs would be stems/song/centre.wav";
    // More than an hour: more than can be done before the signal arrives.
    writeTones("z.wav", 1000, 1, 4800000, 0, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    EXPECT_EQ(
        shell(tool + "album/song.wav z.wav -o new & until [ -e new/song/rest.wav ] || ! kill -0 $!; do sleep 0.1; " +
              "done; kill -INT $!; wait $!"),
        130);
    EXPECT_EQ(shell("[ \"$(ls -A new new/song | xargs)\" = 'new: song new/song: centre.wav rest.wav' ]"), 0);
}

TEST_F(Command, streamsThroughPipesAsTheSamplesBecomeFinal) {
    const std::string pipe = tool + "- -o - --only stem --quiet --model " + models + "passthrough.onnx ";
    const Samples song = writeTones("song.wav", 48000, 1, 600000);
    EXPECT_EQ(shell("cat song.wav | " + pipe + "--format wav24 | cat >stem.wav"), 0);
    EXPECT_LT(largestDifference(readStereo("stem.wav", 48000, nullptr), song, 1, 400), 1e-4);
    // Twelve seconds give six while the stream is still open. The reader goes away then, which ends the run quietly.
    writeTones("song.raw", 44100, 2, 529200, 0.5, SF_FORMAT_RAW | SF_FORMAT_PCM_16);
    const std::string raw = pipe + "--rate 44100 --raw int16 ";
    EXPECT_EQ(shell("cat song.raw | " + raw + ">raw; cmp song.raw raw"), 0);
    const std::string wait = "timeout 30 sh -c 'until [ -e heard ]; do sleep 0.1; done' || touch late";
    EXPECT_EQ(shell("(cat song.raw; " + wait + "; cat song.raw) | (" + raw + "; echo $? >code) | " +
                    "(head -c 900000 >raw; touch heard); [ ! -e late ] && cmp -n 900000 song.raw raw && " +
                    "[ $(cat code) = 0 ] && [ ! -s messages.txt ]"),
              0);
    EXPECT_EQ(shell("cat song.raw | " + pipe), 2) << "raw samples need their rate";
}

TEST_F(Command, describesEveryOptionInItsManPageAndCompletions) {
    EXPECT_EQ(
        shell(tool + "--help | grep -oE '[-][-][a-z-]+' | sort -u >options; for o in $(cat options); do for f in " +
              "completions/tavrin-separate completions/_tavrin-separate ../docs/man/tavrin-separate.1; do " +
              "sed 's/[\\]//g' " TAVRIN_TOOLS "/$f | grep -qe $o'\\b' || echo $f lacks $o >&2; done; done; " +
              "[ $(wc -l <options) -gt 20 ] && [ ! -s messages.txt ]"),
        0)
        << contents("messages.txt");
}

// The sum of red, green and blue where the picture shows this time and frequency, averaged over a few pixels.
double brightness(cairo_surface_t* picture, int plot, double second, double kiloHertz) {
    const int left = 70 + static_cast<int>(900 * second / 10);
    const int top = 28 + (28 + 256) * plot + static_cast<int>(256 * (1 - kiloHertz / 22.05));
    double sum = 0;
    for (int i = 0; i < 25; ++i) {
        const unsigned char* row =
            cairo_image_surface_get_data(picture) + (top - 2 + i / 5) * cairo_image_surface_get_stride(picture);
        for (int c = 0; c < 3; ++c) sum += row[4 * (left - 2 + i % 5) + c];
    }
    return sum / 25;
}

TEST_F(Command, drawsLouderPartsBrighterWhereTheyAre) {
    // Ten seconds: first 5 kHz softly, then 15 kHz loudly.
    SndfileHandle song("song.wav", SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 44100);
    for (int i = 0; i < 441000; ++i) {
        const float sample = i < 220500 ? tone(5000, i, 44100, 0.003) : tone(15000, i, 44100, 0.5);
        song.write(&sample, 1);
    }
    song.writeSync();
    EXPECT_EQ(shell(tool + "song.wav --spectrogram --format wav16 --model " + models + "passthrough.onnx"), 0);
    cairo_surface_t* picture = cairo_image_surface_create_from_png("song/spectrogram.png");
    ASSERT_EQ(cairo_image_surface_get_width(picture), 70 + 900 + 90);
    ASSERT_EQ(cairo_image_surface_get_height(picture), 3 * (28 + 256) + 56);
    for (const int plot : {0, 1}) {
        EXPECT_GT(brightness(picture, plot, 7.5, 15), brightness(picture, plot, 2.5, 5) + 100) << plot;
        EXPECT_GT(brightness(picture, plot, 2.5, 5), brightness(picture, plot, 7.5, 5) + 100) << plot;
        EXPECT_LT(brightness(picture, plot, 2.5, 15), 10) << plot;
    }
    EXPECT_LT(brightness(picture, 2, 7.5, 15), 10) << "the rest is silent";
    cairo_surface_destroy(picture);
}

TEST_F(Command, saysWhatWentWrongAndLeavesNothingBehind) {
    writeTones("song.wav", 44100, 2, 400000);
    writeTones("three.wav", 44100, 3, 300);
    std::ofstream("text") << "neither a song nor a model\n";
    expectFailure(1, "\"kazoo\"", "song.wav --model text --stems vocals,kazoo");
    expectFailure(1, "--model", "song.wav --stems all");
    expectFailure(1, "--list-providers", "song.wav --provider Abacus");
    expectFailure(3, "unified_input", "song.wav --stems all --model " + models + "passthrough.onnx");
    expectFailure(1, "{folder}", "song.wav --name '{artist}'");
    expectFailure(1, "--list-providers", "song.wav --provider Abacus --stems all --model " + models + "six_stems.onnx");
    expectFailure(2, "missing.wav", "missing.wav");
    expectFailure(2, "3 channels", "three.wav");
    expectFailure(3, "--key", "song.wav --key wrong");
    expectFailure(3, "[1, 4, 8, 16]", "song.wav --model " + models + "small.onnx");
    expectFailure(3, "failing.onnx: the model run failed", "song.wav --model " + models + "failing.onnx");
    // As when the disk is full.
    expectFailure(4, "rest.wav", "song.wav", "ulimit -f 1000; ");
    EXPECT_EQ(shell(tool + "song.wav -o text"), 4);
    writeTones("long.wav", 1000, 1, 4800000, 0, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    expectFailure(130, "interrupted", "long.wav", "timeout --preserve-status -s TERM 0.5 ");
}

}  // namespace
