/// @file
/// The separation of one song.
#pragma once

#include <string>

#include "separate/models.h"
#include "separate/options.h"
#include "separate/progress.h"
#include "separate/record.h"

namespace tavrin::tool {

struct SongOutcome {
    std::string message;  ///< what to tell the user
    Json record;          ///< also of a song that failed
};

/// Separates a song and writes its results, unless they are up to date. Songs may run on several threads.
/// @return also when it fails. @throws readerGone(), when the whole run is to end.
SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song, Progress& progress);

}  // namespace tavrin::tool
