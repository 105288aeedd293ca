/// @file
/// The files that a song leaves behind: all of them, or none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "hidden_file.h"
#include "options.h"
#include "part_sink.h"
#include "song_report.h"
#include "spectrogram_picture.h"
#include "stem_stream.h"
#include "targets.h"

namespace tavrin::tool {

/// Folders that are there; those that had to be made are removed again unless they are used in the end.
class OutputFolders {
public:
    OutputFolders() = default;
    ~OutputFolders();
    OutputFolders(const OutputFolders&) = delete;
    OutputFolders& operator=(const OutputFolders&) = delete;

    /// @throws Failure with ExitCode::writeFailed.
    void make(const std::filesystem::path& folder);

private:
    std::vector<std::filesystem::path> _made;  // outer ones first
};

/// The results of one song: its stems, the rest, and a picture of them.
class Results {
public:
    /// @throws Failure with ExitCode::writeFailed, as the other members do; with ExitCode::wrongUsage when a result
    /// would replace the song itself.
    Results(const Options& options, const Song& song, const Targets& targets, int rate, std::int64_t frames,
            const Tags& tags);

    /// @param parts as Separation returns them; those that the user does not want are dropped.
    /// @throws Failure with ExitCode::writeFailed, too, for samples that the format cannot hold and that are to stay
    /// as they are.
    void write(const Parts& parts);

    /// Gives the files their names, and the report what it needs to know of them.
    void publish(SongReport& report);

private:
    struct Part {
        Target target;
        std::unique_ptr<PartSink> sink;
        float peak = 0;
        std::int64_t clipped = 0;
    };

    void openPart(const Target& target, const Song& song, int rate, std::int64_t frames, const Tags& tags);
    void write(Part& part, std::vector<float> samples);
    float gain() const;

    const Options& _options;
    OutputFolders _folders;
    std::vector<Part> _parts;
    std::unique_ptr<HiddenFile> _pictureFile;
    std::optional<SpectrogramPicture> _picture;
};

}  // namespace tavrin::tool
