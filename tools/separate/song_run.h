/// @file
/// The separation of one song.
#pragma once

#include <functional>
#include <string>

#include "separate/models.h"
#include "separate/options.h"

namespace tavrin::tool {

struct SongOutcome {
    std::string message;  ///< what to tell the user
    Json record;          ///< for programs, and for the next run; also of a song that failed
};

/// Separates a song and writes its results, unless they are up to date. Songs may run on several threads.
/// @param show hears how much of the song is done, from 0 to 1.
/// @return also when it fails. @throws readerGone(), when the whole run is to end.
SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song,
                         const std::function<void(double)>& show);

/// One line; bytes that are not UTF-8 are replaced.
std::string asText(const Json& record);

}  // namespace tavrin::tool
