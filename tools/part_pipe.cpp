#include <string>

#include "part_sink.h"
#include "pcm.h"
#include "standard_streams.h"

namespace tavrin::tool {

namespace {

void appendText(std::vector<char>& bytes, const std::string& text) {
    for (const char letter : text) bytes.push_back(letter);
}

class PartPipe final : public PartSink {
public:
    PartPipe(const OutputFormat& format, int rate) {
        _format.rate = rate;
        _format.isFloat = format.encoding() == SF_FORMAT_FLOAT;
        _format.bits = format.encoding() == SF_FORMAT_PCM_16 ? 16 : format.encoding() == SF_FORMAT_PCM_24 ? 24 : 32;
        if (format.container() == SF_FORMAT_WAV) appendHeader();
    }

    void write(const std::vector<float>& samples) override {
        encode(_format, samples, _bytes);
        writeStandardOutput(_bytes.data(), _bytes.size());
        _bytes.clear();
    }

    // The header of a WAV goes out even when no sample follows.
    void complete(float /*gain*/) override { write({}); }
    void publish() override {}

private:
    // The length is not known: the largest one says so.
    void appendHeader() {
        constexpr unsigned open = 0xFFFFFFFF;
        const std::size_t frame = _format.frameBytes();
        appendText(_bytes, "RIFF");
        appendNumber(_bytes, open, 4);
        appendText(_bytes, "WAVE");
        appendText(_bytes, "fmt ");
        appendNumber(_bytes, 16, 4);
        appendNumber(_bytes, _format.isFloat ? 3 : 1, 2);
        appendNumber(_bytes, static_cast<unsigned>(_format.channels), 2);
        appendNumber(_bytes, static_cast<unsigned>(_format.rate), 4);
        appendNumber(_bytes, static_cast<unsigned>(_format.rate) * frame, 4);
        appendNumber(_bytes, frame, 2);
        appendNumber(_bytes, static_cast<unsigned>(_format.bits), 2);
        appendText(_bytes, "data");
        appendNumber(_bytes, open, 4);
    }

    PcmFormat _format;
    std::vector<char> _bytes;  // to be written
};

}  // namespace

std::unique_ptr<PartSink> openPartPipe(const OutputFormat& format, int rate) {
    return std::make_unique<PartPipe>(format, rate);
}

}  // namespace tavrin::tool
