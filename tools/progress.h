/// @file
/// The progress bar.
#pragma once

#include <chrono>
#include <cstdint>

namespace tavrin::tool {

/// A bar with the time left on the last line of the terminal. Shows nothing when standard error is not a terminal, or
/// when the length of the song is not known; wiped out by the destructor.
class Progress {
public:
    /// @param totalFrames length of the song, or SongReader::unknownLength.
    Progress(std::int64_t totalFrames, bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::int64_t framesDone);

    double seconds() const;  ///< since construction

private:
    std::int64_t _totalFrames;
    bool _visible;
    std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
};

}  // namespace tavrin::tool
