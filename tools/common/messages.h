/// @file
/// What the user reads while a command works. All of it goes to standard error: standard output is left to scripts.
#pragma once

#include <string>

namespace tavrin::tool {

/// The program's name, which begins every line. To be called first.
void setSpeaker(const char* program);

/// Prints one line. Any thread.
void say(const std::string& message);

/// As say(), for a process that must end now: not at all when standard error would keep it waiting.
void sayAtOnce(const std::string& message);

/// Keeps `line` as the last one of the terminal, below what is said; an empty one is no line. Any thread.
void showStatus(const std::string& line);

/// As a terminal may have it: UTF-8 in which control characters and stray bytes are written out, as \x1B.
std::string printable(const std::string& text);

/// At most so many characters of UTF-8, the last one "…" when some had to go.
std::string cut(const std::string& text, std::size_t characters);

/// "3:07.5" or "1:03:07.5".
std::string clockTime(double seconds);

}  // namespace tavrin::tool
