#include "options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <vector>

#include "bundled_model.h"
#include "failure.h"
#include "stem_names.h"

namespace tavrin::tool {

namespace {

constexpr const char* description =
    "Separates a song into the stems that a model takes out of it and the rest. Stems + rest are the song, sample by "
    "sample.";

constexpr const char* footer =
    "Examples:\n"
    "  tavrin-separate \"My Song.mp3\" -o stems\n"
    "writes stems/My Song/centre.wav (what both channels share: often vocals, bass and drums)\n"
    "and stems/My Song/rest.wav. With --model FILE the stem is named after the model's file.\n"
    "  tavrin-separate \"My Song.mp3\" --model FILE --stems vocals,drums\n"
    "writes My Song/vocals.wav, My Song/drums.wav and My Song/rest.wav.\n\n"
    "Exit codes: 0 done, 1 wrong usage, 2 song unreadable, 3 model unusable, 4 write failed, 130 interrupted.";

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string stems;
    std::string only;
    std::string format = options.format.name;
    std::vector<std::string> formats;
    for (const OutputFormat& known : outputFormats) formats.emplace_back(known.name);

    CLI::App app(description, "tavrin-separate");
    app.footer(footer);
    app.set_version_flag("--version", "tavrin-separate " TAVRIN_VERSION, "Print the version and exit");
    app.add_option("SONG", options.song, "WAV, FLAC, OGG or MP3 file, mono or stereo")->required();
    app.add_option("-o,--output", options.folder, "Results go to FOLDER/<song>/ (default: the current folder)")
        ->type_name("FOLDER");
    app.add_option("--model", options.model, "ONNX model: a file, or centre (default) or percussive")
        ->type_name("MODEL");
    app.add_option("--key", options.key, "Key of a scrambled model")->type_name("TEXT");
    CLI::Option* stemsOption =
        app.add_option("--stems", stems, "Stems to take out with a multi-stem model, such as vocals,drums, or all")
            ->type_name("NAMES");
    // Thrown as the version is: it is printed on standard output, and the run ends.
    app.add_flag_callback(
        "--list-stems", [] { throw CLI::CallForVersion(stemList(), 0); }, "Print the names of the stems and exit");
    app.add_option("--provider", options.provider, "Execution provider to try first with --stems")
        ->type_name("NAME")
        ->needs(stemsOption);
    app.add_option("--only", only, "Write the stems alone, or the rest alone")->check(CLI::IsMember({"stem", "rest"}));
    app.add_option("--format", format, "Format of the results (default: wav-float)")->check(CLI::IsMember(formats));
    bool quiet = false;
    bool verbose = false;
    CLI::Option* quietFlag = app.add_flag("--quiet", quiet, "Say nothing but errors");
    app.add_flag("--verbose", verbose, "Say what the library does, too")->excludes(quietFlag);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        std::exit(app.exit(helpOrVersion));
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::wrongUsage, std::string(error.what()) + "; tavrin-separate --help shows the usage");
    }

    if (*stemsOption) {
        options.stems = stemsNamed(stems);
        if (options.model.empty())
            throw Failure(ExitCode::wrongUsage, "--stems: no multi-stem model is bundled; name one with --model");
    }
    options.model = modelNamed(options.model.empty() ? "centre" : options.model.string());
    options.wantStems = only != "rest";
    options.wantRest = only != "stem";
    for (const OutputFormat& known : outputFormats) {
        if (format == known.name) options.format = known;
    }
    if (quiet) options.verbosity = Verbosity::quiet;
    if (verbose) options.verbosity = Verbosity::verbose;
    return options;
}

}  // namespace tavrin::tool
