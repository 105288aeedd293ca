/// @file
/// Which files a song becomes.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

/// What the parts of every song of a run are called.
struct PartNames {
    std::vector<std::string> stems;
    std::string group;  ///< of all stems together: their names, or the model's when it has several and all are wanted
};

/// A part of a song that the user wants.
struct Target {
    std::size_t part;            ///< its place among the parts that Separation returns
    std::string name;            ///< "vocals", "rest"
    std::filesystem::path file;  ///< empty: standard output

    std::string label() const { return file.empty() ? "standard output" : file.string(); }  ///< for messages
};

/// What a song becomes. A rest, a picture and a record belong to their stems and carry their names: two models in one
/// folder leave two rests, "centre.rest.wav" and "percussive.rest.wav", and no pair that does not belong together.
struct Targets {
    std::vector<Target> parts;
    std::filesystem::path picture;  ///< empty: none is wanted
    std::filesystem::path record;   ///< empty: none is wanted

    std::vector<std::filesystem::path> files() const;
};

/// As output.name says, in which {part} is {stem} without the stems' names before "rest".
Targets targetsOf(const OutputOptions& output, const PartNames& names, const Song& song);

/// @throws Failure with ExitCode::wrongUsage when two results would get the same name, or one that of a song.
void requireDistinctTargets(const OutputOptions& output, const PartNames& names, const std::vector<Song>& songs);

/// @throws Failure with ExitCode::wrongUsage for a template that names no file or has an unknown {word}.
void requireUsableTemplate(const OutputOptions& output);

/// The fixed ending of a template, without its dot; empty: none.
std::string endingOf(const std::string& name);

/// A list of names.
std::string joined(const std::vector<std::string>& names, const char* between);

/// A name as part of a file's: without slashes and control characters.
std::string asFileName(std::string name);

}  // namespace tavrin::tool
