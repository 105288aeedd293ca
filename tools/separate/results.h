/// @file
/// The files that a song leaves behind: all of them, or none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/byte_stream.h"
#include "common/hidden_file.h"
#include "separate/models.h"
#include "separate/options.h"
#include "separate/songs.h"
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
    void write(Parts parts);

    /// Gives the files their names. The record receives "gain", "outputs" in the order of Targets::files(), without
    /// what is to be said of any file, and "warnings".
    void publish(Json& record);

private:
    struct Part {
        Target target;
        float peak = 0;                    // largest magnitude as separated; 1 is full scale
        std::int64_t clipped = 0;          // samples that were set to full scale
        std::unique_ptr<HiddenFile> file;  // none: standard output
        std::unique_ptr<AudioWriter> writer;
        FileHandle waiting{nullptr, std::fclose};  // samples for the gain of all parts
    };

    void write(Part& part, std::vector<float>& samples);
    float applyGain();

    const OutputOptions& _options;
    const int _rate;      // of the song
    const int _channels;  // of the song and of the files
    std::vector<Part> _parts;
    std::unique_ptr<HiddenFile> _pictureFile;
    std::optional<SpectrogramPicture> _picture;
};

}  // namespace tavrin::tool
