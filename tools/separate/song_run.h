/// @file
/// The separation of one song, and its record.
#pragma once

#include <string>

#include "common/messages.h"
#include "separate/models.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

struct SongOutcome {
    std::string message;  ///< for the user
    Json record;          ///< for programs, and for the next run; also of a song that failed
};

/// Separates a song and writes its results, unless they are up to date. Any thread.
/// @return also when that fails. @throws readerGone(), when the whole run is to end.
SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song, Progress& progress);

/// A record in one line; bytes that are not UTF-8 are replaced.
std::string asText(const Json& record);

}  // namespace tavrin::tool
