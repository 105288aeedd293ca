/// @file
/// What became of a song: for the user, for programs, and for the next run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/failure.h"
#include "separate/models.h"
#include "separate/names.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

struct PartReport {
    std::string name;
    std::filesystem::path file;  ///< empty: standard output
    float peak = 0;              ///< largest magnitude as separated; 1 is full scale
    std::int64_t clipped = 0;    ///< samples that were set to full scale

    std::string label() const { return file.empty() ? "standard output" : file.string(); }  ///< for messages
};

struct SongReport {
    enum class Status { done, skipped, failed };

    Song song;
    Status status = Status::failed;
    nlohmann::ordered_json wanted;  ///< what wantedRecord() gave
    std::string audio;              ///< digest of the samples that were separated
    std::vector<PartReport> parts;
    std::filesystem::path picture;      ///< empty: none
    int rate = 0;                       ///< samples per second
    double seconds = 0;                 ///< of music
    double elapsed = 0;                 ///< seconds that it took
    float gain = 1;                     ///< factor of all parts
    std::string provider;               ///< that ran the model
    bool isDamaged = false;             ///< something of the song could not be read
    std::vector<std::string> warnings;  ///< for the user
    ExitCode code = ExitCode::done;     ///< of a failure, with its message
    std::string message;

    /// Of a song that is done.
    double timesRealTime() const { return elapsed > 0 ? seconds / elapsed : 0; }
};

/// One line for the user.
std::string describe(const SongReport& report);

/// What the report of a song would have to say for its results to be up to date: song, models and options.
nlohmann::ordered_json wantedRecord(const Options& options, const LoadedModels& models, const Song& song);

/// The report as a JSON object: the record beside the results, and what --json prints. Of files that are there it has
/// size and time.
nlohmann::ordered_json recordOf(const SongReport& report);

/// One line of it; bytes that are not UTF-8 are replaced.
std::string asText(const nlohmann::ordered_json& record);

/// Whether models, options, song and results are still those of a record.
/// @param record as readRecord() gave it. @param audio gives the digest of the song's samples; asked when all is the
/// same but the song's path or time.
bool isUpToDate(const nlohmann::ordered_json& record, const nlohmann::ordered_json& wanted, const Targets& targets,
                const std::function<std::string()>& audio);

/// What an earlier run left; null when there is none that can be read.
nlohmann::ordered_json readRecord(const std::filesystem::path& file);

}  // namespace tavrin::tool
