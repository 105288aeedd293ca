/// @file
/// What the user reads while a command works. All of it goes to standard error: standard output is left to scripts.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tavrin::tool {

/// The program's name, which begins every line. To be called first.
void setSpeaker(const char* program);

/// Prints one line. Any thread.
void say(const std::string& message);

/// As say(), for a process that must end now: not at all when standard error would keep it waiting.
void sayAtOnce(const std::string& message);

/// A bar for all songs of a run, with the time left and a song that is being separated, on the last line of the
/// terminal, however narrow that is, below what is said. Shows nothing when standard error is not a terminal; wiped out
/// by the destructor.
class Progress {
public:
    Progress(std::size_t songs, bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// One of the songs, of which a share of `before` was done, has come to `now`; 1 is its end. Any thread.
    void show(const std::string& song, double before, double now);

private:
    std::string line(const std::string& song) const;

    const std::size_t _songs;
    const bool _isVisible;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    double _done = 0;  // songs
    std::size_t _finished = 0;
};

/// As a terminal may have it: UTF-8 in which control characters and stray bytes are written out, as \x1B.
std::string printable(const std::string& text);

/// "3:07.5" or "1:03:07.5".
std::string clockTime(double seconds);

}  // namespace tavrin::tool
