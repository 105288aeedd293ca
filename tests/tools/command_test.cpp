// The command as its users run it: arguments in; files, messages and exit codes out.
#include <cairo.h>

#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "command.h"

namespace {

using nlohmann::json;

const std::string tool = TAVRIN_SEPARATE " ";
const std::string models = TAVRIN_TEST_MODELS "/";
const std::string passthrough = " --model " + models + "passthrough.onnx ";
const std::string six = " --model " + models + "six_stems.onnx ";

// Writes a song with a tone of its own in each channel. Returns it: of a mono song twice the same channel.
Samples writeTones(const fs::path& file, int rate, int channels, int count, double amplitude = 0.5,
                   const std::string& format = "wav") {
    Samples song;
    for (int i = 0; i < 2 * count; ++i) {
        const double hertz = i % channels == 0 ? 440 : 1040;
        song.push_back(static_cast<float>(amplitude * std::sin(2 * M_PI * hertz * (i / 2) / rate)));
    }
    AudioOutput target = output(file, format, rate, channels);
    target.tags = {{"title", "Tune"}};
    writeSound(target, song);
    return song;
}

// Of the samples from the song's times `gain`, where both are longer than `margin`.
double largestDifference(const Samples& samples, const Samples& song, double gain = 1, std::size_t margin = 0) {
    double largest = samples.size() == song.size() ? 0 : INFINITY;
    for (std::size_t i = margin; i + margin < std::min(samples.size(), song.size()); ++i)
        largest = std::max(largest, std::abs(samples[i] - gain * song[i]));
    return largest;
}

Samples sumOf(const std::vector<fs::path>& files) {
    Samples sum = samplesOf(files.front());
    for (std::size_t i = 1; i < files.size(); ++i) {
        const Samples more = samplesOf(files[i]);
        EXPECT_EQ(more.size(), sum.size()) << files[i];
        std::transform(more.begin(), more.end(), sum.begin(), sum.begin(), std::plus());
    }
    return sum;
}

// Every stem is the song times a gain, the rest makes them the song again, there is no other file, and one message.
void expectParts(const std::vector<std::pair<std::string, double>>& gains, const std::string& group,
                 const std::string& options, int rate, int channels, int count) {
    const Samples song = writeTones("my song.wav", rate, channels, count);
    const Outcome outcome = expect(0, "rm -rf stems; " + tool + "'my song.wav' -o stems --no-record" + options);
    EXPECT_EQ(std::count(outcome.messages.begin(), outcome.messages.end(), '\n'), 1) << outcome;
    std::vector<fs::path> files = {"stems/my song/" + group + ".rest.wav"};
    for (const auto& [name, gain] : gains) {
        files.push_back("stems/my song/" + name + ".wav");
        const Sound stem = soundIn(files.back());
        ASSERT_FALSE(stem.isReported()) << name << stem.refusal;
        EXPECT_EQ(stem.reader->rate(), rate);
        EXPECT_EQ(stem.reader->channels(), channels);
        EXPECT_EQ(stem.tag("title"), "Tune (" + name + ")");
        // A shift by one sample would be 0.01 · gain or more. A resampler may ring where the tone begins and ends.
        const auto margin = static_cast<std::size_t>(rate) / 20;
        EXPECT_LT(largestDifference(stem.samples, song, gain, margin), 1e-4) << name << " " << rate;
    }
    EXPECT_LT(largestDifference(sumOf(files), song), 2e-7) << rate;
    EXPECT_EQ(std::distance(fs::directory_iterator("stems/my song"), {}), std::ssize(files));
}

TEST_F(Command, givesStemsAndRestAtTheSongsOwnRateLengthAndPlace) {
    const std::string one = "passthrough";
    expectParts({{one, 1}}, one, passthrough, 44100, 2, 300001);
    expectParts({{one, 1}}, one, passthrough, 48000, 1, 0);
    // The conversion of 1000 samples from 96 kHz and back gives 999.
    expectParts({{one, 1}}, one, passthrough, 96000, 1, 1000);
    expectParts({{one, 1}}, one, passthrough, 8000, 2, 20000);
    expectParts({{one, 1}}, one, passthrough + "--latency 0.2 --threads 1", 192000, 2, 400000);
    expectParts({{"vocals", 0.5}, {"acoustic_guitar", 0.03125}}, "vocals+acoustic_guitar",
                six + "--stems Acoustic-Guitars,Vocal,vocals", 48000, 1, 330007);
    // Two models on the song, stems of one name averaged; then another one on what is left.
    expectParts({{"vocals", 0.5}}, "vocals", six + six + "--stems vocals", 44100, 2, 5000);
    expectParts({{"vocals", 0.5}, {one, 0.5}}, "vocals+passthrough",
                six + "--then " + models + "passthrough.onnx --stems vocals,passthrough", 48000, 2, 300000);
}

TEST_F(Command, addsStemAndRestUpToTheSongInEveryFormat) {
    // Faint enough for stem and rest to stay below full scale, and not on the steps of an integer format.
    const Samples song = writeTones("song.wav", 48000, 2, 48000, 0.3);
    const std::map<std::string, double> steps = {
        {"wav", 2e-7}, {"wav16", 0x1p-15}, {"flac", 0x1p-15}, {"wav24", 0x1p-23}, {"flac24", 0x1p-23}};
    for (const auto& [format, step] : steps) {
        const std::string ending = std::string(".") + findAudioFormat(format)->extension;
        expect(0, tool + "song.wav --overwrite --format " + format + " --name '{part}.{ext}'");
        // The sum in float is rounded, too.
        EXPECT_LE(largestDifference(sumOf({"centre" + ending, "rest" + ending}), song), step + 4e-8) << format;
    }
}

TEST_F(Command, keepsTheStemsInBalanceOrClampsOrRefusesWhatIsTooLoud) {
    const Samples song = writeTones("loud.wav", 44100, 2, 20000, 4);
    Samples clamped = song;
    for (float& sample : clamped) sample = std::clamp(sample, -1.0F, 1.0F);
    const auto beyond = [](float sample) { return std::abs(sample) > 1; };
    const auto clipped = static_cast<double>(std::count_if(song.begin(), song.end(), beyond));
    const std::string command = tool + "loud.wav --overwrite --json --name '{stem}.{ext}' --only stem ";
    const Outcome outcome = expect(0, command + passthrough + "--format flac", "12.0 dB above full scale");
    EXPECT_LT(largestDifference(samplesOf("passthrough.flac"), clamped), 2e-4);
    EXPECT_NEAR(json::parse(outcome.out)["outputs"][0]["clipped"], clipped, 20) << "ringing aside" << outcome;
    // Vocals are half the song, so 2 at their loudest, and drums a quarter.
    const std::string two = command + six + "--stems vocals,drums ";
    expect(0, two + "--format flac24 --clip scale-all");
    EXPECT_LT(largestDifference(samplesOf("vocals.flac"), song, 0.25), 1e-4);
    EXPECT_LT(largestDifference(samplesOf("drums.flac"), song, 0.125), 1e-4);
    expect(0, two + "--clip none");
    expect(4, two + "--format wav16 --clip none", "6.0 dB too loud");
    EXPECT_LT(largestDifference(samplesOf("vocals.wav"), song, 0.5), 1e-4) << "the float result is wrong or gone";
}

TEST_F(Command, leavesAloneWhatItsRecordSaysIsUpToDate) {
    writeTones("song.wav", 44100, 2, 60000);
    writeTones("b.wav", 44100, 2, 60000, 0.25);
    expect(0, "mkdir -p out/song; ln -s out/song/centre.tavrin.json record; ln -s out/song/centre.rest.wav rest");
    // A command of the shell, or an option for this run and those after it, and what the record makes of it.
    std::string options;
    const std::pair<std::string, const char*> steps[] = {
        {"touch song.wav", "done"},     {"touch song.wav", "skipped"}, {"--latency 1", "done"},
        {"--duration 1", "done"},       {"--spectrogram", "done"},     {"--linear", "done"},
        {"touch b.wav", "skipped"},     {"rm */*/centre.wav", "done"}, {"touch rest", "done"},
        {"echo >record", "done"},       {"cp b.wav song.wav", "done"}, {"--context 3", "done"},
        {"--model percussive", "done"}, {"--only stem", "done"},       {"--no-record", "done"}};
    for (const auto& [change, status] : steps) {
        const bool isOption = change.starts_with("--");
        if (isOption) options += " " + change;
        const std::string before = isOption ? "" : change + " && ";
        const Outcome outcome = expect(0, before + tool + "song.wav -o out --json --quiet" + options);
        ASSERT_EQ(json::parse(outcome.out)["status"], status) << change << outcome;
    }
    EXPECT_EQ(filesBelow("out/song"),
              "centre.rest.wav centre.spectrogram.png centre.tavrin.json centre.wav percussive.rest.wav "
              "percussive.spectrogram.png percussive.tavrin.json percussive.wav");
    // The record is what --json prints.
    const Outcome again = expect(0, tool + "song.wav -o out --json --overwrite");
    EXPECT_EQ(again.out, contents("out/song/centre.tavrin.json"));
    expect(0, tool + "song.wav -o out --only stem", "centre.rest.wav: is of an earlier run");
}

TEST_F(Command, goesOnPastABadSongAndSaysWhatBecameOfEach) {
    fs::create_directories("album/second");
    const Samples song = writeTones("album/song.wav", 44100, 2, 400000);
    writeTones("album/second/song.wav", 22050, 1, 5000, 0.25);
    std::ofstream("album/bad.wav") << "no song\n";
    const std::string command = tool + "album album/song.wav -o album/stems --only stem --jobs 2 --duration 3 --json" +
                                passthrough + "--name '{folder}/{song}-{stem}.{ext}' ";
    const Outcome late = expect(5, command + "--start 0:05", "failed: album/bad.wav: ");
    EXPECT_TRUE(late.says("failed: album/second/song.wav: ")) << "it starts too late for this one" << late;
    const Samples part(song.begin() + 2 * 220500, song.begin() + 2 * 352800);
    EXPECT_LT(largestDifference(samplesOf("album/stems/song-passthrough.wav"), part, 1, 400), 1e-4);
    const Outcome all = expect(5, command + "--quiet");
    std::map<std::string, json> lines;
    std::istringstream text(all.out);
    for (std::string line; std::getline(text, line);)
        lines[fs::path(json::parse(line)["song"]["file"]).lexically_relative(folder)] = json::parse(line);
    EXPECT_EQ(lines.size(), 3) << all;
    EXPECT_EQ(lines["album/bad.wav"]["exit_code"], 2) << all;
    EXPECT_EQ(lines["album/song.wav"]["status"], "done") << "another part of it" << all;
    const json& done = lines["album/second/song.wav"];
    EXPECT_EQ(done["outputs"][0]["file"], fs::canonical("album/stems/second/song-passthrough.wav").string());
    EXPECT_NEAR(done["outputs"][0]["peak"], 0.25, 0.02);  // a resampler may ring
    expect(1, tool + "album -o album/stems", "{folder} in --name");
}

TEST_F(Command, separatesWhatIsLeftOfADamagedSongAndSaysSo) {
    Samples song = writeTones("whole.wav", 44100, 2, 100000);
    for (const std::size_t bad : {5000U, 5001U, 90000U}) song[bad] = bad % 2 == 0 ? NAN : INFINITY;
    const std::string samples(reinterpret_cast<const char*>(song.data()), song.size() * sizeof(float));
    std::ofstream("nan.wav") << contents("whole.wav").substr(0, fs::file_size("whole.wav") - samples.size()) << samples;
    expect(0, tool + "nan.wav --no-record", "3 samples are not finite");
    for (float& sample : song) sample = std::isfinite(sample) ? sample : 0;
    EXPECT_LT(largestDifference(sumOf({"nan/centre.wav", "nan/centre.rest.wav"}), song), 2e-7);

    expect(6, "head -c 400000 whole.wav >cut.wav; exec " + tool + "cut.wav", "has 0:01.1 of sound, but its header");
    EXPECT_NEAR(static_cast<double>(samplesOf("cut/centre.wav").size()), 99960, 20);
    expect(6, tool + "cut.wav", "skipped");
}

TEST_F(Command, streamsThroughPipesAsTheSamplesBecomeFinal) {
    const std::string pipe = tool + "- -o - --only stem --quiet" + passthrough;
    const Samples song = writeTones("song.wav", 48000, 1, 600000);
    expect(0, "cat song.wav | " + pipe + "--format wav24 | cat >stem.wav");
    EXPECT_LT(largestDifference(samplesOf("stem.wav"), song, 1, 400), 1e-4);
    // Twelve seconds give six while the stream is still open. The reader goes away then, which ends the run quietly.
    writeTones("song.raw", 44100, 2, 600000, 0.5, "raw-int16");
    const std::string wait = "timeout 30 sh -c 'until [ -e heard ]; do sleep 0.1; done' || touch late";
    const std::string raw =
        "(" + pipe + "--rate 44100 --raw int16; echo $? >code) | (head -c 900000 >raw; touch heard)";
    const std::string test = "[ ! -e late ] && [ $(wc -c <raw) = 900000 ] && [ $(cat code) = 0 ]";
    EXPECT_EQ(expect(0, "(cat song.raw; " + wait + "; cat song.raw) | " + raw + "; " + test).messages, "");
    expect(2, "cat song.raw | " + pipe + ">x", "standard input");
    expect(1, "script -qec '" + tool + "song.wav -o - --only stem' /dev/null >.messages", "is a terminal");
}

TEST_F(Command, endsAtOnceOnASignalWhereverItIs) {
    writeSound(output("long.wav", "wav", 8000), Samples(2 * 8000 * 3600));
    expect(0, "mkfifo in out; sleep 30 >in & echo $! >holder");  // keeps them open
    const std::tuple<std::string, std::string, int> cases[] = {
        {tool + "in -o new", "INT", 130},                                   // reading a pipe with a name
        {tool + "- -o new <in", "TERM", 143},                               // reading standard input
        {"mkfifo shut; " + tool + "shut -o new", "HUP", 129},               // opening
        {tool + "long.wav -o - --only stem 3<>out >out", "INT", 130},       // writing to a full pipe
        {tool + "long.wav -o new/a --model percussive", "TERM", 143},       // in a model run
        {tool + "long.wav -o new --clip scale-all --jobs 2", "HUP", 129}};  // with scratch files
    for (const auto& [command, signal, code] : cases) {
        // Half a second after the signal it would be killed.
        const std::string late = "; (sleep 0.5; kill -KILL $p) 2>/dev/null & wait $p";
        expect(code, command + "& p=$!; sleep 0.7; kill -" + signal + " $p" + late, "interrupted");
        EXPECT_FALSE(fs::exists("new")) << command << filesBelow("new");
    }
    // What is complete stays.
    writeTones("a.wav", 8000, 1, 8000);
    const std::string wait = "& p=$!; until [ -e new/a/centre.tavrin.json ]; do sleep 0.1; done; kill -INT $p; wait $p";
    expect(130, tool + "a.wav long.wav -o new" + wait, "1 of 2 songs");
    EXPECT_EQ(filesBelow("new"), "a/centre.rest.wav a/centre.tavrin.json a/centre.wav");
    expect(0, "kill $(cat holder)");
}

TEST_F(Command, neverMixesTwoRunsNorReplacesTheSong) {
    writeTones("song.wav", 44100, 2, 5000);
    expect(0, "mkdir -p song out/song/centre.wav; echo left by a run that was killed >song/.centre.wav.part");
    expect(4, "flock song/.centre.wav.part " + tool + "song.wav", "another run is writing it");
    EXPECT_EQ(expect(0, tool + "song.wav --quiet").messages, "");
    EXPECT_EQ(filesBelow("song"), "centre.rest.wav centre.tavrin.json centre.wav");
    expect(1, "cp -r song centre; " + tool + "centre/centre.wav -o .", "replace a song itself");
    expect(4, tool + "song.wav -o out", "there is a folder of that name");
}

TEST_F(Command, drawsLouderPartsBrighterWhereTheyAre) {
    // Ten seconds: first 5 kHz softly, then 15 kHz loudly.
    Samples song;
    for (int i = 0; i < 2 * 441000; ++i) {
        const double hertz = i < 441000 ? 5000 : 15000, amplitude = i < 441000 ? 0.003 : 0.5;
        song.push_back(static_cast<float>(amplitude * std::sin(2 * M_PI * hertz / 44100 * (i / 2))));
    }
    writeSound(output("歌.wav", "wav"), song);
    for (const bool isLinear : {true, false}) {
        expect(0, tool + "歌.wav --spectrogram --format wav16" + passthrough + (isLinear ? "--linear" : ""));
        cairo_surface_t* picture = cairo_image_surface_create_from_png("歌/passthrough.spectrogram.png");
        ASSERT_TRUE(cairo_image_surface_get_width(picture) == 1060 && cairo_image_surface_get_height(picture) == 888);
        // The largest sum of red, green and blue around there, the time as a share of the song.
        const auto brightness = [&](int plot, double time, double hertz) {
            const double height = isLinear ? hertz / 22050 : std::log(hertz / 40) / std::log(22050.0 / 40);
            const int left = 70 + static_cast<int>(900 * time);
            const int top = 28 + (28 + 256) * plot + static_cast<int>(256 * (1 - height));
            int brightest = 0;
            for (int i = 0; i < 25; ++i) {
                const int line = (top - 2 + i / 5) * cairo_image_surface_get_stride(picture);
                const auto* pixel = cairo_image_surface_get_data(picture) + line + 4 * (left - 2 + i % 5);
                brightest = std::max(brightest, pixel[0] + pixel[1] + pixel[2]);
            }
            return brightest;
        };
        for (const int plot : {0, 1}) {
            EXPECT_GT(brightness(plot, 0.75, 15000), brightness(plot, 0.25, 5000) + 100) << plot;
            EXPECT_GT(brightness(plot, 0.25, 5000), brightness(plot, 0.75, 5000) + 100) << plot;
            EXPECT_LT(brightness(plot, 0.25, 15000), 10) << plot;
        }
        EXPECT_LT(brightness(2, 0.75, 15000), 10) << "the rest is silent";
        cairo_surface_destroy(picture);
    }
}

TEST_F(Command, saysWhatWentWrongAndLeavesNothingBehind) {
    writeTones("song.wav", 44100, 2, 400000);
    expect(0, "echo neither a song nor a model >text; echo wrong >key; truncate -s 3G huge.onnx");
    const std::tuple<int, const char*, std::string> cases[] = {
        {1, "\"kazoo\" is no stem", "song.wav --stems kazoo"},
        {3, "tavrin-model list", "song.wav --model nothing"},
        {1, "Abacus", "song.wav --device Abacus"},
        {1, "--latency", "song.wav --latency 0.01"},
        {1, "--start", "song.wav --start 1:00"},
        {1, "type --model centre in its place to average both, or add --stems vocals,",
         "song.wav" + six + "--then centre --then centre"},
        {2, "text", "text"},
        {3, "--key-file", "song.wav --key-file key"},
        {3, "failing.onnx: ", "song.wav --model " + models + "failing.onnx"},
        {4, "rest.wav", "song.wav --only rest"}};  // as when the disk is full
    for (const auto& [code, culprit, arguments] : cases) {
        const std::string limit = code == 4 ? "ulimit -f 1000; " : "";
        EXPECT_EQ(expect(code, limit + tool + "-o new/results " + arguments, culprit).out, "") << arguments;
        EXPECT_FALSE(fs::exists("new")) << arguments << filesBelow("new");
    }
    expect(4, tool + "song.wav -o text", "text");
    expect(0, tool + "song.wav -o out --device cuda --duration 1", "warning: ");
    expect(0, "TAVRIN_MODELS=" + models + " " + tool + "song.wav -o out --model passthrough --duration 1");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which need much address space
    expect(7, "ulimit -v 2000000; " + tool + "song.wav -o out --model ./huge.onnx", "free some memory");
    expect(7, "ulimit -v 2000000; " TAVRIN_MODEL " inspect ./huge.onnx", "free some memory");
    // Stacks of which few fit: threads beside the first cannot be had.
    expect(0, "ulimit -s 4000000 -v 6000000; " + tool + "song.wav -o out --threads 1 --jobs 2");
#endif
}

}  // namespace
