#include "audio/audio_writer.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/base64.h>
}

namespace tavrin::tool {

namespace {

constexpr std::size_t largestFrame = 8192;  // samples per channel, of encoders that take any number

AVSampleFormat sampleFormat(const AudioFormat& format) {
    if (format.bits == 16) return AV_SAMPLE_FMT_S16;
    if (format.bits == 24) return AV_SAMPLE_FMT_S32;
    const std::string encoder = format.encoder;
    return encoder == "pcm_f32le" || encoder == "libopus" ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_FLTP;
}

// As Ogg files have it: a FLAC picture block in letters, among the tags.
std::string pictureTag(const Picture& picture) {
    std::string block;
    const auto append = [&](std::initializer_list<std::size_t> numbers) {
        for (const std::size_t number : numbers) {
            for (const int shift : {24, 16, 8, 0}) block += static_cast<char>(number >> shift);
        }
    };
    const std::string type = picture.codec == "png" ? "image/png" : "image/jpeg";
    append({3, type.size()});  // a front cover
    block += type;
    // No description, 24 bits per pixel, no palette.
    append({0, static_cast<std::size_t>(picture.width), static_cast<std::size_t>(picture.height), 24, 0,
            picture.bytes.size()});
    block.append(picture.bytes.begin(), picture.bytes.end());
    std::string text(AV_BASE64_SIZE(block.size()), '\0');
    av_base64_encode(text.data(), static_cast<int>(text.size()), reinterpret_cast<const std::uint8_t*>(block.data()),
                     static_cast<int>(block.size()));
    return text.c_str();
}

// From 0 to 1: the same numbers for the same state to begin with.
double nextRandom(std::uint32_t& state) {
    state = state * 1664525 + 1013904223;
    return state / 4294967296.0;
}

}  // namespace

AudioWriter::AudioWriter(const AudioOutput& output)
    : _output(output),
      _kind(*output.format),
      _bytes(output.place, ByteStream::Direction::out),
      _resampler(output.rate, _kind.rateFor(output.rate)),
      _noise(static_cast<std::uint32_t>(std::abs(output.dither))) {
    const LibraryLog::Scope scope(_log);
    if (!_bytes.isSeekable() && _kind.needsSeeking()) _bytes.spool();
    openEncoder();
    openFile();
}

Failure AudioWriter::unwritable(const std::string& reason, const std::string& nextStep) const {
    return {ExitCode::writeFailed,
            _output.place.label() + ": cannot be written as " + _kind.name + " (" + reason + "); " + nextStep};
}

void AudioWriter::check(int result) {
    _bytes.check();
    if (result >= 0) return;
    const std::string& reason = _log.lastError;
    throw unwritable(reason.empty() ? errorText(result) : reason);
}

void AudioWriter::openEncoder() {
    const AVCodec* codec = avcodec_find_encoder_by_name(_kind.encoder);
    if (!codec) throw unwritable(std::string("this system's FFmpeg has no ") + _kind.encoder);
    _encoder.reset(allocated(avcodec_alloc_context3(codec)));
    _encoder->sample_rate = _kind.rateFor(_output.rate);
    _encoder->time_base = {1, _encoder->sample_rate};
    _encoder->sample_fmt = sampleFormat(_kind);
    if (_kind.bits == 24) _encoder->bits_per_raw_sample = 24;
    av_channel_layout_default(&_encoder->ch_layout, _output.channels);
    // Else the files name the version of the library, and Ogg files get a random number.
    _encoder->flags |= AV_CODEC_FLAG_BITEXACT;
    const auto [least, most, normal, unit] = _kind.quality;
    const double quality = std::clamp(_output.quality.value_or(normal), least, most);
    const std::string encoder = _kind.encoder;
    if (encoder == "libvorbis" || encoder == "libmp3lame") {
        // With a fixed bit rate, LAME turns songs down by up to 5 %.
        _encoder->flags |= AV_CODEC_FLAG_QSCALE;
        _encoder->global_quality = static_cast<int>(std::lround(quality * FF_QP2LAMBDA));
    } else if (encoder == "flac") {
        _encoder->compression_level = static_cast<int>(quality);
    } else if (_kind.isLossy) {
        // One Opus channel takes half of the most.
        const double limit = encoder == "libopus" ? 256.0 * _output.channels : most;
        _encoder->bit_rate = std::llround(std::min(quality, limit) * 1000);
    }
}

void AudioWriter::openFile() {
    AVFormatContext* format = nullptr;
    const std::string ending = std::string(".") + _kind.extension;  // which the M4A muxer misses otherwise
    check(avformat_alloc_output_context2(&format, nullptr, _kind.muxer, ending.c_str()));
    _format.reset(format);
    format->pb = _bytes.context();
    format->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
    if (!_bytes.isSeekable()) format->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    if ((format->oformat->flags & AVFMT_GLOBALHEADER) != 0) _encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    check(avcodec_open2(_encoder.get(), nullptr, nullptr));
    _stream = allocated(avformat_new_stream(format, nullptr));
    _stream->time_base = _encoder->time_base;
    check(avcodec_parameters_from_context(_stream->codecpar, _encoder.get()));
    for (const auto& [name, text] : _output.tags) av_dict_set(&format->metadata, name.c_str(), text.c_str(), 0);
    addPicture();
    AVDictionary* options = nullptr;
    // In a pipe the length is open, which says nothing about 4 GiB.
    if (_bytes.isSeekable()) av_dict_set(&options, "rf64", "auto", 0);
    // MP4 notes the length in these steps, milliseconds otherwise.
    av_dict_set_int(&options, "movie_timescale", _encoder->sample_rate, 0);
    const int result = avformat_write_header(format, &options);
    av_dict_free(&options);
    check(result);
    if (_packet->size > 0) check(av_write_frame(format, _packet.get()));
    av_packet_unref(_packet.get());
    _frame->format = _encoder->sample_fmt;
    _frame->sample_rate = _encoder->sample_rate;
    _frame->nb_samples = _encoder->frame_size > 0 ? _encoder->frame_size : static_cast<int>(largestFrame);
    _frame->pts = 0;
    check(av_channel_layout_copy(&_frame->ch_layout, &_encoder->ch_layout));
    check(av_frame_get_buffer(_frame.get(), 0));
}

// Leaves it in the packet, for after the header.
void AudioWriter::addPicture() {
    const Picture& picture = _output.picture;
    const bool isKnown = picture.codec == "png" || picture.codec == "mjpeg";
    if (!isKnown || picture.width <= 0 || picture.height <= 0) return;
    if (_kind.isOgg()) av_dict_set(&_format->metadata, "METADATA_BLOCK_PICTURE", pictureTag(picture).c_str(), 0);
    if (!_kind.needsSeeking() && _kind.muxer != std::string_view("flac")) return;
    AVStream* stream = allocated(avformat_new_stream(_format.get(), nullptr));
    stream->disposition = AV_DISPOSITION_ATTACHED_PIC;
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = avcodec_descriptor_get_by_name(picture.codec.c_str())->id;
    stream->codecpar->width = picture.width;
    stream->codecpar->height = picture.height;
    check(av_new_packet(_packet.get(), static_cast<int>(picture.bytes.size())));
    std::copy(picture.bytes.begin(), picture.bytes.end(), _packet->data);
    _packet->stream_index = stream->index;
    _packet->flags |= AV_PKT_FLAG_KEY;
    _packet->pts = _packet->dts = 0;
}

void AudioWriter::write(std::span<const float> samples) {
    const LibraryLog::Scope scope(_log);
    if (countNotFinite(samples) > 0) throw unwritable("a sample is not a number", "check the model");
    if (_waiting.empty() && _resampler.isIdle()) samples = encode(samples);
    const std::vector<float> converted = _resampler.process({samples.begin(), samples.end()});
    _waiting.insert(_waiting.end(), converted.begin(), converted.end());
    const std::size_t left = encode(_waiting).size();
    _waiting.erase(_waiting.begin(), _waiting.end() - static_cast<std::ptrdiff_t>(left));
}

void AudioWriter::finish() {
    const LibraryLog::Scope scope(_log);
    const std::vector<float> last = _resampler.finish();
    _waiting.insert(_waiting.end(), last.begin(), last.end());
    encode(_waiting, true);
    send(nullptr);
    check(av_write_trailer(_format.get()));
    _bytes.finish();
}

// Encodes in frames and returns what is left for the next one.
std::span<const float> AudioWriter::encode(std::span<const float> samples, bool isEnd) {
    const std::size_t most = _encoder->frame_size > 0 ? static_cast<std::size_t>(_encoder->frame_size) : largestFrame;
    const std::size_t least = isEnd || _encoder->frame_size == 0 ? 1 : most;
    while (samples.size() / 2 >= least) {
        const std::size_t count = std::min(samples.size() / 2, most);
        _frame->nb_samples = static_cast<int>(count);
        check(av_frame_make_writable(_frame.get()));
        fill(*_frame, samples.data());
        send(_frame.get());
        _frame->pts += _frame->nb_samples;
        samples = samples.subspan(2 * count);
    }
    return samples;
}

// In the encoder's kind of samples, for each channel apart when it wants that. 16 bits get triangular noise of one step
// to either side: rounding then adds a steady hiss instead of distortion.
void AudioWriter::fill(AVFrame& frame, const float* samples) {
    const int channels = _output.channels;
    if (_kind.bits == 0 && channels == 2 && av_sample_fmt_is_planar(_encoder->sample_fmt) == 0) {
        std::copy_n(samples, 2 * frame.nb_samples, reinterpret_cast<float*>(frame.data[0]));
        return;
    }
    for (int c = 0; _kind.bits == 0 && c < channels; ++c) {
        auto* to = reinterpret_cast<float*>(frame.extended_data[c]);
        for (int i = 0; i < frame.nb_samples; ++i) to[i] = samples[2 * i + c];
    }
    if (_kind.bits == 0) return;
    const int sign = (_output.dither > 0) - (_output.dither < 0);
    const double fullScale = _kind.bits == 16 ? 32768.0 : 8388608.0;
    for (int i = 0; i < frame.nb_samples * channels; ++i) {
        const float sample = samples[i / channels * 2 + i % channels];
        const double noise = _kind.bits == 16 ? sign * (nextRandom(_noise) - nextRandom(_noise)) : 0;
        const double step = std::clamp(std::nearbyint(sample * fullScale + noise), -fullScale, fullScale - 1);
        if (_kind.bits == 16) reinterpret_cast<std::int16_t*>(frame.data[0])[i] = static_cast<std::int16_t>(step);
        if (_kind.bits == 24) reinterpret_cast<std::int32_t*>(frame.data[0])[i] = static_cast<std::int32_t>(step) * 256;
    }
}

// Without a frame: the end.
void AudioWriter::send(const AVFrame* frame) {
    check(avcodec_send_frame(_encoder.get(), frame));
    for (;;) {
        const int result = avcodec_receive_packet(_encoder.get(), _packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        check(result);
        av_packet_rescale_ts(_packet.get(), _encoder->time_base, _stream->time_base);
        _packet->stream_index = _stream->index;
        // Ends the first page of an Ogg file: a short song would be on a single one, which cannot note both what is to
        // be left out at its beginning and what at its end.
        if (_packets++ == 2 && _kind.isOgg()) check(av_write_frame(_format.get(), nullptr));
        check(av_write_frame(_format.get(), _packet.get()));
        av_packet_unref(_packet.get());
    }
}

}  // namespace tavrin::tool
