/// @file
/// The files that a song leaves behind: all of them, or none.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/byte_stream.h"
#include "common/hidden_file.h"
#include "separate/names.h"
#include "separate/options.h"
#include "separate/record.h"
#include "spectrogram/spectrogram.h"
#include "stems/separation.h"

namespace tavrin::tool {

/// The results of one song: its stems, the rest, and a picture of them.
class Results {
public:
    /// @param song gives rate, channels, tags and cover. @throws Failure with ExitCode::writeFailed, as the
    /// other members.
    Results(const OutputOptions& options, const Song& source, const Targets& targets, const AudioReader& song,
            double start);

    /// @param parts as Separation returns them; those that the user does not want are dropped.
    /// @throws also for samples that the format cannot hold and that are to stay as they are.
    void write(const Parts& parts);

    /// Gives the files their names. The report receives what there is to say of them.
    void publish(SongReport& report);

private:
    struct Part {
        std::size_t place = 0;             // among the parts that Separation returns
        int channels = 0;                  // of the file
        PartReport report;                 // so far
        std::unique_ptr<HiddenFile> file;  // none: standard output
        std::unique_ptr<AudioWriter> writer;
        FileHandle waiting{nullptr, std::fclose};  // samples for the gain of all parts
    };

    void openPart(const Target& target, const Song& source, const AudioReader& song);
    void write(Part& part, std::vector<float> samples);
    float applyGain();

    const OutputOptions& _options;
    std::vector<Part> _parts;
    std::unique_ptr<HiddenFile> _pictureFile;
    std::optional<SpectrogramPicture> _picture;
};

}  // namespace tavrin::tool
