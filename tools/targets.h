/// @file
/// Which files a song becomes.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "options.h"
#include "work_list.h"

namespace tavrin::tool {

/// A part of a song that the user wants.
struct Target {
    std::size_t part;  ///< its place among the parts that Separation returns
    std::string name;  ///< "vocals", "rest"; of a model with a single output the name of its file
    std::filesystem::path file;
};

struct Targets {
    std::vector<Target> parts;
    std::filesystem::path picture;  ///< empty: none is wanted

    std::vector<std::filesystem::path> files() const;
    /// Whether all of them are there, none older than the song.
    bool areNewerThan(const std::filesystem::path& song) const;
};

/// As options.name says.
Targets targetsOf(const Options& options, const Song& song);

/// @throws Failure with ExitCode::wrongUsage when two results would get the same name, or one that of a song.
void requireDistinctTargets(const Options& options, const std::vector<Song>& songs);

}  // namespace tavrin::tool
