/// @file
/// The progress bar.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace tavrin::tool {

/// A bar for all songs of a run, with the time left and a song that is being separated, on the last line of the
/// terminal, however narrow that is. Shows nothing when standard error is not a terminal; wiped out by the destructor.
class Progress {
public:
    Progress(std::size_t songs, bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// How far a song has come; at its destruction it is done. Songs may run on several threads.
    class Song {
    public:
        Song(Progress& progress, std::string name) : _progress(progress), _name(std::move(name)) {}
        ~Song() { _progress.advance(1 - _share, true, _name); }
        Song(const Song&) = delete;
        Song& operator=(const Song&) = delete;

        /// @param length of the song in samples per channel; 0 when it is not known.
        void show(std::int64_t samplesDone, std::int64_t length);

    private:
        Progress& _progress;
        std::string _name;
        double _share = 0;
    };

private:
    void advance(double songs, bool isFinished, const std::string& name);
    std::string line(const std::string& name) const;

    const std::size_t _songs;
    const bool _isVisible;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    std::mutex _turn;
    double _done = 0;  // songs
    std::size_t _finished = 0;
};

}  // namespace tavrin::tool
