#include "separate/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "common/command.h"
#include "common/failure.h"
#include "separate/songs.h"

namespace tavrin::tool {

namespace {

constexpr const char* description =
    "Separates songs into the stems that a model takes out of them and the rest.\n"
    "Stems + rest are the song, sample by sample.";

constexpr const char* footer =
    "Examples:\n"
    "  tavrin-separate \"My Song.mp3\" -o stems\n"
    "      stems/My Song/centre.wav (what both channels share: often vocals, bass and\n"
    "      drums) and stems/My Song/centre.rest.wav\n"
    "  tavrin-separate album/ *.flac -o stems --format flac24 --jobs 2\n"
    "      every song of a folder and more; those with results are skipped\n"
    "  tavrin-separate song.m4a --model six.onnx --stems vocals,drums\n"
    "      vocals.wav, drums.wav and vocals+drums.rest.wav, in the folder song\n"
    "  tavrin-separate - --only rest -o - <song.mp3 | aplay\n"
    "      plays the rest while the song comes in\n\n"
    "Exit codes: 0 done, 1 wrong usage, 2 song unreadable, 3 model unusable,\n"
    "4 write failed, 5 some of several songs failed, 6 separated but a song is\n"
    "damaged, 7 out of memory or threads; 128 + N after signal N.\n";

Failure wrongUsage(const std::string& message) { return {ExitCode::wrongUsage, message}; }

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    for (const AudioFormat& format : audioFormats()) names.emplace_back(format.name);
    return names;
}

// What --format says, or the ending in --name, or what came in through the other pipe.
const AudioFormat* chooseFormat(const AudioFormat* byName, const Options& options) {
    const std::string ending = std::filesystem::path(options.output.name).extension().string().erase(0, 1);
    const AudioFormat* byEnding = findAudioFormatByExtension(ending);
    if (byName && byEnding && byName->extension != std::string(byEnding->extension))
        throw wrongUsage(std::string("--format ") + byName->name + ": contradicts the ending ." + ending +
                         " in --name");
    if (byName) return byName;
    if (byEnding && !options.output.toStandardOutput()) return byEnding;
    const bool isRawPipe = options.output.toStandardOutput() && options.input.raw;
    return findAudioFormat(!isRawPipe ? "wav" : options.input.raw->format == "s16le" ? "raw-int16" : "raw-float32");
}

void checkQuality(const OutputOptions& output) {
    const AudioFormat::Quality& range = output.format->quality;
    if (!output.quality || (range.unit && *output.quality >= range.least && *output.quality <= range.most)) return;
    std::ostringstream text;
    text << "--quality: " << output.format->name;
    if (range.unit) text << " takes " << range.least << " to " << range.most << " (" << range.unit << ")";
    if (!range.unit) text << " has no choice of quality";
    throw wrongUsage(text.str());
}

void requireOneStream(const Options& options) {
    const OutputOptions& output = options.output;
    if (options.songs.size() > 1) throw wrongUsage("-o -: standard output takes one song; give a folder with -o");
    if (output.only.empty())
        throw wrongUsage("-o -: standard output takes one part; choose it with --only rest or --only stem");
    if (output.clip == "scale-all")
        throw wrongUsage("--clip scale-all: needs the whole song before it writes; choose clamp for standard output");
    if (options.json || output.spectrogram)
        throw wrongUsage("-o -: standard output takes sound only; leave out --json and --spectrogram");
    if (isatty(STDOUT_FILENO) == 1)
        throw wrongUsage("-o -: standard output is a terminal; pipe it into a program or a file");
}

}  // namespace

double parseTime(const std::string& option, const std::string& text) {
    constexpr double tenYears = 3e8;
    bool isTime = text.find_first_not_of("0123456789.:") == std::string::npos;
    bool isFirst = true;
    double seconds = 0;
    std::istringstream fields(text + ":");
    for (std::string field; std::getline(fields, field, ':'); isFirst = false) {
        std::istringstream number(field);
        double value = -1;
        isTime = isTime && number >> value && number.eof() && (isFirst || value < 60);
        seconds = seconds * 60 + value;
    }
    if (!isTime || !(seconds <= tenYears)) {
        throw wrongUsage(option + ": \"" + text + "\" is no time; give seconds or minutes:seconds, such as 1:35");
    }
    return seconds;
}

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    AudioInput& input = options.input;
    ModelChoice& model = options.model;
    OutputOptions& output = options.output;
    std::string format;
    RawAudio raw;

    CLI::App app(description, "tavrin-separate");
    app.footer(footer);
    const auto option = [&](const char* name, auto& value, const char* type, const std::string& text) {
        return app.add_option(name, value, text)->type_name(type);
    };
    const auto timeOption = [&](const std::string& name, double& seconds, const char* text) {
        const auto parse = [&seconds, name](const std::string& time) { seconds = parseTime(name, time); };
        app.add_option_function<std::string>(name, parse, text)->type_name("TIME");
    };
    app.add_option("SONG", options.songs,
                   "Sound or video files of any kind, mono or stereo; folders of them; or - for standard input");

    app.option_defaults()->group("Results");
    option("-o,--output", output.folder, "FOLDER",
           "Results go below FOLDER (default: the current one), or with - to standard output");
    option("--name", output.name, "TEMPLATE",
           "Names of the results in FOLDER (default: {song}/{stem}.{ext}); known are {song}, {stem}, {part}, {ext} and "
           "{folder}");
    option("--only", output.only, "PART", "Write the stems alone (stem), or the rest alone (rest)")
        ->check(CLI::IsMember({"stem", "rest"}));
    option("--format", format, "FORMAT",
           "One of " + joined(formatNames(), ", ") + " (default: wav, which is float, or what --name ends in)")
        ->check(CLI::IsMember(formatNames()));
    option("--quality", output.quality, "N",
           "Of mp3 from 9 to 0, the best; of m4a and opus in kbit/s; of ogg up to 10; of flac up to 12, the smallest");
    option("--clip", output.clip, "POLICY",
           "What is louder than full scale: clamp it, leave it (none), or turn all parts of the song down (scale-all); "
           "default: none for float samples, otherwise clamp")
        ->check(CLI::IsMember({"clamp", "none", "scale-all"}));
    app.add_flag("--spectrogram", output.spectrogram, "Draw the song and its parts, too (PNG)");
    app.add_flag("--linear", output.linear, "Draw frequencies in even steps, not octaves");
    app.add_flag("--overwrite", options.overwrite, "Separate songs again that would be skipped");
    app.add_flag("--no-record", output.noRecord, "Write no record (.tavrin.json); such results are never skipped");

    app.option_defaults()->group("Songs");
    timeOption("--start", input.start, "Leave out this much of each song, seconds or minutes:seconds");
    timeOption("--duration", input.duration, "Separate only this much of each song");
    option("--jobs", options.jobs, "N", "Songs to separate side by side (default: 1)")->check(CLI::Range(1, 64));
    CLI::Option* rate =
        option("--rate", raw.rate, "HZ", "Songs are raw samples, so many per second")->check(CLI::Range(1000, 768000));
    option("--channels", raw.channels, "N", "Of raw samples, 1 or 2 (default: 2)")
        ->check(CLI::IsMember({1, 2}))
        ->needs(rate);
    option("--raw", raw.format, "KIND",
           "Kind of raw samples: float32 (default), int16, or FFmpeg's name, such as s24le")
        ->transform(CLI::Transformer({{"float32", "f32le"}, {"int16", "s16le"}}))
        ->needs(rate);

    app.option_defaults()->group("Model");
    option("--model", model.models, "MODEL",
           "ONNX file, or a name that tavrin-model list prints (default: centre); given again: stems of one name are "
           "averaged")
        ->allow_extra_args(false);
    option("--then", model.then, "MODEL", "Take stems out of what is left, with this model")->allow_extra_args(false);
    option("--stems", model.stems, "NAMES",
           "Stems to take out, such as vocals,drums (default: all that the model knows)")
        ->allow_extra_args(false)
        ->delimiter(',');
    app.add_flag("--list-stems", options.listStems, "Print the names of the model's stems and exit");
    option("--key-file", model.keyFile, "FILE", "File with the key of a scrambled model");
    option("--device,--provider", model.provider, "NAME",
           "What runs the model: cpu, cuda, coreml, …, or an execution provider's full name; when it cannot, the CPU "
           "does, with a warning");
    app.add_flag("--list-providers", options.listProviders, "Print the names of the providers and exit");
    option("--threads", model.threads, "N", "Threads of a model run (default: one per core)")
        ->check(CLI::Range(1, 1024));
    option("--latency", model.latency, "SECONDS",
           "Longest allowed delay in seconds (default: the cheapest, some seconds)")
        ->check(CLI::Range(0.0, 3600.0));
    option("--context", model.context, "N", "Frames that the model sees on both sides (default: its own choice)")
        ->check(CLI::Range(1, 1 << 20));

    app.option_defaults()->group("Messages");
    app.add_flag("--json", options.json, "Print a line of JSON per song on standard output");
    CLI::Option* quiet = app.add_flag("--quiet", options.quiet, "Say nothing but warnings and errors");
    app.add_flag("--verbose", options.verbose, "Say what the libraries say, too")->excludes(quiet);
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "tavrin-separate " TAVRIN_VERSION, "Print the version and exit");
    parseArguments(app, argc, argv);

    if (options.songs.empty() && !options.listProviders && !options.listStems)
        throw wrongUsage("SONG is required; tavrin-separate --help shows the usage");
    if (input.duration == 0) throw wrongUsage("--duration: 0 leaves nothing to separate; give some seconds");
    if (!isRawFormat(raw.format)) throw wrongUsage("--raw: \"" + raw.format + "\" is none of float32, int16, s24le, …");
    if (*rate) input.raw = raw;
    output.format = chooseFormat(findAudioFormat(format), options);
    targetsOf(output, {{""}, ""}, {});  // throws for a template that cannot be used
    checkQuality(output);
    const bool isFloat = output.format->hasHeadroom() && !output.format->isLossy;
    if (output.clip.empty()) output.clip = isFloat ? "none" : "clamp";
    if (output.toStandardOutput()) requireOneStream(options);
    return options;
}

}  // namespace tavrin::tool
