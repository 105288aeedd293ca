/// @file
/// The progress bar.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace tavrin::tool {

/// A bar for all songs of a run, with the time left, on the last line of the terminal. Shows nothing when standard
/// error is not a terminal, or when the only song has no known length; wiped out by the destructor.
class Progress {
public:
    Progress(std::size_t songs, bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// How far a song has come; at its destruction it is done. Songs may run on several threads.
    class Song {
    public:
        explicit Song(Progress& progress) : _progress(progress) {}
        ~Song() { _progress.advance(1 - _share, true); }
        Song(const Song&) = delete;
        Song& operator=(const Song&) = delete;

        /// @param frames the song's length, or unknownLength.
        void show(std::int64_t framesDone, std::int64_t frames);

    private:
        Progress& _progress;
        double _share = 0;
    };

private:
    void advance(double songs, bool finished);
    void show() const;

    const std::size_t _songs;
    const bool _visible;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    std::mutex _turn;
    double _done = 0;  // songs
    std::size_t _finished = 0;
};

}  // namespace tavrin::tool
