/// @file
/// What the user reads while the tool works. All of it goes to standard error: standard output is left to scripts.
#pragma once

#include <string>

namespace tavrin::tool {

enum class Verbosity { quiet, normal, verbose };

/// Prints one line, with the program's name before it. Any thread.
void say(std::string message);

/// Keeps `line` as the last one of the terminal, below what is said; an empty one is no line. Any thread.
void showStatus(const std::string& line);

/// "3:07.5" or "1:03:07.5".
std::string clockTime(double seconds);

}  // namespace tavrin::tool
