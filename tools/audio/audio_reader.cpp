#include "audio/audio_reader.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "audio/announced_size.h"
#include "audio/audio_error.h"
#include "audio/byte_stream.h"
#include "audio/ffmpeg.h"

namespace tavrin::tool {

namespace {

constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t leastBlock = 4096;        // samples per channel, unless the song ends
constexpr int mostFailedReads = 100;            // in a row, until a song is given up
constexpr double largestSilentGap = 600;        // seconds; where time leaps further, the clock was set anew
constexpr double smallestUnexplainedGap = 0.1;  // seconds; the clocks of video files waver a bit

using FormatHandle = std::unique_ptr<AVFormatContext, FreeWith<avformat_close_input>>;

// What describes a file instead of its song, or is wrong for every other encoder.
bool belongsToTheFile(const std::string& name) {
    static const std::array<const char*, 9> names = {"encoder",           "major_brand",  "minor_version",
                                                     "compatible_brands", "handler_name", "vendor_id",
                                                     "language",          "iTunSMPB",     "duration"};
    return name.starts_with("_STATISTICS") || std::any_of(names.begin(), names.end(), [&](const char* other) {
               return strcasecmp(other, name.c_str()) == 0;
           });
}

void addTags(Tags& tags, const AVDictionary* dictionary) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX))) {
        if (!belongsToTheFile(entry->key) && *entry->value && tagText(tags, entry->key).empty()) {
            setTag(tags, entry->key, entry->value);
        }
    }
}

// In single quotes, as a shell takes it literally.
std::string shellQuoted(const std::string& text) {
    std::string result = "'";
    for (const char letter : text) result += letter == '\'' ? "'\\''" : std::string(1, letter);
    return result + "'";
}

// MP4 files may name their parts at the end; then they cannot be read from front to back.
bool isMp4(const std::string& head) {
    static const std::array<const char*, 6> boxes = {"ftyp", "moov", "mdat", "wide", "free", "skip"};
    return head.size() >= 8 &&
           std::any_of(boxes.begin(), boxes.end(), [&](const char* box) { return head.compare(4, 4, box) == 0; });
}

// Joined MP3 files carry the tags of the later ones in their middle.
bool isTag(const AVPacket& packet) {
    const auto starts = [&](const char* text) {
        return static_cast<std::size_t>(packet.size) >= std::strlen(text) &&
               std::memcmp(packet.data, text, std::strlen(text)) == 0;
    };
    return starts("ID3") || starts("TAG") || starts("APETAGEX");
}

// An Ogg stream that was not cut off ends with a whole page that says so.
bool endsWithLastPage(const std::string& tail) {
    constexpr std::size_t kind = 5;  // where a page's head has it
    constexpr std::size_t headSize = 27;
    constexpr unsigned char last = 4;
    const auto byte = [&](std::size_t at) { return at < tail.size() ? static_cast<unsigned char>(tail[at]) : 0U; };
    const std::size_t page = tail.rfind("OggS");
    if (page == std::string::npos || (byte(page + kind) & last) == 0) return false;
    // The head ends with the number of segments and the size of each.
    const std::size_t segments = byte(page + headSize - 1);
    std::size_t end = page + headSize + segments;
    for (std::size_t i = 0; i < segments; ++i) end += byte(page + headSize + i);
    return end <= tail.size();
}

AVStream* firstAudio(const AVFormatContext& format) {
    const auto isAudio = [](const AVStream* stream) { return stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO; };
    AVStream** end = format.streams + format.nb_streams;
    AVStream** stream = std::find_if(format.streams, end, isAudio);
    return stream == end ? nullptr : *stream;
}

float finite(float sample) { return std::isfinite(sample) ? sample : 0; }

}  // namespace

bool isRawFormat(const std::string& format) {
    const AVCodec* codec = avcodec_find_decoder_by_name(("pcm_" + format).c_str());
    return codec && av_find_input_format(format.c_str());
}

class AudioReader::Implementation {
public:
    explicit Implementation(const AudioInput& input);

    std::vector<float> read();
    std::optional<std::int64_t> length() const;

    LibraryLog log;
    int rate = 0;
    int channels = 0;
    Tags tags;
    Picture picture;
    std::vector<Damage> damage;
    std::optional<WrongLength> wrongLength;
    std::int64_t notFinite = 0;

private:
    AudioError unreadable(const std::string& reason, const std::string& nextStep) const;
    void open();
    FormatHandle openContainer(bool withEdits);
    void openDecoder();
    void chooseStream();
    void takeTagsAndPicture();
    void findLimit();

    void decode();
    void feed();
    void take(const AVFrame& frame);
    void fillGap(std::int64_t gap, const AVFrame& frame);
    void prepareConverter(const AVFrame& frame);
    void convert(std::uint8_t** data, int count);
    void append(const float* samples, std::int64_t count, int width);
    void end();
    bool failed(int result);
    bool hasClaim() const;
    std::size_t announcedSize() const;
    void note(double from, const std::string& reason);
    double seconds(std::int64_t samples) const { return static_cast<double>(samples) / rate; }
    std::int64_t samples(std::int64_t ticks) const { return av_rescale_q(ticks, _stream->time_base, {1, rate}); }

    AudioInput _input;
    std::string _name;
    ByteStream _bytes;
    FormatHandle _format;
    AVStream* _stream = nullptr;
    CodecHandle _decoder;
    PacketHandle _packet{allocated(av_packet_alloc())};
    FrameHandle _frame{allocated(av_frame_alloc())};

    ConverterHandle _converter;  // to floating point, and to the song's rate when that changes on the way
    int _frameRate = 0;          // what the converter was made for
    int _frameFormat = -1;
    int _frameChannels = 0;

    std::int64_t _trackTicks = 0;  // length of an MP4 track without its edit list

    // Samples per channel, counted from the song's beginning.
    std::int64_t _position = 0;  // next to be decoded
    std::int64_t _from = 0;      // wanted part
    std::int64_t _until = unlimited;
    std::int64_t _limit = unlimited;  // what the container counts as song
    std::vector<float> _ready;
    bool _isOver = false;

    std::int64_t _expected = AV_NOPTS_VALUE;  // time stamp of the next frame if nothing is missing
    bool _hasFailed = false;                  // since the last frame
    std::size_t _errorsSeen = 0;              // lines of the log
    int _failedReads = 0;

    // What comes, as the container counts it.
    std::int64_t _ticks = 0;      // end of the last packet
    std::int64_t _lastTicks = 0;  // of the last packet alone
    std::int64_t _packetBytes = 0;
    bool _isCutOff = false;  // the last packet
};

AudioReader::Implementation::Implementation(const AudioInput& input)
    : _input(input), _name(input.place.label()), _bytes(input.place, ByteStream::Direction::in) {
    const LibraryLog::Scope scope(log);
    if (!_bytes.isSeekable() && isMp4(_bytes.head())) _bytes.spool();
    open();
    chooseStream();
    openDecoder();
    takeTagsAndPicture();
    findLimit();
    _from = std::llround(input.start * rate);
    // A day of any rate is far from the largest number; so is what users mean by no limit.
    if (input.duration < 1e9) _until = _from + std::llround(input.duration * rate);
    _errorsSeen = log.errors();
    while (_ready.empty() && !_isOver) decode();
    if (_position == 0 && !damage.empty()) {
        throw unreadable(damage.front().reason, "check that it is a song");
    }
    if (_isOver && _from > 0 && _position <= _from) {
        char length[32];
        std::snprintf(length, sizeof length, "%.3f", seconds(_position));
        throw AudioError(AudioError::Kind::startBeyondEnd,
                         _name + ": is only " + length + " seconds long; choose an earlier --start");
    }
}

AudioError AudioReader::Implementation::unreadable(const std::string& reason, const std::string& nextStep) const {
    return {AudioError::Kind::unreadable, _name + ": cannot be read as a song (" + reason + "); " + nextStep};
}

void AudioReader::Implementation::open() {
    if (isMp4(_bytes.head())) {
        const FormatHandle unedited = openContainer(false);
        if (const AVStream* stream = firstAudio(*unedited)) _trackTicks = stream->duration;
        avio_seek(_bytes.context(), 0, SEEK_SET);
    }
    _format = openContainer(true);
    const int found = avformat_find_stream_info(_format.get(), nullptr);
    _bytes.check();
    if (found < 0) throw unreadable(errorText(found), "check that it is a song and complete");
}

FormatHandle AudioReader::Implementation::openContainer(bool withEdits) {
    AVFormatContext* format = allocated(avformat_alloc_context());
    format->pb = _bytes.context();
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Playlists would read other files, or the network; some ask for it here, others through the list of protocols.
    format->io_open = [](AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) { return AVERROR(EPERM); };
    const AVInputFormat* kind = nullptr;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "none", 0);
    if (!withEdits) av_dict_set(&options, "ignore_editlist", "1", 0);
    if (_input.raw) {
        kind = av_find_input_format(_input.raw->format.c_str());
        av_dict_set_int(&options, "sample_rate", _input.raw->rate, 0);
        av_dict_set(&options, "ch_layout", (std::to_string(_input.raw->channels) + "c").c_str(), 0);
    }
    const int result = avformat_open_input(&format, _input.place.path.c_str(), kind, &options);
    av_dict_free(&options);
    FormatHandle handle(format);
    _bytes.check();
    if (_bytes.head().empty()) throw unreadable("it is empty", "check what wrote it");
    if (result < 0) {
        const std::string& reason = log.lastError();
        throw unreadable(reason.empty() ? errorText(result) : reason, "check that it is a song and complete");
    }
    return handle;
}

void AudioReader::Implementation::chooseStream() {
    _stream = firstAudio(*_format);
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
        if (_format->streams[i] != _stream) _format->streams[i]->discard = AVDISCARD_ALL;
    }
    if (!_stream) throw unreadable("there is no audio in it", "name a song");
}

void AudioReader::Implementation::openDecoder() {
    const AVCodecParameters& parameters = *_stream->codecpar;
    rate = parameters.sample_rate;
    channels = parameters.ch_layout.nb_channels;
    if (rate < 1 || channels < 1) throw unreadable("its rate or channels are unknown", "check that it is complete");
    if (channels > 2) {
        const bool isPipe = _input.place.descriptor >= 0;
        throw AudioError(AudioError::Kind::unreadable,
                         _name + ": has " + std::to_string(channels) + " channels; mix it down to two: ffmpeg -i " +
                             (isPipe ? "- -ac 2 -f wav -"
                                     : shellQuoted(_name) + " -ac 2 " +
                                           shellQuoted(std::filesystem::path(_name).replace_extension("stereo.wav"))));
    }
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec) {
        throw unreadable(std::string("FFmpeg has no decoder for ") + avcodec_get_name(parameters.codec_id),
                         "convert it to WAV or FLAC with another program");
    }
    _decoder.reset(allocated(avcodec_alloc_context3(codec)));
    avcodec_parameters_to_context(_decoder.get(), &parameters);
    _decoder->pkt_timebase = _stream->time_base;
    _decoder->request_sample_fmt = AV_SAMPLE_FMT_FLT;
    _decoder->err_recognition |= AV_EF_CRCCHECK;
    if (const int result = avcodec_open2(_decoder.get(), codec, nullptr); result < 0) {
        throw unreadable(errorText(result), "check that it is complete");
    }
}

void AudioReader::Implementation::takeTagsAndPicture() {
    addTags(tags, _format->metadata);
    addTags(tags, _stream->metadata);  // where Ogg has them
    for (unsigned i = 0; i < _format->nb_streams && picture.codec.empty(); ++i) {
        const AVStream& stream = *_format->streams[i];
        if ((stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0 || stream.attached_pic.size <= 0) continue;
        const AVPacket& packet = stream.attached_pic;
        picture = {avcodec_get_name(stream.codecpar->codec_id),
                   stream.codecpar->width,
                   stream.codecpar->height,
                   {packet.data, packet.data + packet.size}};
    }
}

// MP4 counts the samples of a song, but its last packet decodes to a whole frame. Its edit list, which leaves out what
// the encoder has put in front, often counts in milliseconds; the track's own length is exact then.
void AudioReader::Implementation::findLimit() {
    if (_trackTicks == 0 || _stream->duration <= 0) return;
    const AVIndexEntry* first = avformat_index_get_entry(_stream, 0);
    const std::int64_t exact = samples(_trackTicks + (first ? std::min<std::int64_t>(0, first->timestamp) : 0));
    _limit = samples(_stream->duration);
    if (std::abs(exact - _limit) <= rate / 500) _limit = exact;
}

std::optional<std::int64_t> AudioReader::Implementation::length() const {
    std::int64_t total = _limit;
    const auto chunk = findDataChunk(_bytes.head());
    if (total < unlimited) {
        // MP4 is exact.
    } else if (_stream->duration > 0) {
        total = samples(_stream->duration);
        if (_stream->start_time != AV_NOPTS_VALUE) total -= std::max<std::int64_t>(0, samples(_stream->start_time));
        if (std::strcmp(_format->iformat->name, "ogg") == 0) total -= _stream->codecpar->initial_padding;
    } else if (chunk && _stream->codecpar->bit_rate > 0) {
        total = av_rescale(chunk->size, std::int64_t{8} * rate, _stream->codecpar->bit_rate);
    } else if (_format->duration > 0) {
        total = av_rescale(_format->duration, rate, AV_TIME_BASE);
    }
    if (std::min(total, _until) == unlimited) return std::nullopt;
    return std::max<std::int64_t>(0, std::min(total, _until) - _from);
}

std::vector<float> AudioReader::Implementation::read() {
    const LibraryLog::Scope scope(log);
    while (_ready.size() < 2 * leastBlock && !_isOver) decode();
    return std::exchange(_ready, {});
}

// One step of the decoder: it wants a packet, gives a frame or has come to its end.
void AudioReader::Implementation::decode() {
    const int result = avcodec_receive_frame(_decoder.get(), _frame.get());
    const bool isBroken = failed(result);
    if (result == 0) {
        take(*_frame);
    } else if (result == AVERROR(EAGAIN)) {
        feed();
    } else if (result == AVERROR_EOF || !isBroken) {
        end();
    }
}

void AudioReader::Implementation::feed() {
    av_packet_unref(_packet.get());
    const int result = av_read_frame(_format.get(), _packet.get());
    _bytes.check();
    // Some kinds of files have more behind the song, which is none of ours.
    const bool isComplete = hasClaim() && _ticks >= _stream->duration;
    // A last piece of plain samples may be short: their length tells whether any are missing.
    const bool isPlain = (_packet->flags & AV_PKT_FLAG_CORRUPT) != 0 && av_get_bits_per_sample(_decoder->codec_id) > 0;
    if ((result < 0 && isComplete) || isPlain) _errorsSeen = log.errors();
    failed(isComplete ? 0 : result);
    if (result < 0) {
        const bool isLast = result == AVERROR_EOF || isComplete || ++_failedReads > mostFailedReads;
        if (isLast) avcodec_send_packet(_decoder.get(), nullptr);
        return;
    }
    _failedReads = 0;
    if (_packet->stream_index != _stream->index) return;
    if (_packet->duration > 0) {
        _lastTicks = _packet->duration;
        _ticks = (_packet->pts == AV_NOPTS_VALUE ? _ticks : _packet->pts) + _lastTicks;
    }
    _packetBytes += _packet->size;
    _isCutOff = static_cast<std::size_t>(_packet->size) < announcedSize();
    if (isTag(*_packet)) return;
    failed(avcodec_send_packet(_decoder.get(), _packet.get()));
}

// Bytes that the packet should have; 0 when it does not say.
std::size_t AudioReader::Implementation::announcedSize() const {
    const AVCodecID codec = _decoder->codec_id;
    if (codec != AV_CODEC_ID_MP3 && codec != AV_CODEC_ID_MP2) return 0;
    return mpegFrameSize({_packet->data, static_cast<std::size_t>(_packet->size)}, rate);
}

// Whether a call of the libraries went wrong: it may say so, or only log it. That is noted as damage.
bool AudioReader::Implementation::failed(int result) {
    const bool isError = result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF;
    const bool hasLogged = log.errors() > std::exchange(_errorsSeen, log.errors());
    if (!isError && !hasLogged) return false;
    note(seconds(_position), hasLogged ? log.lastError() : errorText(result));
    return isError;
}

void AudioReader::Implementation::note(double from, const std::string& reason) {
    _hasFailed = true;
    if (from < seconds(_from)) return;
    if (!damage.empty() && from - damage.back().to < 1) {
        damage.back().to = std::max(damage.back().to, from);
        ++damage.back().errors;
    } else {
        damage.push_back({from, from, 1, reason});
    }
}

void AudioReader::Implementation::take(const AVFrame& frame) {
    if ((frame.flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame.decode_error_flags != 0) {
        note(seconds(_position), "the decoder could not make sense of the data");
    }
    prepareConverter(frame);
    if (_expected == AV_NOPTS_VALUE && _hasFailed) _expected = _stream->start_time;
    if (_expected != AV_NOPTS_VALUE && frame.pts != AV_NOPTS_VALUE) fillGap(samples(frame.pts - _expected), frame);
    if (frame.pts != AV_NOPTS_VALUE) _expected = frame.pts;
    if (_expected != AV_NOPTS_VALUE) {
        _expected += av_rescale_q(frame.nb_samples, {1, frame.sample_rate}, _stream->time_base);
    }
    _hasFailed = false;
    convert(frame.extended_data, frame.nb_samples);
}

// Where frames are missing, silence keeps the rest of the song in its place.
void AudioReader::Implementation::fillGap(std::int64_t gap, const AVFrame& frame) {
    const double tick = av_q2d(_stream->time_base) * rate;  // in samples
    const double smallest = _hasFailed ? 2 * tick + 1 : smallestUnexplainedGap * rate;
    if (static_cast<double>(gap) <= smallest || static_cast<double>(gap) > largestSilentGap * rate) return;
    // A coarse clock means whole frames.
    if (tick > 1 && frame.nb_samples > 0) gap = (gap + frame.nb_samples / 2) / frame.nb_samples * frame.nb_samples;
    if (!_hasFailed) note(seconds(_position), "part of the song is missing");
    const std::vector<float> silence(static_cast<std::size_t>(rate));
    for (std::int64_t left = gap; left > 0; left -= rate) {
        append(silence.data(), std::min<std::int64_t>(left, rate), 1);
    }
    if (!damage.empty()) damage.back().to = std::max(damage.back().to, seconds(_position));
}

// For the format, rate and channels of the frame, which may change where songs were joined.
void AudioReader::Implementation::prepareConverter(const AVFrame& frame) {
    const int width = frame.ch_layout.nb_channels;
    const bool fits = frame.format == _frameFormat && frame.sample_rate == _frameRate && width == _frameChannels;
    if (_converter && fits) return;
    if (_converter) convert(nullptr, 0);
    AVChannelLayout out;
    av_channel_layout_default(&out, std::min(width, 2));
    // Two channels are left and right whatever the file calls them.
    AVChannelLayout in = width <= 2 ? out : frame.ch_layout;
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &out, AV_SAMPLE_FMT_FLT, rate, &in, static_cast<AVSampleFormat>(frame.format),
                        frame.sample_rate, 0, nullptr);
    _converter.reset(allocated(context));
    av_opt_set(context, "resampler", "soxr", 0);
    const int result = swr_init(context);
    if (result < 0) throw unreadable(errorText(result), "convert it to WAV first");
    _frameFormat = frame.format;
    _frameRate = frame.sample_rate;
    _frameChannels = width;
}

void AudioReader::Implementation::convert(std::uint8_t** data, int count) {
    const int width = std::min(_frameChannels, 2);
    const int most = swr_get_out_samples(_converter.get(), count);
    std::vector<float> floats(static_cast<std::size_t>(most) * static_cast<std::size_t>(width));
    auto* out = reinterpret_cast<std::uint8_t*>(floats.data());
    const int made = swr_convert(_converter.get(), &out, most, const_cast<const std::uint8_t**>(data), count);
    if (made > 0) append(floats.data(), made, width);
}

// Whether the container says in packets how long the song is. Ogg has its last page instead.
bool AudioReader::Implementation::hasClaim() const {
    return _stream->duration > 0 && _format->duration_estimation_method == AVFMT_DURATION_FROM_STREAM &&
           std::strcmp(_format->iformat->name, "ogg") != 0;
}

// Takes what is wanted of decoded samples; of one channel, both sides get it.
void AudioReader::Implementation::append(const float* samples, std::int64_t count, int width) {
    const std::int64_t first = std::clamp<std::int64_t>(_from - _position, 0, count);
    const std::int64_t last = std::clamp<std::int64_t>(std::min(_until, _limit) - _position, first, count);
    for (const float* sample = samples + first * width; sample < samples + last * width; sample += width) {
        _ready.insert(_ready.end(), {finite(sample[0]), finite(sample[width - 1])});
        if (!std::isfinite(sample[0])) ++notFinite;
        if (width == 2 && !std::isfinite(sample[1])) ++notFinite;
    }
    _position = std::min(_position + count, std::max(_position, _limit));
    if (_position >= _until) _isOver = true;
}

void AudioReader::Implementation::end() {
    _isOver = true;
    if (_converter) convert(nullptr, 0);
    const std::string kind = _format->iformat->name;
    if (const std::string error = _bytes.readError(); !error.empty()) note(seconds(_position), error);
    if (_isCutOff) note(seconds(_position), "the end is missing");
    if (kind == "ogg" && !endsWithLastPage(_bytes.tail())) note(seconds(_position), "the end is missing");
    if (const auto chunk = findDataChunk(_bytes.head()); chunk && !_input.raw) {
        // Samples have one size here, and the length is one of bytes.
        const double bytesPerSecond = _packetBytes > 0 && _position > 0
                                          ? static_cast<double>(_packetBytes) / seconds(_position)
                                          : static_cast<double>(_stream->codecpar->bit_rate) / 8;
        const std::int64_t beyond = chunk->fileSize > 0 ? _bytes.size() - chunk->fileSize : 0;
        const bool isLonger = static_cast<double>(beyond) > 0.1 * bytesPerSecond;
        const std::int64_t actual = isLonger ? _bytes.size() - chunk->offset : _packetBytes;
        if (chunk->size > actual || isLonger) {
            wrongLength = {static_cast<double>(chunk->size) / bytesPerSecond,
                           static_cast<double>(actual) / bytesPerSecond};
        }
    } else if (hasClaim()) {
        const std::int64_t more = _ticks - _stream->duration;
        const std::int64_t sample = av_rescale_q(1, {1, rate}, _stream->time_base);
        if (more < -std::max<std::int64_t>(1, sample) || more > _lastTicks) {
            const double tick = av_q2d(_stream->time_base);
            wrongLength = {static_cast<double>(_stream->duration) * tick, static_cast<double>(_ticks) * tick};
        }
    }
}

AudioReader::AudioReader(const AudioInput& input) : _implementation(std::make_unique<Implementation>(input)) {}
AudioReader::~AudioReader() = default;
AudioReader::AudioReader(AudioReader&&) noexcept = default;
AudioReader& AudioReader::operator=(AudioReader&&) noexcept = default;

int AudioReader::rate() const { return _implementation->rate; }
int AudioReader::channels() const { return _implementation->channels; }
const Tags& AudioReader::tags() const { return _implementation->tags; }
const Picture& AudioReader::picture() const { return _implementation->picture; }
std::optional<std::int64_t> AudioReader::length() const { return _implementation->length(); }
std::vector<float> AudioReader::read() { return _implementation->read(); }
const std::vector<Damage>& AudioReader::damage() const { return _implementation->damage; }
const std::optional<WrongLength>& AudioReader::wrongLength() const { return _implementation->wrongLength; }
std::int64_t AudioReader::notFinite() const { return _implementation->notFinite; }
const std::vector<std::string>& AudioReader::messages() const { return _implementation->log.lines(); }

}  // namespace tavrin::tool
