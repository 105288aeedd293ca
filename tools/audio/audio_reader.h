/// @file
/// Reads a song block by block.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "audio/byte_stream.h"
#include "audio/ffmpeg.h"
#include "audio/resampler.h"
#include "common/failure.h"

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
/// Every format is exact to the sample: what the encoder's header, an edit list or a last page says about padding is
/// obeyed, and `start` counts decoded samples. Playlists and other files that name files are not followed.
/// Threads: one reader, one thread at a time; several readers on several threads. Nothing is printed.
class AudioReader {
public:
    /// Opens the song and leaves out what is before `start`.
    /// @throws Failure with ExitCode::inputUnreadable: no audio, an unknown kind of it, or more than two channels;
    /// with ExitCode::wrongUsage when the song ends before `start`.
    explicit AudioReader(const AudioInput& input);

    int rate() const { return _rate; }          ///< samples per second
    int channels() const { return _channels; }  ///< of the song: 1 or 2; read() gives two anyway
    const Tags& tags() const { return _tags; }
    const Picture& picture() const { return _picture; }

    /// Samples per channel of the wanted part, as announced, in some formats roughly; none when the song does not say.
    std::optional<std::int64_t> length() const;

    /// @return the next block, of a tenth of a second or so; an empty one at the end. Damage is no exception.
    std::vector<float> read();

    // What came up so far; all of it is known when read() has returned an empty block.

    /// In the wanted part, in the order of time.
    const std::vector<Damage>& damage() const { return _damage; }
    /// Only told when the song was read to its end.
    const std::optional<WrongLength>& wrongLength() const { return _wrongLength; }
    bool isDamaged() const { return !_damage.empty() || _wrongLength; }
    /// How many samples were infinite or not a number. They are read as silence.
    std::int64_t notFinite() const { return _notFinite; }
    /// What FFmpeg's libraries had to say, a line each, at most a hundred. May hold control characters from the song.
    const std::vector<std::string>& messages() const { return _log.lines; }

private:
    Failure unreadable(const std::string& reason, const std::string& nextStep) const;
    void open();
    FormatHandle openContainer(bool withEdits);
    void openDecoder();

    void decode(std::size_t least);
    void feed();
    void take(const AVFrame& frame);
    void fillGap(std::int64_t gap, const AVFrame& frame);
    void convert(const std::uint8_t** data, int count);
    void keepWanted(std::size_t before);
    void end();
    bool failed(int result);
    void note(double from, const std::string& reason);
    std::int64_t claim() const;
    double seconds(std::int64_t samples) const { return static_cast<double>(samples) / _rate; }
    std::int64_t samples(std::int64_t ticks) const { return av_rescale_q(ticks, _stream->time_base, {1, _rate}); }

    AudioInput _input;
    int _rate = 0;
    int _channels = 0;
    Tags _tags;
    Picture _picture;
    std::vector<Damage> _damage;
    std::optional<WrongLength> _wrongLength;
    std::int64_t _notFinite = 0;

    LibraryLog _log;
    ByteStream _bytes;
    FormatHandle _format;
    AVStream* _stream = nullptr;
    CodecHandle _decoder;
    PacketHandle _packet{allocated(av_packet_alloc())};
    FrameHandle _frame{allocated(av_frame_alloc())};
    std::optional<Resampler> _converter;  // to the song's rate when that changes on the way
    std::array<int, 3> _kind{};           // of the frames that it was made for: format, rate, channels

    // Samples per channel, counted from the song's beginning.
    static constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();
    std::int64_t _position = 0;                  // next to be decoded
    std::int64_t _from = 0, _until = unlimited;  // wanted part
    std::int64_t _limit = unlimited;             // what the container counts as song
    std::vector<float> _ready;
    bool _isOver = false;

    std::int64_t _expected = AV_NOPTS_VALUE;  // time stamp of the next frame if nothing is missing
    bool _hasFailed = false;                  // since the last frame
    std::size_t _errorsSeen = 0;              // lines of the log
    int _failedReads = 0;

    // What comes, as the container counts it.
    std::int64_t _ticks = 0, _lastTicks = 0;  // end of the last packet, and its length
    std::int64_t _packetBytes = 0;
    bool _isCutOff = false;  // the last packet
};

}  // namespace tavrin::tool
