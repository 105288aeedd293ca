// The command as its users run it: arguments in; files, messages and exit codes out.
#include <cairo.h>

#include <map>
#include <nlohmann/json.hpp>

#include "command.h"

namespace {

using nlohmann::json;

const std::string tool = TAVRIN_SEPARATE " ";
const std::string models = TAVRIN_TEST_MODELS "/";
const std::string passthrough = " --model " + models + "passthrough.onnx ";
const std::string six = " --model " + models + "six_stems.onnx ";

// Nothing comes on standard output, and nothing is left behind.
void expectFailure(int code, const std::string& culprit, const std::string& arguments, const std::string& limit = "") {
    const Outcome outcome = run(limit + tool + "-o new/results " + arguments);
    EXPECT_EQ(outcome.code, code) << outcome;
    EXPECT_TRUE(outcome.says(culprit)) << "lacks: " << culprit << outcome;
    EXPECT_EQ(outcome.out, "") << outcome;
    EXPECT_FALSE(fs::exists("new")) << outcome << filesBelow("new");
}

// Every stem is the song times a gain, the rest makes them the song again, there is no other file, and one message.
void expectParts(const std::vector<std::pair<std::string, double>>& gains, const std::string& group,
                 const std::string& options, int rate, int channels, int count) {
    const Samples song = writeTones("my song.wav", rate, channels, count);
    const Outcome outcome = run("rm -rf stems; " + tool + "'my song.wav' -o stems --no-record" + options);
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(std::count(outcome.messages.begin(), outcome.messages.end(), '\n'), 1) << outcome;
    Samples sum = readSound("stems/my song/" + group + ".rest.wav").samples;
    for (const auto& [name, gain] : gains) {
        const Sound stem = readSound("stems/my song/" + name + ".wav");
        EXPECT_EQ(stem.rate, rate);
        EXPECT_EQ(tavrin::tool::tagText(stem.tags, "artist"), "Zoë");
        EXPECT_EQ(tavrin::tool::tagText(stem.tags, "title"), "Tune (" + name + ")");
        // A shift by one sample would be 0.01 · gain or more. A resampler may ring where the tone begins and ends.
        EXPECT_LT(largestDifference(stem.samples, song, gain, static_cast<std::size_t>(rate) / 20), 1e-4)
            << name << " " << rate;
        ASSERT_EQ(stem.samples.size(), sum.size());
        std::transform(sum.begin(), sum.end(), stem.samples.begin(), sum.begin(), std::plus());
    }
    EXPECT_LT(largestDifference(sum, song), 2e-7) << rate;
    EXPECT_EQ(std::distance(fs::directory_iterator("stems/my song"), {}), std::ssize(gains) + 1);
}

TEST_F(Command, givesStemsAndRestAtTheSongsOwnRateLengthAndPlace) {
    const std::string one = "passthrough";
    expectParts({{one, 1}}, one, passthrough, 44100, 2, 300001);
    expectParts({{one, 1}}, one, passthrough, 48000, 1, 0);
    // The conversion of 1000 samples from 96 kHz and back gives 999.
    expectParts({{one, 1}}, one, passthrough, 96000, 1, 1000);
    expectParts({{one, 1}}, one, passthrough, 8000, 2, 20000);
    expectParts({{one, 1}}, one, passthrough + "--latency 0.2 --threads 1", 192000, 2, 400000);
    expectParts({{"vocals", 0.5}, {"bass", 0.125}}, "vocals+bass", six + "--stems bass,Vocal,vocals", 48000, 2, 330007);
    expectParts({{"drums", 0.25}, {"acoustic_guitar", 0.03125}}, "drums+acoustic_guitar",
                six + "--stems drum,Acoustic-Guitars", 44100, 1, 270000);
    // Two models on the song, stems of one name averaged; then another one on what is left.
    expectParts({{"vocals", 0.5}}, "vocals", six + six + "--stems vocals", 44100, 2, 5000);
    expectParts({{"vocals", 0.5}, {one, 0.5}}, "vocals+passthrough",
                six + "--then " + models + "passthrough.onnx --stems vocals,passthrough", 48000, 2, 300000);
    EXPECT_EQ(run(tool + "--list-stems" + six).out, "vocals\ndrums\nbass\npiano\nacoustic_guitar\nelectric_guitar\n");
}

TEST_F(Command, addsStemAndRestUpToTheSongInEveryFormat) {
    constexpr double rounding = 4e-8;  // of the sum in float
    const std::map<std::string, double> steps = {{"wav", 2e-7},
                                                 {"wav16", 1 / 32768.0 + rounding},
                                                 {"flac", 1 / 32768.0 + rounding},
                                                 {"wav24", 1 / 8388608.0 + rounding},
                                                 {"flac24", 1 / 8388608.0 + rounding}};
    for (const int rate : {8000, 44100, 192000}) {
        // Faint enough for stem and rest to stay below full scale, and not on the steps of an integer format.
        const Samples song = writeTones("song.wav", rate, 2, rate, 0.3);
        for (const auto& [format, step] : steps) {
            expect(0, tool + "song.wav --no-record -o " + format + " --format " + format + " --name '{part}.{ext}'");
            const std::string ending = format.substr(0, format.find_first_of("0123456789"));
            Samples sum = readSound(format + "/centre." + ending).samples;
            const Samples rest = readSound(format + "/rest." + ending).samples;
            ASSERT_EQ(sum.size(), rest.size());
            std::transform(sum.begin(), sum.end(), rest.begin(), sum.begin(), std::plus());
            EXPECT_LE(largestDifference(sum, song), step) << format << " " << rate;
            fs::remove_all(format);
        }
    }
}

TEST_F(Command, keepsTheStemsInBalanceOrClampsOrRefusesWhatIsTooLoud) {
    const Samples song = writeTones("loud.wav", 44100, 2, 20000, 4);
    Samples clamped = song;
    for (float& sample : clamped) sample = std::clamp(sample, -1.0F, 1.0F);
    const auto beyond = [](float sample) { return std::abs(sample) > 1; };
    const auto clipped = std::count_if(song.begin(), song.end(), beyond);
    const std::string command = tool + "loud.wav --overwrite --json --name '{stem}.{ext}' --only stem ";
    for (const std::string format : {"wav16", "wav24", "flac", "flac24"}) {
        const Outcome outcome = run(command + passthrough + "--format " + format);
        const std::string stem = "passthrough." + format.substr(0, format.find_first_of("0123456789"));
        EXPECT_LT(largestDifference(readSound(stem).samples, clamped), 2e-4) << format;
        const json output = json::parse(outcome.out)["outputs"][0];
        EXPECT_NEAR(output["clipped"], static_cast<double>(clipped), 20) << "ringing aside" << outcome;
        EXPECT_TRUE(outcome.says("12.0 dB above full scale")) << outcome;
    }
    // Vocals are half the song, so 2 at their loudest, and drums a quarter.
    const std::string two = command + six + "--stems vocals,drums ";
    expect(0, two + "--format flac24 --clip scale-all");
    EXPECT_LT(largestDifference(readSound("vocals.flac").samples, song, 0.25), 1e-4);
    EXPECT_LT(largestDifference(readSound("drums.flac").samples, song, 0.125), 1e-4);
    expect(0, two + "--clip none");
    EXPECT_LT(largestDifference(readSound("vocals.wav").samples, song, 0.5), 1e-4);
    expect(4, two + "--format wav16 --clip none", "6.0 dB too loud");
    EXPECT_LT(largestDifference(readSound("vocals.wav").samples, song, 0.5), 1e-4) << "the old result is gone";
}

TEST_F(Command, leavesAloneWhatItsRecordSaysIsUpToDate) {
    writeTones("song.wav", 44100, 2, 60000);
    writeTones("other.wav", 44100, 2, 60000, 0.25);
    const std::string plain = tool + "song.wav -o out --json --quiet ";
    const struct {
        const char* before;  // a command of the shell
        std::string options;
        const char* status;
    } steps[] = {
        {"true", "", "done"},
        {"true", "", "skipped"},
        {"touch song.wav", "", "skipped"},
        {"true", "--duration 1", "done"},
        {"true", "", "done"},
        {"true", "--only stem", "done"},
        {"true", "--format wav24", "done"},
        {"true", "--spectrogram", "done"},
        {"true", "--spectrogram", "skipped"},
        {"true", "--spectrogram --linear", "done"},
        {"true", "--latency 1", "done"},
        {"true", "", "done"},
        {"true", "--model percussive", "done"},
        {"true", "", "skipped"},
        {"true", "--model percussive", "skipped"},
        {"rm out/song/centre.wav", "", "done"},
        {"touch out/song/centre.rest.wav", "", "done"},
        {"echo {} >out/song/centre.tavrin.json", "", "done"},
        {"echo broken >out/song/centre.tavrin.json", "", "done"},
        {"cp other.wav song.wav", "", "done"},
        {"true", "--overwrite", "done"},
        {"true", "--no-record", "done"},
    };
    for (const auto& [before, options, status] : steps) {
        const Outcome outcome = run(std::string(before) + " && " + plain + options);
        ASSERT_EQ(outcome.code, 0) << outcome;
        EXPECT_EQ(json::parse(outcome.out)["status"], status) << before << outcome;
    }
    EXPECT_EQ(filesBelow("out/song"),
              "centre.rest.wav centre.spectrogram.png centre.tavrin.json centre.wav percussive.rest.wav "
              "percussive.tavrin.json percussive.wav");
    // The record is what --json prints.
    const Outcome again = run(tool + "song.wav -o out --json --overwrite");
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
    const Outcome late = run(command + "--start 0:05");  // too late in the second song
    EXPECT_EQ(late.code, 5) << late;
    EXPECT_TRUE(late.says("failed: album/bad.wav: ") && late.says("failed: album/second/song.wav: ")) << late;
    const Samples part(song.begin() + 2 * 220500, song.begin() + 2 * 352800);
    EXPECT_LT(largestDifference(readSound("album/stems/song-passthrough.wav").samples, part, 1, 400), 1e-4);
    const Outcome all = run(command + "--quiet");
    EXPECT_EQ(all.code, 5) << all;
    std::map<std::string, json> lines;
    std::istringstream text(all.out);
    for (std::string line; std::getline(text, line);) {
        const json object = json::parse(line);
        lines[fs::path(object["song"]["file"]).lexically_relative(folder)] = object;
    }
    EXPECT_EQ(lines.size(), 3) << all;
    EXPECT_EQ(lines["album/bad.wav"]["exit_code"], 2) << all;
    EXPECT_EQ(lines["album/song.wav"]["status"], "done") << "another part of it" << all;
    const json& done = lines["album/second/song.wav"];
    EXPECT_EQ(done["outputs"][0]["file"].get<std::string>(),
              fs::canonical("album/stems/second/song-passthrough.wav").string());
    EXPECT_NEAR(done["outputs"][0]["peak"], 0.25, 0.02);  // a resampler may ring
    EXPECT_NEAR(done["seconds"], 5000 / 22050.0, 1e-3);
    EXPECT_GT(done["times_real_time"], 0.01);
    EXPECT_EQ(done["provider"], "CPUExecutionProvider");
    expect(1, tool + "album -o album/stems", "{folder} in --name");
}

TEST_F(Command, separatesWhatIsLeftOfADamagedSongAndSaysSo) {
    Samples song = writeTones("whole.wav", 44100, 2, 100000);
    for (const std::size_t bad : {5000U, 5001U, 90000U}) song[bad] = bad % 2 == 0 ? NAN : INFINITY;
    std::ofstream("nan.wav", std::ios::binary)
        << contents("whole.wav").substr(0, contents("whole.wav").size() - song.size() * sizeof(float))
        << std::string(reinterpret_cast<const char*>(song.data()), song.size() * sizeof(float));
    expect(0, tool + "nan.wav --no-record", "3 samples are not finite");
    for (float& sample : song) sample = std::isfinite(sample) ? sample : 0;
    Samples sum = readSound("nan/centre.wav").samples;
    const Samples rest = readSound("nan/centre.rest.wav").samples;
    std::transform(sum.begin(), sum.end(), rest.begin(), sum.begin(), std::plus());
    EXPECT_LT(largestDifference(sum, song), 2e-7);

    expect(0, "head -c 400000 whole.wav >cut.wav; exec " + tool + "whole.wav --quiet --no-record");
    expect(6, tool + "cut.wav", "cut.wav: has 0:01.1 of sound, but its header says 0:02.3");
    EXPECT_NEAR(static_cast<double>(readSound("cut/centre.wav").samples.size()), 99960, 20);
    expect(6, tool + "cut.wav", "skipped");
}

TEST_F(Command, streamsThroughPipesAsTheSamplesBecomeFinal) {
    const std::string pipe = tool + "- -o - --only stem --quiet" + passthrough;
    const Samples song = writeTones("song.wav", 48000, 1, 600000);
    expect(0, "cat song.wav | " + pipe + "--format wav24 | cat >stem.wav");
    EXPECT_LT(largestDifference(readSound("stem.wav").samples, song, 1, 400), 1e-4);
    // Twelve seconds give six while the stream is still open. The reader goes away then, which ends the run quietly.
    writeSound("song.raw", song, 44100, 2, "raw-int16");
    const std::string raw = pipe + "--rate 44100 --raw int16 ";
    const std::string wait = "timeout 30 sh -c 'until [ -e heard ]; do sleep 0.1; done' || touch late";
    expect(
        0,
        "(cat song.raw; " + wait + "; cat song.raw) | (" + raw + "; echo $? >code) | " +
            "(head -c 900000 >raw; touch heard); [ ! -e late ] && [ $(wc -c <raw) = 900000 ] && [ $(cat code) = 0 ]");
    EXPECT_EQ(contents(".messages"), "");
    expect(2, "cat song.raw | " + pipe + "| cat >x; cat song.raw | " + pipe + ">x", "standard input");
    expect(1, "script -qec '" + tool + "song.wav -o - --only stem' /dev/null >.messages", "is a terminal");
}

TEST_F(Command, endsAtOnceOnASignalWhereverItIs) {
    writeSound("long.wav", Samples(2 * 8000 * 3600), 8000);
    expect(0, "mkfifo in out; sleep 30 >in & echo $! >holder");  // keeps them open
    const struct {
        std::string command;
        std::string signal;
        int code;
    } cases[] = {{tool + "in -o new", "INT", 130},                                   // reading a pipe with a name
                 {tool + "- -o new <in", "TERM", 143},                               // reading standard input
                 {"mkfifo shut; " + tool + "shut -o new", "HUP", 129},               // opening
                 {tool + "long.wav -o - --only stem 3<>out >out", "INT", 130},       // writing to a full pipe
                 {tool + "long.wav -o new/a --model percussive", "TERM", 143},       // in a model run
                 {tool + "long.wav -o new --clip scale-all --jobs 2", "HUP", 129}};  // with scratch files
    for (const auto& [command, signal, code] : cases) {
        const std::string wait =
            "& p=$!; sleep 0.7; kill -" + signal + " $p; date +%s%N; wait $p; c=$?; date +%s%N; exit $c";
        const Outcome outcome = run(command + wait);
        EXPECT_EQ(outcome.code, code) << outcome;
        std::istringstream times(outcome.out);
        double sent = 0, ended = 0;
        times >> sent >> ended;
        EXPECT_LT((ended - sent) / 1e9, 0.5) << outcome;
        EXPECT_TRUE(outcome.says("interrupted")) << outcome;
        EXPECT_FALSE(fs::exists("new")) << outcome << filesBelow("new");
    }
    // What is complete stays.
    writeTones("a.wav", 8000, 1, 8000);
    expect(130,
           tool +
               "a.wav long.wav -o new & p=$!; until [ -e new/a/centre.tavrin.json ]; do sleep 0.1; done; kill -INT $p; "
               "wait $p",
           "1 of 2 songs");
    EXPECT_EQ(filesBelow("new"), "a/centre.rest.wav a/centre.tavrin.json a/centre.wav");
    run("kill $(cat holder)");
}

TEST_F(Command, neverMixesTwoRunsNorReplacesTheSong) {
    writeTones("song.wav", 44100, 2, 5000);
    fs::create_directories("song");
    std::ofstream("song/.centre.wav.part") << "left by a run that was killed";
    expect(4, "flock song/.centre.wav.part " + tool + "song.wav", "another run is writing it");
    expect(0, tool + "song.wav --quiet");
    EXPECT_EQ(contents(".messages"), "");
    EXPECT_EQ(filesBelow("song"), "centre.rest.wav centre.tavrin.json centre.wav");
    expect(1, "cp -r song centre; " + tool + "centre/centre.wav -o .", "replace a song itself");
    fs::create_directories("out/song/centre.wav");
    expect(4, tool + "song.wav -o out", "there is a folder of that name");
}

TEST_F(Command, describesEveryOptionInItsManPageAndCompletions) {
    for (const std::string command : {TAVRIN_SEPARATE, TAVRIN_MODEL " inspect", TAVRIN_MODEL " scramble"}) {
        const std::string name = fs::path(command.substr(0, command.find(' '))).filename();
        const std::string help = run(command + " --help").out;
        std::istringstream words(help);
        int options = 0;
        for (std::string line; std::getline(words, line);) {
            EXPECT_LE(line.size(), 80U) << line;
            const std::size_t dashes = line.find("--");
            if (line.find_first_not_of(" -o,h") == std::string::npos || !line.starts_with("  -")) continue;
            const std::string option = line.substr(dashes, line.find_first_of(" ,", dashes) - dashes);
            ++options;
            for (const std::string& file :
                 {"completions/" + name, "completions/_" + name, "../docs/man/" + name + ".1"}) {
                std::string text = contents(TAVRIN_TOOLS "/" + file);
                std::erase(text, '\\');
                EXPECT_NE(text.find(option), std::string::npos) << file << " lacks " << option;
            }
        }
        EXPECT_GT(options, name == "tavrin-model" ? 1 : 25) << help;
    }
}

// The largest sum of red, green and blue around this share of the time and of the frequency axis.
int brightness(cairo_surface_t* picture, int plot, double time, double frequency) {
    const int left = 70 + static_cast<int>(900 * time);
    const int top = 28 + (28 + 256) * plot + static_cast<int>(256 * (1 - frequency));
    int brightest = 0;
    for (int i = 0; i < 25; ++i) {
        const unsigned char* pixel = cairo_image_surface_get_data(picture) +
                                     (top - 2 + i / 5) * cairo_image_surface_get_stride(picture) +
                                     4 * (left - 2 + i % 5);
        brightest = std::max(brightest, pixel[0] + pixel[1] + pixel[2]);
    }
    return brightest;
}

TEST_F(Command, drawsLouderPartsBrighterWhereTheyAre) {
    // Ten seconds: first 5 kHz softly, then 15 kHz loudly.
    Samples song;
    for (int i = 0; i < 2 * 441000; ++i)
        song.push_back(static_cast<float>(i < 441000 ? 0.003 * std::sin(2 * M_PI * 5000 / 44100 * (i / 2))
                                                     : 0.5 * std::sin(2 * M_PI * 15000 / 44100 * (i / 2))));
    writeSound("歌.wav", song);
    for (const bool isLinear : {true, false}) {
        expect(0, tool + "歌.wav --spectrogram --format wav16" + passthrough + (isLinear ? "--linear" : ""));
        cairo_surface_t* picture = cairo_image_surface_create_from_png("歌/passthrough.spectrogram.png");
        ASSERT_EQ(cairo_image_surface_get_width(picture), 70 + 900 + 90);
        ASSERT_EQ(cairo_image_surface_get_height(picture), 3 * (28 + 256) + 36);
        const auto place = [&](double hertz) {
            return isLinear ? hertz / 22050 : std::log(hertz / 40) / std::log(22050.0 / 40);
        };
        for (const int plot : {0, 1}) {
            EXPECT_GT(brightness(picture, plot, 0.75, place(15000)), brightness(picture, plot, 0.25, place(5000)) + 100)
                << plot;
            EXPECT_GT(brightness(picture, plot, 0.25, place(5000)), brightness(picture, plot, 0.75, place(5000)) + 100)
                << plot;
            EXPECT_LT(brightness(picture, plot, 0.25, place(15000)), 10) << plot;
        }
        EXPECT_LT(brightness(picture, 2, 0.75, place(15000)), 10) << "the rest is silent";
        cairo_surface_destroy(picture);
    }
}

TEST_F(Command, saysWhatWentWrongAndLeavesNothingBehind) {
    writeTones("song.wav", 44100, 2, 400000);
    std::ofstream("text") << "neither a song nor a model\n";
    std::ofstream("key") << "wrong\n";
    // Three channels.
    std::ofstream("three.wav")
        << std::string("RIFF\44\0\1\0WAVEfmt \20\0\0\0\1\0\3\0\104\254\0\0\230\11\4\0\6\0\20\0data\0\0\1\0", 44) +
               std::string(65536, '\1');
    const struct {
        int code;
        const char* culprit;
        std::string arguments;
    } cases[] = {{1, "\"kazoo\" is no stem", "song.wav --stems kazoo"},
                 {3, "get it with: ", "song.wav --model vocals"},
                 {3, "tavrin-model list", "song.wav --model nothing"},
                 {1, "{folder}", "song.wav --name '{artist}'"},
                 {1, "Abacus", "song.wav --device Abacus"},
                 {1, "--latency", "song.wav --latency 0.01"},
                 {1, "--context", "song.wav --context 500"},
                 {1, "--start", "song.wav --start 1:00"},
                 {2, "missing.wav", "missing.wav"},
                 {2, "three.wav", "three.wav"},
                 {2, "text", "text"},
                 {3, "--key-file", "song.wav --key-file key"},
                 {2, "nokey", "song.wav --key-file nokey"},
                 {3, "half.onnx", "song.wav --model " + models + "half.onnx"},
                 {3, "failing.onnx: ", "song.wav --model " + models + "failing.onnx"}};
    const std::string noModel = "XDG_DATA_HOME=/none TAVRIN_MODELS=/none ";
    for (const auto& [code, culprit, arguments] : cases) {
        if (arguments.ends_with("vocals") &&
            run(noModel + TAVRIN_MODEL " list").out.find("not here") == std::string::npos)
            continue;  // it is here
        expectFailure(code, culprit, arguments, noModel);
    }
    expectFailure(4, "rest.wav", "song.wav --only rest", "ulimit -f 1000; ");  // as when the disk is full
    expect(4, tool + "song.wav -o text", "text");
    expect(0, tool + "song.wav -o out --device cuda --duration 1", "warning: ");
    expect(0, "TAVRIN_MODELS=" + models + " " + tool + "song.wav -o out --model passthrough --duration 1");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which need much address space
    expect(0, "truncate -s 3G huge.onnx");
    expect(7, "ulimit -v 2000000; " + tool + "song.wav -o out --model ./huge.onnx", "free some memory");
    expect(7, "ulimit -v 2000000; " TAVRIN_MODEL " inspect ./huge.onnx", "free some memory");
#endif
}

}  // namespace
