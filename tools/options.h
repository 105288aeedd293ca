/// @file
/// What the user asked for on the command line.
#pragma once

#include <filesystem>
#include <string>

#include "messages.h"
#include "output_format.h"

namespace tavrin::tool {

struct Options {
    std::filesystem::path song;
    std::filesystem::path folder;  ///< empty: the current one; the results go to folder/<name of the song>/
    std::filesystem::path model;
    std::string key;  ///< descrambles the model's bytes; empty: they are plain
    bool wantStem = true;
    bool wantRest = true;
    OutputFormat format = outputFormats[0];
    Verbosity verbosity = Verbosity::normal;
};

/// @return what was asked for; ends the process with code 0 after --help or --version.
/// @throws Failure with ExitCode::wrongUsage.
Options parseOptions(int argc, const char* const* argv);

}  // namespace tavrin::tool
