/// @file
/// Reads a song block by block.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_place.h"
#include "audio/tags.h"

namespace tavrin::tool {

/// Samples without a header.
struct RawAudio {
    std::string format = "f32le";  ///< s16le, s24le, s32le, f32le, ...: any that isRawFormat() knows
    int rate = 44100;
    int channels = 2;
};

/// Whether RawAudio::format can be this.
bool isRawFormat(const std::string& format);

struct AudioInput {
    AudioPlace place{};
    std::optional<RawAudio> raw{};
    double start = 0;  ///< seconds; rounded to a sample of the song
    double duration = std::numeric_limits<double>::infinity();
};

/// A stretch of a song in which something could not be decoded. It is silent or whatever the decoder made of it, and
/// where the container keeps time nothing behind it has moved.
struct Damage {
    double from = 0;     ///< seconds in the song; errors less than a second apart are one damage
    double to = 0;       ///< not before `from`
    int errors = 0;      ///< how many
    std::string reason;  ///< of the first
};

/// A song's header announces one length and its audio has another.
struct WrongLength {
    double claimed = 0;  ///< seconds, of the whole song
    double actual = 0;
};

/// The wanted part of a song as interleaved stereo samples at the song's own rate, wherever it comes from; mono becomes
/// two equal channels. Reads whatever FFmpeg's libraries read, of a video the first audio stream, also from a pipe.
///
/// Every format is exact to the sample: what the encoder's header, an edit list or a last page says about padding is
/// obeyed, and `start` counts decoded samples. Playlists and other files that name files are not followed.
///
/// Threads: one reader, one thread at a time; several readers on several threads. Nothing is printed.
///
///     AudioReader song({.place = {.path = "song.mp3"}});
///     for (auto block = song.read(); !block.empty(); block = song.read()) use(block);
///     if (song.isDamaged()) warn(song.damage(), song.wrongLength());
class AudioReader {
public:
    /// Opens the song and leaves out what is before `start`.
    /// @throws AudioError unreadable, startBeyondEnd, interrupted.
    explicit AudioReader(const AudioInput& input);
    ~AudioReader();
    AudioReader(AudioReader&&) noexcept;
    AudioReader& operator=(AudioReader&&) noexcept;

    int rate() const;      ///< samples per second
    int channels() const;  ///< of the song: 1 or 2; read() gives two anyway
    const Tags& tags() const;
    const Picture& picture() const;

    /// Samples per channel of the wanted part, as announced; none when the song does not say. For MP3 and formats
    /// without a header it is an estimate: only read() knows.
    std::optional<std::int64_t> length() const;

    /// @return the next block, of a tenth of a second or so; an empty one at the end.
    /// @throws AudioError interrupted. Damage is no exception: see damage().
    std::vector<float> read();

    // What came up so far; all of it is known when read() has returned an empty block.

    /// In the wanted part, in the order of time.
    const std::vector<Damage>& damage() const;
    /// Only told when the song was read to its end.
    const std::optional<WrongLength>& wrongLength() const;
    bool isDamaged() const { return !damage().empty() || wrongLength(); }
    /// How many samples were infinite or not a number. They are read as silence.
    std::int64_t notFinite() const;
    /// What FFmpeg's libraries had to say, a line each, at most a hundred. May hold control characters from the song.
    const std::vector<std::string>& messages() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> _implementation;
};

}  // namespace tavrin::tool
