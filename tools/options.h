/// @file
/// What the user asked for on the command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "messages.h"
#include "output_format.h"
#include "tavrin/multi_stem_separator.h"

namespace tavrin::tool {

struct Options {
    std::filesystem::path song;
    std::filesystem::path folder;  ///< empty: the current one; the results go to folder/<name of the song>/
    std::filesystem::path model;
    std::string key;          ///< descrambles the model's bytes; empty: they are plain
    std::vector<Stem> stems;  ///< of a multi-stem model, in its order; empty: the model has a single output
    std::string provider;     ///< execution provider to try first, for a multi-stem model; or empty
    bool wantStems = true;
    bool wantRest = true;
    OutputFormat format = outputFormats[0];
    Verbosity verbosity = Verbosity::normal;
};

/// @return what was asked for; ends the process with code 0 after --help, --version or --list-stems.
/// @throws Failure with ExitCode::wrongUsage.
Options parseOptions(int argc, const char* const* argv);

}  // namespace tavrin::tool
