/// @file
/// What became of a song.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "failure.h"
#include "work_list.h"

namespace tavrin::tool {

struct PartReport {
    std::string name;
    std::filesystem::path file;
    float peak = 0;            ///< largest magnitude as separated; 1 is full scale
    std::int64_t clipped = 0;  ///< samples that were set to full scale
};

struct SongReport {
    enum class Status { done, skipped, failed };

    Song song;
    Status status = Status::failed;
    std::vector<PartReport> parts;
    std::filesystem::path picture;      ///< empty: none
    int rate = 0;                       ///< samples per second
    double seconds = 0;                 ///< of music
    double elapsed = 0;                 ///< seconds that it took
    float gain = 1;                     ///< factor of all parts
    std::string provider;               ///< that ran the model
    std::vector<std::string> warnings;  ///< for the user
    ExitCode code = ExitCode::done;     ///< of a failure, with its message
    std::string message;

    /// Of a song that is done.
    double timesRealTime() const { return elapsed > 0 ? seconds / elapsed : 0; }
};

/// One line for the user.
std::string describe(const SongReport& report);

/// One line for programs: a JSON object.
std::string toJson(const SongReport& report);

}  // namespace tavrin::tool
