/// @file
/// The songs of a run, and the files that they become.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "separate/options.h"

namespace tavrin::tool {

struct Song {
    std::filesystem::path file;          ///< pipeSign: standard input
    std::filesystem::path folder = ".";  ///< the song's own, below the one that holds all

    bool isPipe() const { return file == pipeSign; }
    std::string name() const;  ///< names its results: no folder, no control characters, neither "." nor ".."
    std::string label() const { return isPipe() ? "standard input" : file.string(); }  ///< for messages
};

/// What the parts of every song of a run are called.
struct PartNames {
    std::vector<std::string> stems;
    std::string group;  ///< of all stems together: their names, or the model's when it has several and all are wanted
};

/// A part of a song that the user wants.
struct Target {
    std::size_t part;            ///< its place among the parts that Separation returns
    std::string name;            ///< "vocals", "rest"
    std::filesystem::path file;  ///< pipeSign: standard output

    std::string label() const { return file == pipeSign ? "standard output" : file.string(); }  ///< for messages
};

/// What a song becomes. A rest, a picture and a record belong to their stems and carry their names: two models in one
/// folder leave two rests, "centre.rest.wav" and "percussive.rest.wav", and no pair that does not belong together.
struct Targets {
    std::vector<Target> parts;
    std::filesystem::path picture;  ///< empty: none is wanted
    std::filesystem::path record;   ///< empty: none is wanted

    std::vector<std::filesystem::path> files() const;
};

/// The songs that the user's words stand for, each once: folders are searched with all that is in them, links
/// followed, in the order of the names; hidden files and the folder of the results are left out. A folder that cannot
/// be searched is told the user. @param given files, folders or pipeSign. @param results the folder of the results.
/// @throws Failure with ExitCode::inputUnreadable for a folder without songs; with ExitCode::wrongUsage when its
/// results would lie among the songs.
std::vector<Song> listSongs(const std::vector<std::string>& given, const std::filesystem::path& results);

/// As output.name says, in which {part} is {stem} without the stems' names before "rest".
/// @throws Failure with ExitCode::wrongUsage for a template that names no file or has an unknown {word}.
Targets targetsOf(const OutputOptions& output, const PartNames& names, const Song& song);

/// @throws Failure with ExitCode::wrongUsage when two results would get the same name, or one that of a song.
void requireDistinctTargets(const OutputOptions& output, const PartNames& names, const std::vector<Song>& songs);

/// One path for a file however it is named, whether it is there or not.
std::filesystem::path identityOf(const std::filesystem::path& file);

/// A name as part of a file's: without slashes and control characters.
std::string asFileName(std::string name);

/// A list of names.
std::string joined(const std::vector<std::string>& names, const char* between);

}  // namespace tavrin::tool
