#include "audio/audio_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <set>
#include <span>
#include <utility>

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace tavrin::tool {

namespace {

constexpr std::size_t leastBlock = 4096;        // samples per channel, unless the song ends
constexpr int mostFailedReads = 100;            // in a row, until a song is given up
constexpr double largestSilentGap = 600;        // seconds; where time leaps further, the clock was set anew
constexpr double smallestUnexplainedGap = 0.1;  // seconds; the clocks of video files waver a bit

void addTags(Tags& tags, const AVDictionary* dictionary) {
    // These describe a file instead of its song, or are wrong for every other encoder.
    static const std::set<std::string, WithoutCase> ofFiles = {"encoder",           "major_brand",  "minor_version",
                                                               "compatible_brands", "handler_name", "vendor_id",
                                                               "language",          "iTunSMPB",     "duration"};
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX))) {
        const std::string name = entry->key;
        if (ofFiles.contains(name) || name.starts_with("_STATISTICS") || !*entry->value) continue;
        tags.try_emplace(name, entry->value);
    }
}

AVStream* firstWhere(const AVFormatContext& format, bool (*fits)(const AVStream&)) {
    AVStream** end = format.streams + format.nb_streams;
    AVStream** stream = std::find_if(format.streams, end, [&](const AVStream* one) { return fits(*one); });
    return stream == end ? nullptr : *stream;
}

bool isAudio(const AVStream& stream) { return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO; }

bool isPicture(const AVStream& stream) {
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 && stream.attached_pic.size > 0;
}

// MP4 files may name their parts at the end; then they cannot be read from front to back.
bool isMp4(const std::string& head) {
    static const std::set<std::string> boxes = {"ftyp", "moov", "mdat", "wide", "free", "skip"};
    return head.size() >= 8 && boxes.contains(head.substr(4, 4));
}

// Joined MP3 files carry the tags of the later ones in their middle.
bool isTag(const AVPacket& packet) {
    const std::string start(packet.data, packet.data + std::min(packet.size, 8));
    return start.starts_with("ID3") || start.starts_with("TAG") || start == "APETAGEX";
}

// An Ogg stream that was not cut off ends with a whole page that says so. A page's head ends with the number of its
// segments and the size of each.
bool endsWithLastPage(const std::string& tail) {
    constexpr std::size_t headSize = 27;
    const std::string page = tail.substr(std::min(tail.rfind("OggS"), tail.size()));
    if (page.size() < headSize || (page[5] & 4) == 0) return false;
    const auto* sizes = reinterpret_cast<const std::uint8_t*>(page.data()) + headSize;
    const std::size_t segments = sizes[-1];
    if (page.size() < headSize + segments) return false;
    return std::accumulate(sizes, sizes + segments, headSize + segments) <= page.size();
}

// The samples of a WAV, RF64, Wave64 or CAF file. The libraries forget it when the file is shorter.
struct DataChunk {
    std::int64_t size;      // bytes of samples
    std::int64_t offset;    // of the first of them in the file
    std::int64_t fileSize;  // as a WAV announces it; 0: it does not
};

// Programs that write into a pipe do not know the length: some leave 0, others the most that fits.
bool isOpen(std::uint64_t size) {
    return size == 0 || size >> 63 != 0 || (size >> 12) == 0xFFFFF || (size >> 12) == 0x7FFFF;
}

// Returns nothing for other kinds of files, and when the length was left open. The kinds have the same chunks: a name,
// a size, the data; then the next one at an even place.
std::optional<DataChunk> findDataChunk(const std::string& head) {
    struct Kind {
        const char* name;
        std::size_t first, chunkHead, align;  // bytes: where chunks begin, before their data, between them
    };
    static constexpr Kind kinds[] = {
        {"RIFF", 12, 8, 2}, {"RF64", 12, 8, 2}, {"BW64", 12, 8, 2}, {"riff", 40, 24, 8}, {"caff", 8, 12, 1}};
    const auto* kind = std::ranges::find_if(kinds, [&](const Kind& one) { return head.starts_with(one.name); });
    if (kind == std::end(kinds)) return std::nullopt;
    const bool isCaf = kind->chunkHead == 12, isWave64 = kind->chunkHead == 24;
    std::uint64_t longSize = 0;
    for (std::uint64_t at = kind->first; at + kind->chunkHead + 16 <= head.size();) {
        const char* chunk = head.data() + at;
        at += kind->chunkHead;
        std::uint64_t size = AV_RL32(chunk + 4);
        if (isCaf) size = AV_RB64(chunk + 4);
        if (isWave64) size = AV_RL64(chunk + 16) - kind->chunkHead;
        if (std::memcmp(chunk, "ds64", 4) == 0) longSize = AV_RL64(head.data() + at + 8);
        if (std::memcmp(chunk, "data", 4) == 0) {
            const bool isLong = longSize > 0 && size == 0xFFFFFFFF;
            if (!isLong && isOpen(size)) return std::nullopt;
            const std::int64_t skipped = isCaf ? 4 : 0;  // a number of edits
            const std::uint64_t fileSize = AV_RL32(head.data() + 4);
            return DataChunk{
                static_cast<std::int64_t>(isLong ? longSize : size) - skipped, static_cast<std::int64_t>(at) + skipped,
                head.starts_with("RIFF") && !isOpen(fileSize) ? static_cast<std::int64_t>(fileSize) + 8 : 0};
        }
        if (size > head.size()) break;
        at += (size + kind->align - 1) / kind->align * kind->align;
    }
    return std::nullopt;
}

}  // namespace

bool isRawFormat(const std::string& format) {
    const AVCodec* codec = avcodec_find_decoder_by_name(("pcm_" + format).c_str());
    return codec && av_find_input_format(format.c_str());
}

AudioReader::AudioReader(const AudioInput& input) : _input(input), _bytes(input.place, ByteStream::Direction::in) {
    const LibraryLog::Scope scope(_log);
    open();
    openDecoder();
    addTags(_tags, _format->metadata);
    addTags(_tags, _stream->metadata);  // where Ogg has them
    if (const AVStream* picture = firstWhere(*_format, isPicture)) {
        const AVPacket& file = picture->attached_pic;
        const AVCodecParameters& kind = *picture->codecpar;
        _picture = {avcodec_get_name(kind.codec_id), kind.width, kind.height, {file.data, file.data + file.size}};
    }
    _from = std::llround(input.start * _rate);
    // A day of any rate is far from the largest number; so is what users mean by no limit.
    if (input.duration < 1e9) _until = _from + std::llround(input.duration * _rate);
    _errorsSeen = _log.errors;
    decode(1);
    if (_position == 0 && !_damage.empty()) throw unreadable(_damage.front().reason, "check that it is a song");
    if (_isOver && _from > 0 && _position <= _from) {
        throw Failure(ExitCode::wrongUsage, _input.place.label() + ": is only " + std::to_string(seconds(_position)) +
                                                " seconds long; choose an earlier --start");
    }
}

Failure AudioReader::unreadable(const std::string& reason, const std::string& nextStep) const {
    return {ExitCode::inputUnreadable,
            _input.place.label() + ": cannot be read as a song (" + reason + "); " + nextStep};
}

void AudioReader::open() {
    if (_bytes.head().empty()) throw unreadable("it is empty", "check what wrote it");
    std::int64_t trackTicks = 0;
    if (isMp4(_bytes.head())) {
        if (!_bytes.isSeekable()) _bytes.spool();
        const FormatHandle unedited = openContainer(false);
        if (const AVStream* stream = firstWhere(*unedited, isAudio)) trackTicks = stream->duration;
        avio_seek(_bytes.context(), 0, SEEK_SET);
    }
    _format = openContainer(true);
    const int found = avformat_find_stream_info(_format.get(), nullptr);
    if (found < 0) throw unreadable(errorText(found), "check that it is a song and complete");
    _stream = firstWhere(*_format, isAudio);
    if (!_stream) throw unreadable("there is no audio in it", "name a song");
    for (AVStream* one : std::span(_format->streams, _format->nb_streams)) one->discard = AVDISCARD_ALL;
    _stream->discard = AVDISCARD_DEFAULT;
    _rate = _stream->codecpar->sample_rate;
    if (trackTicks == 0 || _stream->duration <= 0 || _rate < 1) return;
    // MP4 counts the samples of a song, but its last packet decodes to a whole frame. Its edit list, which leaves out
    // what the encoder has put in front, often counts in milliseconds; the track's own length is exact then.
    const AVIndexEntry* first = avformat_index_get_entry(_stream, 0);
    const std::int64_t exact = samples(trackTicks + (first ? std::min<std::int64_t>(0, first->timestamp) : 0));
    _limit = samples(_stream->duration);
    if (std::abs(exact - _limit) <= _rate / 500) _limit = exact;
}

FormatHandle AudioReader::openContainer(bool withEdits) {
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
    if (result < 0) {
        const std::string& reason = _log.lastError;
        throw unreadable(reason.empty() ? errorText(result) : reason, "check that it is a song and complete");
    }
    return FormatHandle(format);
}

void AudioReader::openDecoder() {
    const AVCodecParameters& parameters = *_stream->codecpar;
    _channels = parameters.ch_layout.nb_channels;
    if (_rate < 1 || _channels < 1) throw unreadable("its rate or channels are unknown", "check that it is complete");
    if (_channels > 2) {
        throw unreadable("it has " + std::to_string(_channels) + " channels",
                         "mix it down to two, for example with: ffmpeg -i SONG -ac 2 STEREO.wav");
    }
    const std::string name = avcodec_get_name(parameters.codec_id);
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec) throw unreadable("FFmpeg has no decoder for " + name, "convert it to WAV or FLAC with another program");
    // WAV files give plain samples in packets of 4096 bytes otherwise.
    if (name.starts_with("pcm_")) av_opt_set_int(_format.get(), "max_size", 1 << 15, AV_OPT_SEARCH_CHILDREN);
    _decoder.reset(allocated(avcodec_alloc_context3(codec)));
    avcodec_parameters_to_context(_decoder.get(), &parameters);
    _decoder->pkt_timebase = _stream->time_base;
    _decoder->request_sample_fmt = AV_SAMPLE_FMT_FLT;
    _decoder->err_recognition |= AV_EF_CRCCHECK;
    if (const int result = avcodec_open2(_decoder.get(), codec, nullptr); result < 0) {
        throw unreadable(errorText(result), "check that it is complete");
    }
}

std::optional<std::int64_t> AudioReader::length() const {
    // What is told later is more exact.
    const std::int64_t bitRate = _stream->codecpar->bit_rate;
    std::int64_t total = unlimited;
    if (_format->duration > 0) total = av_rescale(_format->duration, _rate, AV_TIME_BASE);
    if (const auto chunk = findDataChunk(_bytes.head()); chunk && bitRate > 0)
        total = av_rescale(chunk->size, std::int64_t{8} * _rate, bitRate);
    if (_stream->duration > 0) total = samples(_stream->duration);
    total = std::min(_limit < unlimited ? _limit : total, _until);
    return total == unlimited ? std::nullopt : std::optional(std::max<std::int64_t>(0, total - _from));
}

std::vector<float> AudioReader::read() {
    const LibraryLog::Scope scope(_log);
    decode(leastBlock);
    return std::exchange(_ready, {});
}

// Until so many samples are ready. At each step the decoder wants a packet, gives a frame or has come to its end.
void AudioReader::decode(std::size_t least) {
    while (_ready.size() < 2 * least && !_isOver) {
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
}

void AudioReader::feed() {
    av_packet_unref(_packet.get());
    const int result = av_read_frame(_format.get(), _packet.get());
    // Some kinds of files have more behind the song, which is none of ours.
    const bool isComplete = claim() > 0 && _ticks >= claim();
    // A last piece of plain samples may be short: their length tells whether any are missing.
    const bool isPlain = (_packet->flags & AV_PKT_FLAG_CORRUPT) != 0 && av_get_bits_per_sample(_decoder->codec_id) > 0;
    if ((result < 0 && isComplete) || isPlain) _errorsSeen = _log.errors;
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
    if (isTag(*_packet)) return;
    const bool isMpeg = _decoder->codec_id == AV_CODEC_ID_MP3 || _decoder->codec_id == AV_CODEC_ID_MP2;
    if (isMpeg) _decoder->bit_rate = 0;  // the decoder then tells the frame's own
    failed(avcodec_send_packet(_decoder.get(), _packet.get()));
    _isCutOff = isMpeg && _packet->size < samples(_packet->duration) * _decoder->bit_rate / 8 / _rate;
}

// Whether a call of the libraries went wrong: it may say so, or only log it. That is noted as damage.
bool AudioReader::failed(int result) {
    const bool isError = result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF;
    const bool hasLogged = _log.errors > std::exchange(_errorsSeen, _log.errors);
    if (!isError && !hasLogged) return false;
    note(seconds(_position), hasLogged ? _log.lastError : errorText(result));
    return isError;
}

void AudioReader::note(double from, const std::string& reason) {
    _hasFailed = true;
    if (from < seconds(_from)) return;
    if (_damage.empty() || from - _damage.back().to >= 1) _damage.push_back({from, from, 0, reason});
    _damage.back().to = std::max(_damage.back().to, from);
    ++_damage.back().errors;
}

void AudioReader::take(const AVFrame& frame) {
    if ((frame.flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame.decode_error_flags != 0) {
        note(seconds(_position), "the decoder could not make sense of the data");
    }
    // Format, rate and channels may change where songs were joined.
    const std::array kind{frame.format, frame.sample_rate, frame.ch_layout.nb_channels};
    if (std::exchange(_kind, kind) != kind) {
        if (_converter) convert(nullptr, 0);
        _converter.emplace(frame.ch_layout, static_cast<AVSampleFormat>(frame.format), frame.sample_rate, _rate);
    }
    if (_expected == AV_NOPTS_VALUE && _hasFailed) _expected = _stream->start_time;
    if (_expected != AV_NOPTS_VALUE && frame.pts != AV_NOPTS_VALUE) fillGap(samples(frame.pts - _expected), frame);
    if (frame.pts != AV_NOPTS_VALUE) _expected = frame.pts;
    if (_expected != AV_NOPTS_VALUE) {
        _expected += av_rescale_q(frame.nb_samples, {1, frame.sample_rate}, _stream->time_base);
    }
    _hasFailed = false;
    convert(const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
}

// Where frames are missing, silence keeps the rest of the song in its place.
void AudioReader::fillGap(std::int64_t gap, const AVFrame& frame) {
    const double tick = av_q2d(_stream->time_base) * _rate;  // in samples
    const double smallest = _hasFailed ? 2 * tick + 1 : smallestUnexplainedGap * _rate;
    if (static_cast<double>(gap) <= smallest || static_cast<double>(gap) > largestSilentGap * _rate) return;
    // A coarse clock means whole frames.
    if (tick > 1 && frame.nb_samples > 0) gap = (gap + frame.nb_samples / 2) / frame.nb_samples * frame.nb_samples;
    if (!_hasFailed) note(seconds(_position), "part of the song is missing");
    const std::size_t before = _ready.size();
    _ready.resize(before + 2 * static_cast<std::size_t>(gap));
    keepWanted(before);
    if (!_damage.empty()) _damage.back().to = std::max(_damage.back().to, seconds(_position));
}

// Without data: what the converter withholds.
void AudioReader::convert(const std::uint8_t** data, int count) {
    const std::size_t before = _ready.size();
    _converter->process(data, count, _ready);
    keepWanted(before);
}

// Of the samples that came behind the first `before`.
void AudioReader::keepWanted(std::size_t before) {
    const auto begin = _ready.begin() + static_cast<std::ptrdiff_t>(before);
    const std::int64_t count = (_ready.end() - begin) / 2;
    const std::int64_t first = std::clamp<std::int64_t>(_from - _position, 0, count);
    const std::int64_t last = std::clamp<std::int64_t>(std::min(_until, _limit) - _position, first, count);
    _ready.erase(begin + 2 * last, _ready.end());
    _ready.erase(begin, begin + 2 * first);
    if (const std::int64_t bad = countNotFinite({begin, _ready.end()}); bad > 0) {
        _notFinite += bad * _channels / 2;
        std::replace_if(
            begin, _ready.end(), [](float sample) { return !std::isfinite(sample); }, 0.0F);
    }
    _position = std::min(_position + count, std::max(_position, _limit));
    if (_position >= _until) _isOver = true;
}

// How long the container says in packets that the song is; 0 when it does not. Ogg has its last page instead.
std::int64_t AudioReader::claim() const {
    const bool isTold = _format->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    if (!isTold || std::strcmp(_format->iformat->name, "ogg") == 0) return 0;
    if (_stream->duration > 0) return _stream->duration;
    // FLV and Matroska know the length of all streams together: with a video, it may be that one's.
    const bool isKnown = _format->nb_streams == 1 && _format->duration > 0;
    return isKnown ? av_rescale_q(_format->duration, AVRational{1, AV_TIME_BASE}, _stream->time_base) : 0;
}

void AudioReader::end() {
    _isOver = true;
    if (_converter) convert(nullptr, 0);
    const bool isOgg = std::strcmp(_format->iformat->name, "ogg") == 0;
    if (const std::string error = _bytes.readError(); !error.empty()) note(seconds(_position), error);
    if (_isCutOff || (isOgg && !endsWithLastPage(_bytes.tail()))) note(seconds(_position), "the end is missing");
    if (const auto chunk = findDataChunk(_bytes.head()); chunk && !_input.raw) {
        // Samples have one size here, and the length is one of bytes.
        const bool isMeasured = _packetBytes > 0 && _position > 0;
        const double second = isMeasured ? static_cast<double>(_packetBytes) / seconds(_position)
                                         : static_cast<double>(_stream->codecpar->bit_rate) / 8;
        const std::int64_t beyond = chunk->fileSize > 0 ? _bytes.size() - chunk->fileSize : 0;
        const bool isLonger = static_cast<double>(beyond) > 0.1 * second;
        const std::int64_t actual = isLonger ? _bytes.size() - chunk->offset : _packetBytes;
        if (chunk->size <= actual && !isLonger) return;
        _wrongLength = {static_cast<double>(chunk->size) / second, static_cast<double>(actual) / second};
    } else if (claim() > 0) {
        const std::int64_t more = _ticks - claim();
        const std::int64_t sample = av_rescale_q(1, {1, _rate}, _stream->time_base);
        if (more >= -std::max<std::int64_t>(1, sample) && more <= _lastTicks) return;
        const double tick = av_q2d(_stream->time_base);
        _wrongLength = {static_cast<double>(claim()) * tick, static_cast<double>(_ticks) * tick};
    }
}

}  // namespace tavrin::tool
