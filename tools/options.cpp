#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "bundled_model.h"
#include "failure.h"
#include "stem_names.h"

namespace tavrin::tool {

namespace {

constexpr const char* description =
    "Separates songs into the stems that a model takes out of them and the rest. Stems + rest are the song, sample by "
    "sample.";

constexpr const char* footer =
    "Examples:\n"
    "  tavrin-separate \"My Song.mp3\" -o stems\n"
    "writes stems/My Song/centre.wav (what both channels share: often vocals, bass and drums)\n"
    "and stems/My Song/rest.wav. With --model FILE the stem is named after the model's file.\n"
    "  tavrin-separate \"My Song.mp3\" --model FILE --stems vocals,drums\n"
    "writes My Song/vocals.wav, My Song/drums.wav and My Song/rest.wav.\n"
    "  tavrin-separate album/ *.flac -o stems --name '{song} ({stem}).{ext}' --format flac24 --jobs 2\n"
    "separates every song of a folder and more; those with newer results are skipped.\n"
    "  ffmpeg -i URL -f wav - | tavrin-separate - --only rest -o - | aplay\n"
    "plays the rest while the song comes in.\n\n"
    "Exit codes: 0 done, 1 wrong usage, 2 song unreadable, 3 model unusable, 4 write failed,\n"
    "5 some of several songs failed, 130 interrupted.";

Failure wrongUsage(const std::string& message) { return {ExitCode::wrongUsage, message}; }

// "95", "1:35" or "0:01:35.0"; empty: `otherwise`.
double parseTime(const std::string& option, const std::string& text, double otherwise) {
    constexpr double tenYears = 3e8;
    if (text.empty()) return otherwise;
    double seconds = 0;
    std::istringstream fields(text + ":");
    for (std::string field; std::getline(fields, field, ':');) {
        std::istringstream number(field);
        double value = -1;
        if (!(number >> value) || !number.eof() || !(value >= 0)) seconds = INFINITY;
        seconds = seconds * 60 + value;
    }
    if (!(seconds <= tenYears)) {
        throw wrongUsage(option + ": \"" + text + "\" is no time; give seconds or minutes:seconds, such as 1:35");
    }
    return seconds;
}

// A pipe gets what came through the other one, files get the first format.
std::string usualFormat(const Options& options) {
    const bool raw = options.toStandardOutput() && options.raw.rate > 0;
    return !raw ? outputFormats[0].name : options.raw.isFloat ? "raw-float32" : "raw-int16";
}

void requireOneStream(const Options& options) {
    if (options.songs.size() > 1) throw wrongUsage("-o -: standard output takes one song; give a folder with -o");
    if (options.wantRest ? options.wantStems : options.stems.size() > 1) {
        throw wrongUsage(
            "-o -: standard output takes one part; choose it with --only rest, or --only stem and one of --stems");
    }
    if (!options.format.isStreamable()) {
        throw wrongUsage(std::string("--format ") + options.format.name +
                         ": cannot go to standard output; choose a wav or raw format");
    }
    if (options.clip == ClipPolicy::scaleAll) {
        throw wrongUsage("--clip scale-all: needs the whole song before it writes; choose clamp for standard output");
    }
    if (options.json || options.spectrogram) {
        throw wrongUsage("-o -: standard output takes sound only; leave out --json and --spectrogram");
    }
}

void requirePlaceholders(const std::string& name) {
    static const std::vector<std::string> known = {"{song}", "{stem}", "{ext}", "{folder}"};
    for (std::size_t at = name.find('{'); at != std::string::npos; at = name.find('{', at + 1)) {
        const auto isHere = [&](const std::string& word) { return name.compare(at, word.size(), word) == 0; };
        if (std::none_of(known.begin(), known.end(), isHere)) {
            throw wrongUsage("--name: \"" + name +
                             "\" has an unknown {...}; known are {song}, {stem}, {ext} and {folder}");
        }
    }
    if (name.empty() || name.back() == '/')
        throw wrongUsage("--name: \"" + name + "\" names no file; add {stem}.{ext}");
}

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string stems;
    std::string only;
    std::string format;
    std::string clip;
    std::string encoding;
    std::string start;
    std::string duration;
    std::vector<std::string> formats;
    for (const OutputFormat& known : outputFormats) formats.emplace_back(known.name);
    const std::map<std::string, ClipPolicy> policies = {
        {"clamp", ClipPolicy::clamp}, {"none", ClipPolicy::none}, {"scale-all", ClipPolicy::scaleAll}};

    CLI::App app(description, "tavrin-separate");
    app.footer(footer);
    app.set_version_flag("--version", "tavrin-separate " TAVRIN_VERSION, "Print the version and exit");
    app.add_option("SONG", options.songs,
                   "WAV, FLAC, OGG or MP3 files, mono or stereo; folders of them; or - for standard input");
    app.add_option("-o,--output", options.folder,
                   "Results go to FOLDER/<song>/ (default: the current folder), or with - to standard output")
        ->type_name("FOLDER");
    app.add_option("--name", options.name,
                   "Names of the results in FOLDER (default: {song}/{stem}.{ext}; {folder} is the song's own in the "
                   "folder that was given)")
        ->type_name("TEMPLATE");
    app.add_option("--model", options.model, "ONNX model: a file, or centre (default) or percussive")
        ->type_name("MODEL");
    app.add_option("--key", options.key, "Key of a scrambled model")->type_name("TEXT");
    CLI::Option* stemsOption =
        app.add_option("--stems", stems, "Stems to take out with a multi-stem model, such as vocals,drums, or all")
            ->type_name("NAMES");
    // Thrown as the version is: it is printed on standard output, and the run ends.
    app.add_flag_callback(
        "--list-stems", [] { throw CLI::CallForVersion(stemList(), 0); }, "Print the names of the stems and exit");
    app.add_option("--provider", options.provider, "Execution provider to try first")->type_name("NAME");
    app.add_flag("--list-providers", options.listProviders, "Print the names of the providers and exit");
    app.add_option("--only", only, "Write the stems alone, or the rest alone")->check(CLI::IsMember({"stem", "rest"}));
    app.add_option("--format", format, "Format of the results (default: wav-float)")->check(CLI::IsMember(formats));
    app.add_option("--clip", clip,
                   "What is louder than full scale: clamp it, leave it (none), or turn all parts of the song down "
                   "(scale-all; default: none for wav-float and raw-float32, otherwise clamp)")
        ->check(CLI::IsMember(policies));
    app.add_option("--start", start, "Leave out this much of each song, seconds or minutes:seconds")->type_name("TIME");
    app.add_option("--duration", duration, "Separate only this much of each song")->type_name("TIME");
    CLI::Option* rateOption =
        app.add_option("--rate", options.raw.rate, "Standard input is raw samples, so many per second")
            ->type_name("HZ")
            ->check(CLI::Range(1000, 768000));
    app.add_option("--channels", options.raw.channels, "Of raw samples (default: 2)")
        ->check(CLI::IsMember({1, 2}))
        ->needs(rateOption);
    app.add_option("--raw", encoding, "Kind of raw samples, little-endian (default: float32)")
        ->check(CLI::IsMember({"float32", "int16"}))
        ->needs(rateOption);
    app.add_flag("--spectrogram", options.spectrogram, "Write a picture of the song and its parts, too (PNG)");
    app.add_flag("--overwrite", options.overwrite, "Separate songs again whose results are newer than they");
    app.add_option("--jobs", options.jobs, "Songs to separate side by side (default: 1)")
        ->type_name("N")
        ->check(CLI::Range(1, 64));
    app.add_flag("--json", options.json, "Print a line of JSON per song on standard output");
    bool quiet = false;
    bool verbose = false;
    CLI::Option* quietFlag = app.add_flag("--quiet", quiet, "Say nothing but errors");
    app.add_flag("--verbose", verbose, "Say what the library does, too")->excludes(quietFlag);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        std::exit(app.exit(helpOrVersion));
    } catch (const CLI::ParseError& error) {
        throw wrongUsage(std::string(error.what()) + "; tavrin-separate --help shows the usage");
    }

    if (options.songs.empty() && !options.listProviders) {
        throw wrongUsage("SONG is required; tavrin-separate --help shows the usage");
    }
    if (*stemsOption) {
        options.stems = stemsNamed(stems);
        if (options.model.empty())
            throw Failure(ExitCode::wrongUsage, "--stems: no multi-stem model is bundled; name one with --model");
    }
    options.model = modelNamed(options.model.empty() ? "centre" : options.model.string());
    options.wantStems = only != "rest";
    options.wantRest = only != "stem";
    options.start = parseTime("--start", start, options.start);
    options.duration = parseTime("--duration", duration, options.duration);
    if (options.duration == 0) throw wrongUsage("--duration: 0 leaves nothing to separate; give some seconds");
    if (encoding == "int16") {
        options.raw.bits = 16;
        options.raw.isFloat = false;
    }
    if (format.empty()) format = usualFormat(options);
    for (const OutputFormat& known : outputFormats) {
        if (format == known.name) options.format = known;
    }
    const bool isFloat = options.format.encoding() == SF_FORMAT_FLOAT;
    options.clip = !clip.empty() ? policies.at(clip) : isFloat ? ClipPolicy::none : ClipPolicy::clamp;
    if (quiet) options.verbosity = Verbosity::quiet;
    if (verbose) options.verbosity = Verbosity::verbose;
    requirePlaceholders(options.name);
    if (options.toStandardOutput()) requireOneStream(options);
    return options;
}

}  // namespace tavrin::tool
