/// @file
/// What the user asked for on the command line.
#pragma once

#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "messages.h"
#include "output_format.h"
#include "pcm.h"
#include "tavrin/multi_stem_separator.h"

namespace tavrin::tool {

/// Stands for standard input among the songs, and for standard output as the folder.
inline constexpr const char* pipeSign = "-";

struct Options {
    std::vector<std::filesystem::path> songs;  ///< files, folders or pipeSign
    std::filesystem::path folder;              ///< of the results; empty: the current one
    std::string name = "{song}/{stem}.{ext}";  ///< of a result in that folder
    std::filesystem::path model;
    std::string key;          ///< descrambles the model's bytes; empty: they are plain
    std::vector<Stem> stems;  ///< of a multi-stem model, in its order; empty: the model has a single output
    std::string provider;     ///< execution provider to try first, for a multi-stem model; or empty
    bool listProviders = false;
    bool wantStems = true;
    bool wantRest = true;
    OutputFormat format = outputFormats[0];
    ClipPolicy clip = ClipPolicy::none;
    double start = 0;                                           ///< seconds of each song to leave out
    double duration = std::numeric_limits<double>::infinity();  ///< seconds of each song to separate
    PcmFormat raw;                                              ///< of standard input; rate 0: it is a WAV
    bool spectrogram = false;
    bool overwrite = false;
    int jobs = 1;  ///< songs at a time
    bool json = false;
    Verbosity verbosity = Verbosity::normal;

    bool toStandardOutput() const { return folder == pipeSign; }
};

/// @return what was asked for; ends the process with code 0 after --help, --version or --list-stems.
/// @throws Failure with ExitCode::wrongUsage.
Options parseOptions(int argc, const char* const* argv);

}  // namespace tavrin::tool
