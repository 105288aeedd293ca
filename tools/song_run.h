/// @file
/// The separation of one song.
#pragma once

#include "options.h"
#include "progress.h"
#include "song_report.h"
#include "stem_stream.h"
#include "work_list.h"

namespace tavrin::tool {

/// Separates a song and writes its results, unless it has newer ones already. Songs may run on several threads.
/// @return also when it fails. @throws Failure only when the whole run is to end: with ExitCode::interrupted, or as
/// readerGone().
SongReport separateSong(const Options& options, const Model& model, const Song& song, Progress& progress);

}  // namespace tavrin::tool
