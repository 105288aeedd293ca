/// @file
/// Writes one stem or rest.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/audio_format.h"
#include "audio/audio_place.h"
#include "audio/tags.h"

namespace tavrin::tool {

struct AudioOutput {
    AudioPlace place{};  ///< a path is created or emptied; a descriptor may be a pipe
    const AudioFormat* format = nullptr;
    std::optional<double> quality{};  ///< within AudioFormat::quality; none: the normal one
    int rate = 44100;                 ///< of the samples that come
    int channels = 2;                 ///< of the file; for 1 the left samples are taken
    Tags tags{};                      ///< what the container has no place for is left out
    Picture picture{};

    /// 16-bit formats: which noise is added before rounding. A stem and its rest get opposite noise (1 and -1), so that
    /// their sum stays within one step of the song; stems of one song get different numbers. 0: none.
    int dither = 1;
};

/// Takes interleaved stereo samples and encodes them. The file has exactly as many samples as were written; what a
/// lossy encoder adds in front and behind is noted in the file, and players that honour it (like AudioReader) leave it
/// out.
///
/// A pipe gets WAV, FLAC, Ogg and raw samples as they come. MP3 and M4A need their first bytes last, so they are kept
/// in an unnamed temporary file until finish(). WAV beyond 4 GiB becomes RF64, in a pipe it has an open length.
///
/// Integer formats round to the nearest step; samples beyond full scale are set to full scale and counted. Whether that
/// may happen is the caller's decision: see peak().
class AudioWriter {
public:
    /// @throws AudioError unwritable, interrupted.
    explicit AudioWriter(const AudioOutput& output);
    /// Without finish() an incomplete file stays behind: removing it is the caller's.
    ~AudioWriter();
    AudioWriter(AudioWriter&&) noexcept;
    AudioWriter& operator=(AudioWriter&&) noexcept;

    /// @throws AudioError unwritable, readerGone, interrupted. A sample that is not finite is unwritable.
    void write(std::span<const float> samples);

    /// Encodes what is withheld and completes the headers; the file is closed when it was opened here.
    void finish();

    int rate() const;              ///< of the file: AudioFormat::rateFor(); tell the user when it is not the song's
    double peak() const;           ///< largest absolute sample so far, before any rounding
    std::int64_t clipped() const;  ///< samples so far that were set to full scale, both channels counted
    const std::vector<std::string>& messages() const;  ///< see AudioReader::messages()

private:
    class Implementation;
    std::unique_ptr<Implementation> _implementation;
};

}  // namespace tavrin::tool
