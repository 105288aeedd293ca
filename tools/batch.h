/// @file
/// All songs of a run.
#pragma once

#include <vector>

#include "failure.h"
#include "options.h"
#include "stem_stream.h"
#include "work_list.h"

namespace tavrin::tool {

/// Separates the songs, options.jobs at a time, and tells the user of each. One that fails does not keep the others
/// from being separated.
/// @return ExitCode::done; of a single song what it failed with; ExitCode::someSongsFailed of several.
/// @throws Failure as separateSong(), after the songs that run have come to an end.
ExitCode separateSongs(const Options& options, const Model& model, const std::vector<Song>& songs);

}  // namespace tavrin::tool
