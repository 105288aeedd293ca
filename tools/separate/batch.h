/// @file
/// All songs of a run.
#pragma once

#include <vector>

#include "common/failure.h"
#include "separate/models.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

/// Separates the songs, options.jobs at a time, and tells the user of each. One that fails does not keep the others
/// from being separated.
/// @return ExitCode::done; of a single song what it failed with; ExitCode::someSongsFailed of several;
/// ExitCode::songsDamaged when all were separated, but not all could be read without loss.
/// @throws readerGone(), Failure when standard output fails.
ExitCode separateSongs(const Options& options, const LoadedModels& models, const std::vector<Song>& songs);

}  // namespace tavrin::tool
