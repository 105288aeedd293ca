/// @file
/// The songs of a run.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "options.h"

namespace tavrin::tool {

struct Song {
    std::filesystem::path file;    ///< or pipeSign
    std::filesystem::path folder;  ///< the song's own within the folder that the user gave; empty: directly in it

    bool isPipe() const { return file == pipeSign; }
    std::string name() const { return isPipe() ? "stdin" : file.stem().string(); }     ///< names its results
    std::string label() const { return isPipe() ? "standard input" : file.string(); }  ///< for messages
};

/// One path for a file however it is named, whether it is there or not.
std::filesystem::path identityOf(const std::filesystem::path& file);

/// The songs that options.songs stands for, each once: folders are searched with all that is in them, in the order of
/// the names. The folder of the results is left out.
/// @throws Failure with ExitCode::inputUnreadable for a folder that cannot be searched or has no songs; with
/// ExitCode::wrongUsage when its results would lie among the songs.
std::vector<Song> listSongs(const Options& options);

}  // namespace tavrin::tool
