#include "audio/audio_writer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "audio/audio_error.h"
#include "audio/byte_stream.h"
#include "audio/ffmpeg.h"
#include "audio/resampler.h"

namespace tavrin::tool {

namespace {

constexpr int freeFrameSize = 4096;  // samples per channel, for encoders that take any number

struct FreeFormat {
    void operator()(AVFormatContext* format) const { avformat_free_context(format); }
};

AVSampleFormat sampleFormat(const AudioFormat& format) {
    if (format.bits == 16) return AV_SAMPLE_FMT_S16;
    if (format.bits == 24) return AV_SAMPLE_FMT_S32;
    const std::string encoder = format.encoder;
    return encoder == "pcm_f32le" || encoder == "libopus" ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_FLTP;
}

void appendNumber(std::string& bytes, std::size_t number) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFF);
}

// As Ogg files have it: a FLAC picture block in letters, among the tags.
std::string pictureTag(const Picture& picture) {
    std::string block;
    appendNumber(block, 3);  // front cover
    const std::string type = picture.codec == "png" ? "image/png" : "image/jpeg";
    appendNumber(block, type.size());
    block += type;
    appendNumber(block, 0);  // no description
    appendNumber(block, static_cast<std::size_t>(picture.width));
    appendNumber(block, static_cast<std::size_t>(picture.height));
    appendNumber(block, 24);  // bits per pixel
    appendNumber(block, 0);   // no palette
    appendNumber(block, picture.bytes.size());
    block.append(picture.bytes.begin(), picture.bytes.end());
    std::string text(AV_BASE64_SIZE(block.size()), '\0');
    av_base64_encode(text.data(), static_cast<int>(text.size()), reinterpret_cast<const std::uint8_t*>(block.data()),
                     static_cast<int>(block.size()));
    return text.c_str();
}

// Triangular noise of one step to either side: rounding then adds a steady hiss instead of distortion. The same seed
// gives the same noise, a negative one its opposite.
class Dither {
public:
    explicit Dither(int seed)
        : _sign(seed < 0   ? -1
                : seed > 0 ? 1
                           : 0),
          _state(static_cast<std::uint32_t>(std::abs(seed))) {}
    double next() { return _sign * (uniform() - uniform()); }

private:
    double uniform() {
        _state = _state * 1664525 + 1013904223;
        return _state / 4294967296.0;
    }

    int _sign;
    std::uint32_t _state;
};

}  // namespace

class AudioWriter::Implementation {
public:
    explicit Implementation(const AudioOutput& output);

    void write(std::span<const float> samples);
    void finish();

    LibraryLog log;
    int rate;
    double peak = 0;
    std::int64_t clipped = 0;

private:
    AudioError unwritable(const std::string& reason, const std::string& nextStep) const;
    void check(int result, const char* what);
    void openEncoder();
    void openFile();
    void addPicture();
    void writePicture();
    void encode(std::size_t least);
    void fill(AVFrame& frame, const float* samples);
    void send(const AVFrame* frame);

    AudioOutput _output;
    const AudioFormat& _kind;
    ByteStream _bytes;
    std::unique_ptr<AVFormatContext, FreeFormat> _format;
    CodecHandle _encoder;
    AVStream* _stream = nullptr;
    AVStream* _pictureStream = nullptr;
    PacketHandle _packet{allocated(av_packet_alloc())};
    Resampler _resampler;
    Dither _dither;
    std::vector<float> _waiting;  // stereo, for a whole frame
    std::int64_t _encoded = 0;    // samples per channel
    std::int64_t _packets = 0;
};

AudioWriter::Implementation::Implementation(const AudioOutput& output)
    : rate(output.format->rateFor(output.rate)),
      _output(output),
      _kind(*output.format),
      _bytes(output.place, ByteStream::Direction::out),
      _resampler(output.rate, rate),
      _dither(output.dither) {
    const LibraryLog::Scope scope(log);
    const std::string muxer = _kind.muxer;
    if (!_bytes.isSeekable() && (muxer == "mp3" || muxer == "ipod")) _bytes.spool();
    openEncoder();
    openFile();
}

AudioError AudioWriter::Implementation::unwritable(const std::string& reason, const std::string& nextStep) const {
    return {AudioError::Kind::unwritable,
            _output.place.label() + ": cannot be written as " + _kind.name + " (" + reason + "); " + nextStep};
}

void AudioWriter::Implementation::check(int result, const char* what) {
    _bytes.check();
    if (result >= 0) return;
    const std::string& reason = log.lastError();
    throw unwritable(std::string(what) + ": " + (reason.empty() ? errorText(result) : reason),
                     "choose another --format");
}

void AudioWriter::Implementation::openEncoder() {
    const AVCodec* codec = avcodec_find_encoder_by_name(_kind.encoder);
    if (!codec) {
        throw unwritable(std::string("this system's FFmpeg has no ") + _kind.encoder, "choose another --format");
    }
    _encoder.reset(allocated(avcodec_alloc_context3(codec)));
    _encoder->sample_rate = rate;
    _encoder->time_base = {1, rate};
    _encoder->sample_fmt = sampleFormat(_kind);
    if (_kind.bits == 24) _encoder->bits_per_raw_sample = 24;
    av_channel_layout_default(&_encoder->ch_layout, _output.channels);
    // Else the files name the version of the library, and Ogg files get a random number.
    _encoder->flags |= AV_CODEC_FLAG_BITEXACT;
    const AudioFormat::Quality& range = _kind.quality;
    const double quality = std::clamp(_output.quality.value_or(range.normal), range.least, range.most);
    const std::string encoder = _kind.encoder;
    if (encoder == "libvorbis" || encoder == "libmp3lame") {
        // With a fixed bit rate, LAME turns songs down by up to 5 %.
        _encoder->flags |= AV_CODEC_FLAG_QSCALE;
        _encoder->global_quality = static_cast<int>(std::lround(quality * FF_QP2LAMBDA));
    } else if (encoder == "flac") {
        _encoder->compression_level = static_cast<int>(quality);
    } else if (_kind.isLossy) {
        // One Opus channel takes half of the most.
        const double most = encoder == "libopus" ? 256.0 * _output.channels : range.most;
        _encoder->bit_rate = std::llround(std::min(quality, most) * 1000);
    }
}

void AudioWriter::Implementation::openFile() {
    AVFormatContext* format = nullptr;
    const std::string ending = std::string(".") + _kind.extension;  // which the M4A muxer misses otherwise
    check(avformat_alloc_output_context2(&format, nullptr, _kind.muxer, ending.c_str()), "container");
    _format.reset(format);
    format->pb = _bytes.context();
    format->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
    if (!_bytes.isSeekable()) format->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    if ((format->oformat->flags & AVFMT_GLOBALHEADER) != 0) _encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    check(avcodec_open2(_encoder.get(), nullptr, nullptr), "encoder");
    _stream = allocated(avformat_new_stream(format, nullptr));
    _stream->time_base = _encoder->time_base;
    check(avcodec_parameters_from_context(_stream->codecpar, _encoder.get()), "encoder");
    for (const auto& [name, text] : _output.tags) av_dict_set(&format->metadata, name.c_str(), text.c_str(), 0);
    addPicture();
    AVDictionary* options = nullptr;
    // In a pipe the length is open, which says nothing about 4 GiB.
    if (_bytes.isSeekable()) av_dict_set(&options, "rf64", "auto", 0);
    // MP4 notes the length in these steps, milliseconds otherwise.
    av_dict_set_int(&options, "movie_timescale", rate, 0);
    const int result = avformat_write_header(format, &options);
    av_dict_free(&options);
    check(result, "header");
    writePicture();
}

void AudioWriter::Implementation::addPicture() {
    const Picture& picture = _output.picture;
    const bool isKnown =
        (picture.codec == "png" || picture.codec == "mjpeg") && picture.width > 0 && picture.height > 0;
    const std::string muxer = _kind.muxer;
    if (!isKnown) return;
    if (_kind.isOgg()) {
        av_dict_set(&_format->metadata, "METADATA_BLOCK_PICTURE", pictureTag(picture).c_str(), 0);
    } else if (muxer == "mp3" || muxer == "ipod" || muxer == "flac") {
        _pictureStream = allocated(avformat_new_stream(_format.get(), nullptr));
        _pictureStream->disposition = AV_DISPOSITION_ATTACHED_PIC;
        AVCodecParameters& parameters = *_pictureStream->codecpar;
        parameters.codec_type = AVMEDIA_TYPE_VIDEO;
        parameters.codec_id = picture.codec == "png" ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG;
        parameters.width = picture.width;
        parameters.height = picture.height;
    }
}

void AudioWriter::Implementation::writePicture() {
    if (!_pictureStream) return;
    const std::vector<std::uint8_t>& bytes = _output.picture.bytes;
    check(av_new_packet(_packet.get(), static_cast<int>(bytes.size())), "picture");
    std::copy(bytes.begin(), bytes.end(), _packet->data);
    _packet->stream_index = _pictureStream->index;
    _packet->flags |= AV_PKT_FLAG_KEY;
    _packet->pts = _packet->dts = 0;
    check(av_write_frame(_format.get(), _packet.get()), "picture");
    av_packet_unref(_packet.get());
}

void AudioWriter::Implementation::write(std::span<const float> samples) {
    const LibraryLog::Scope scope(log);
    for (const float sample : samples) {
        if (!std::isfinite(sample)) throw unwritable("a sample is not a number", "check the model");
        peak = std::max(peak, std::abs(static_cast<double>(sample)));
    }
    const std::vector<float> converted = _resampler.process({samples.begin(), samples.end()});
    _waiting.insert(_waiting.end(), converted.begin(), converted.end());
    encode(static_cast<std::size_t>(_encoder->frame_size > 0 ? _encoder->frame_size : freeFrameSize));
}

void AudioWriter::Implementation::finish() {
    const LibraryLog::Scope scope(log);
    const std::vector<float> last = _resampler.finish();
    _waiting.insert(_waiting.end(), last.begin(), last.end());
    encode(1);
    send(nullptr);
    check(av_write_trailer(_format.get()), "end");
    _bytes.finish();
}

// Encodes what waits, in frames, until less than `least` samples are left.
void AudioWriter::Implementation::encode(std::size_t least) {
    const auto most = static_cast<std::size_t>(_encoder->frame_size > 0 ? _encoder->frame_size : freeFrameSize);
    std::size_t done = 0;
    for (std::size_t left = _waiting.size() / 2; left >= least; left = _waiting.size() / 2 - done) {
        const FrameHandle frame(allocated(av_frame_alloc()));
        frame->nb_samples = static_cast<int>(std::min(left, most));
        frame->format = _encoder->sample_fmt;
        frame->sample_rate = rate;
        frame->pts = _encoded;
        check(av_channel_layout_copy(&frame->ch_layout, &_encoder->ch_layout), "encoder");
        check(av_frame_get_buffer(frame.get(), 0), "encoder");
        fill(*frame, &_waiting[2 * done]);
        send(frame.get());
        done += static_cast<std::size_t>(frame->nb_samples);
        _encoded += frame->nb_samples;
    }
    _waiting.erase(_waiting.begin(), _waiting.begin() + static_cast<std::ptrdiff_t>(2 * done));
}

// In the encoder's kind of samples, for each channel apart when it wants that.
void AudioWriter::Implementation::fill(AVFrame& frame, const float* samples) {
    const int channels = _output.channels;
    const bool isPlanar = av_sample_fmt_is_planar(_encoder->sample_fmt) != 0;
    const double fullScale = _kind.bits == 16 ? 32768.0 : 8388608.0;
    for (int i = 0; i < frame.nb_samples * channels; ++i) {
        const float sample = samples[i / channels * 2 + i % channels];
        if (_kind.bits == 0) {
            auto* plane = reinterpret_cast<float*>(frame.extended_data[isPlanar ? i % channels : 0]);
            plane[isPlanar ? i / channels : i] = sample;
            continue;
        }
        const double noise = _kind.bits == 16 ? _dither.next() : 0;
        const double step = std::nearbyint(sample * fullScale + noise);
        const auto whole = static_cast<std::int32_t>(std::clamp(step, -fullScale, fullScale - 1));
        // Noise alone may go over the edge by a step; that is no clipping.
        if (sample > (fullScale - 0.5) / fullScale || sample < -1) ++clipped;
        if (_kind.bits == 16) reinterpret_cast<std::int16_t*>(frame.data[0])[i] = static_cast<std::int16_t>(whole);
        if (_kind.bits == 24) reinterpret_cast<std::int32_t*>(frame.data[0])[i] = whole * 256;
    }
}

// Without a frame: the end.
void AudioWriter::Implementation::send(const AVFrame* frame) {
    check(avcodec_send_frame(_encoder.get(), frame), "encoder");
    for (;;) {
        const int result = avcodec_receive_packet(_encoder.get(), _packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        check(result, "encoder");
        av_packet_rescale_ts(_packet.get(), _encoder->time_base, _stream->time_base);
        _packet->stream_index = _stream->index;
        // Ends the first page of an Ogg file: a short song would be on a single one, which cannot note both what is to
        // be left out at its beginning and what at its end.
        if (_packets++ == 2 && _kind.isOgg()) check(av_write_frame(_format.get(), nullptr), "container");
        check(av_write_frame(_format.get(), _packet.get()), "container");
        av_packet_unref(_packet.get());
    }
}

AudioWriter::AudioWriter(const AudioOutput& output) : _implementation(std::make_unique<Implementation>(output)) {}
AudioWriter::~AudioWriter() = default;
AudioWriter::AudioWriter(AudioWriter&&) noexcept = default;
AudioWriter& AudioWriter::operator=(AudioWriter&&) noexcept = default;

void AudioWriter::write(std::span<const float> samples) { _implementation->write(samples); }
void AudioWriter::finish() { _implementation->finish(); }
int AudioWriter::rate() const { return _implementation->rate; }
double AudioWriter::peak() const { return _implementation->peak; }
std::int64_t AudioWriter::clipped() const { return _implementation->clipped; }
const std::vector<std::string>& AudioWriter::messages() const { return _implementation->log.lines(); }

}  // namespace tavrin::tool
