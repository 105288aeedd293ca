/// @file
/// The text of --help.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tavrin::tool {

/// Breaks lines between words, so that none is longer than 80 columns; lines after the first are indented.
std::string wrapped(const std::string& text, std::size_t indent, std::size_t firstColumn);

/// Makes the help of a command fit into 80 columns.
void formatHelp(CLI::App& app);

}  // namespace tavrin::tool
