/// @file
/// The text of --help.
#pragma once

#include <CLI/CLI.hpp>

namespace tavrin::tool {

/// Makes the help of a command fit into 80 columns.
void formatHelp(CLI::App& app);

}  // namespace tavrin::tool
