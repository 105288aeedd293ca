/// @file
/// The songs of a run.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavrin::tool {

struct Song {
    std::filesystem::path file;
    std::filesystem::path folder;  ///< the song's own, as {folder} has it; empty: the one that holds all
    bool isPipe = false;           ///< standard input; the file is empty then

    std::string name() const;   ///< names its results: no folder, no control characters, neither "." nor ".."
    std::string label() const;  ///< for messages
};

/// One path for a file however it is named, whether it is there or not.
std::filesystem::path identityOf(const std::filesystem::path& file);

/// The songs that the user's words stand for, each once: folders are searched with all that is in them, links
/// followed, in the order of the names; hidden files and the folder of the results are left out.
/// @param given files, folders or pipeSign. @param results the folder of the results.
/// @param warnings receives a line for every folder that cannot be searched.
/// @throws Failure with ExitCode::inputUnreadable for a folder without songs; with ExitCode::wrongUsage when its
/// results would lie among the songs.
std::vector<Song> listSongs(const std::vector<std::string>& given, const std::filesystem::path& results,
                            std::vector<std::string>& warnings);

}  // namespace tavrin::tool
