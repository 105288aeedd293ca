/// @file
/// The files that a run leaves behind: all of them, or none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "audio_writer.h"
#include "options.h"
#include "stem_stream.h"

namespace tavrin::tool {

/// A folder that is there; the part of its path that had to be made is removed again unless it is used in the end.
class OutputFolder {
public:
    /// @throws Failure with ExitCode::writeFailed.
    explicit OutputFolder(const std::filesystem::path& folder);
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

private:
    OutputFolder() = default;

    std::vector<std::filesystem::path> _made;  // outermost first
};

/// The results of one song in folder/<name of the song>/: its stems, and the rest. The stem of a model with a single
/// output is named after the model's file.
class Results {
public:
    /// @throws Failure with ExitCode::writeFailed, as the other members do; with ExitCode::wrongUsage when a result
    /// would replace the song itself.
    Results(const Options& options, int rate, std::int64_t frames);

    /// @param parts as Separation returns them; those that the user does not want are dropped.
    void write(const Parts& parts);

    /// Gives the files their names. @return one text for the user that names them.
    std::string publish();

private:
    OutputFolder _folder;
    std::map<std::size_t, AudioWriter> _files;  // by the index of the part
};

}  // namespace tavrin::tool
