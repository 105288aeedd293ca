/// @file
/// What became of a song, as a JSON object: for programs, and for the next run.
///
/// It has "status" ("done", "skipped" or "failed"), what wantedRecord() gives, and, unless the song failed, "outputs",
/// "damaged" and "warnings"; the manual page lists all of it.
#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "separate/models.h"
#include "separate/names.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

using Json = nlohmann::ordered_json;

/// A file's path, and its size and time unless it is something else than a regular file.
Json fileRecord(const std::filesystem::path& file);

/// What the record of a song has to say for its results to be up to date: song, models and options.
Json wantedRecord(const Options& options, const LoadedModels& models, const Song& song);

/// One line of it; bytes that are not UTF-8 are replaced.
std::string asText(const Json& record);

/// What an earlier run left; null when there is none that can be read.
Json readRecord(const std::filesystem::path& file);

/// Completes the record of a song from an earlier one, provided that models, options, song and results are still the
/// same. @param audio gives the digest of the song's samples; asked when all is the same but the song's path or time.
/// @return whether they are.
bool takeOver(Json& record, const Json& earlier, const Targets& targets, const std::function<std::string()>& audio);

}  // namespace tavrin::tool
