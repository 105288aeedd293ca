#include "audio_writer.h"
#include "interrupt.h"
#include "part_sink.h"
#include "scratch_file.h"

namespace tavrin::tool {

namespace {

class PartFile : public PartSink {
public:
    PartFile(const std::filesystem::path& target, const OutputFormat& format, int rate, std::int64_t frames,
             const Tags& tags)
        : _writer(target, format, rate, frames, tags) {}

    void write(const std::vector<float>& samples) override { _writer.write(samples); }
    void complete(float /*gain*/) override { _writer.complete(); }
    void publish() override { _writer.publish(); }

protected:
    const std::filesystem::path& target() const { return _writer.target(); }

private:
    AudioWriter _writer;
};

// The samples wait in a scratch file for the gain.
class PartFileAwaitingGain final : public PartFile {
public:
    using PartFile::PartFile;

    void write(const std::vector<float>& samples) override { _waiting.append(samples); }

    void complete(float gain) override {
        constexpr std::size_t block = 1 << 16;
        for (std::vector<float> samples = _waiting.read(block); !samples.empty(); samples = _waiting.read(block)) {
            throwIfInterrupted();
            for (float& sample : samples) sample *= gain;
            PartFile::write(samples);
        }
        PartFile::complete(gain);
    }

private:
    ScratchFile _waiting{target()};
};

}  // namespace

std::unique_ptr<PartSink> openPartFile(const std::filesystem::path& target, const OutputFormat& format, int rate,
                                       std::int64_t frames, const Tags& tags, bool awaitsGain) {
    if (awaitsGain) return std::make_unique<PartFileAwaitingGain>(target, format, rate, frames, tags);
    return std::make_unique<PartFile>(target, format, rate, frames, tags);
}

}  // namespace tavrin::tool
