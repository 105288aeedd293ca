#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "failure.h"
#include "pcm.h"
#include "sound_source.h"
#include "standard_streams.h"

namespace tavrin::tool {

namespace {

Failure unreadable(const std::string& reason, const std::string& nextStep) {
    return {ExitCode::inputUnreadable, "standard input: " + reason + "; " + nextStep};
}

// Fills `bytes` unless the stream ends. Returns how many came.
std::size_t fill(char* bytes, std::size_t size) {
    std::size_t have = 0;
    while (have < size) {
        const std::size_t count = readStandardInput(bytes + have, size - have);
        if (count == 0) break;
        have += count;
    }
    return have;
}

std::vector<char> take(std::size_t size) {
    std::vector<char> bytes(size);
    if (fill(bytes.data(), size) < size) throw unreadable("ends in the header of its WAV", "check what is piped in");
    return bytes;
}

void drop(std::uint64_t size) {
    for (constexpr std::uint64_t most = 65536; size > 0; size -= std::min(size, most)) take(std::min(size, most));
}

PcmFormat parseFormat(const std::vector<char>& chunk) {
    constexpr unsigned pcm = 1;
    constexpr unsigned ieeeFloat = 3;
    constexpr unsigned extensible = 0xFFFE;
    if (chunk.size() < 16) throw unreadable("has a damaged WAV header", "check what is piped in");
    auto kind = static_cast<unsigned>(readNumber(&chunk[0], 2));
    // There the kind is the start of a longer name behind the other fields.
    if (kind == extensible && chunk.size() >= 26) kind = static_cast<unsigned>(readNumber(&chunk[24], 2));
    PcmFormat format;
    format.channels = static_cast<int>(readNumber(&chunk[2], 2));
    format.rate = static_cast<int>(readNumber(&chunk[4], 4));
    format.bits = static_cast<int>(readNumber(&chunk[14], 2));
    format.isFloat = kind == ieeeFloat;
    const bool known = kind == ieeeFloat ? format.bits == 32 || format.bits == 64
                                         : kind == pcm && format.bits >= 8 && format.bits <= 32 && format.bits % 8 == 0;
    if (!known || format.channels < 1 || format.rate < 1) {
        throw unreadable("is a WAV of kind " + std::to_string(kind) + " with " + std::to_string(format.bits) +
                             " bits, " + std::to_string(format.channels) + " channels and " +
                             std::to_string(format.rate) + " Hz, which cannot be read",
                         "pipe PCM or float samples");
    }
    return format;
}

// Programs that write WAV into a pipe do not know its length: some leave 0, others the most that fits.
bool isPlaceholder(std::uint64_t size) { return size == 0 || size >= 0xFFFFF000 || (size >> 12) == 0x7FFFF; }

class SoundPipe final : public SoundSource {
public:
    explicit SoundPipe(const PcmFormat& raw) : _format(raw) {
        if (_format.rate == 0) readHeader();
    }

    int rate() const override { return _format.rate; }
    int channels() const override { return _format.channels; }
    std::int64_t frames() const override { return _frames; }

    std::size_t read(float* samples, std::size_t frames) override {
        frames = static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(frames), _left));
        _bytes.resize(frames * _format.frameBytes());
        // A part of a frame may have come; the next bytes complete it.
        std::size_t have = frames > 0 ? readStandardInput(_bytes.data(), _bytes.size()) : 0;
        if (const std::size_t part = have % _format.frameBytes()) {
            have += fill(_bytes.data() + have, _format.frameBytes() - part);
        }
        const std::size_t count = have / _format.frameBytes();
        decode(_format, _bytes.data(), count * static_cast<std::size_t>(_format.channels), samples);
        _left -= static_cast<std::int64_t>(count);
        return count;
    }

    std::int64_t skip(std::int64_t frames) override {
        std::vector<float> dropped(4096 * static_cast<std::size_t>(_format.channels));
        std::int64_t left = frames;
        while (left > 0) {
            const std::size_t count =
                read(dropped.data(), static_cast<std::size_t>(std::min<std::int64_t>(left, 4096)));
            if (count == 0) break;
            left -= static_cast<std::int64_t>(count);
        }
        return frames - left;
    }

private:
    void readHeader() {
        char start[12];
        const bool complete = fill(start, sizeof start) == sizeof start;
        const std::string kind = complete ? std::string(start, 4) + std::string(start + 8, 4) : "";
        if (kind != "RIFFWAVE" && kind != "RF64WAVE" && kind != "BW64WAVE") {
            throw unreadable("is no WAV", "give --rate for raw samples, or convert on the way: ffmpeg ... -f wav -");
        }
        std::uint64_t longSize = 0;
        for (;;) {
            const std::vector<char> header = take(8);
            const std::string name(header.data(), 4);
            std::uint64_t size = readNumber(&header[4], 4);
            if (name == "data") {
                if (size == 0xFFFFFFFF && longSize > 0) size = longSize;
                if (_format.rate == 0) throw unreadable("is a WAV without a format", "check what is piped in");
                if (!isPlaceholder(size) || longSize > 0)
                    _frames = static_cast<std::int64_t>(size / _format.frameBytes());
                _left = _frames;
                return;
            }
            size += size % 2;
            if (name == "fmt " || name == "ds64") {
                const std::vector<char> chunk = take(static_cast<std::size_t>(std::min<std::uint64_t>(size, 64)));
                drop(size - chunk.size());
                if (name == "fmt ") _format = parseFormat(chunk);
                if (name == "ds64" && chunk.size() >= 16) longSize = readNumber(&chunk[8], 8);
            } else {
                drop(size);
            }
        }
    }

    PcmFormat _format;
    std::int64_t _frames = unknownLength;
    std::int64_t _left = unknownLength;
    std::vector<char> _bytes;
};

}  // namespace

std::unique_ptr<SoundSource> openStandardInput(const Options& options) {
    return std::make_unique<SoundPipe>(options.raw);
}

}  // namespace tavrin::tool
