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
#include "audio/byte_stream.h"
#include "audio/ffmpeg.h"
#include "audio/resampler.h"
#include "common/failure.h"

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
/// out. Its rate is AudioFormat::rateFor(). Integer formats round to the nearest step; samples beyond full scale are
/// set to full scale.
/// A pipe gets WAV, FLAC, Ogg and raw samples as they come. MP3 and M4A need their first bytes last, so they are kept
/// in an unnamed temporary file until finish(). WAV beyond 4 GiB becomes RF64, in a pipe it has an open length.
class AudioWriter {
public:
    /// @throws Failure with ExitCode::writeFailed.
    explicit AudioWriter(const AudioOutput& output);

    /// @throws readerGone(), Failure with ExitCode::writeFailed, also for a sample that is not finite.
    void write(std::span<const float> samples);

    /// Encodes what is withheld and completes the headers; the file is closed when it was opened here. Without it an
    /// incomplete file stays behind: removing it is the caller's.
    void finish();

private:
    Failure unwritable(const std::string& reason, const std::string& nextStep = "choose another --format") const;
    void check(int result);
    void openEncoder();
    void openFile();
    void addPicture();
    std::span<const float> encode(std::span<const float> samples, bool isEnd = false);
    void fill(AVFrame& frame, const float* samples);
    void send(const AVFrame* frame);

    LibraryLog _log;
    AudioOutput _output;
    const AudioFormat& _kind;
    ByteStream _bytes;
    std::unique_ptr<AVFormatContext, decltype(&avformat_free_context)> _format{nullptr, avformat_free_context};
    CodecHandle _encoder;
    AVStream* _stream = nullptr;
    PacketHandle _packet{allocated(av_packet_alloc())};
    FrameHandle _frame{allocated(av_frame_alloc())};
    Resampler _resampler;
    std::uint32_t _noise;         // the state of the dither's random numbers
    std::vector<float> _waiting;  // stereo, for a whole frame
    std::int64_t _packets = 0;
};

}  // namespace tavrin::tool
