#include <algorithm>
#include <string>

#include "failure.h"
#include "sound_source.h"

namespace tavrin::tool {

namespace {

class SoundFile final : public SoundSource {
public:
    explicit SoundFile(const std::filesystem::path& file)
        : _name(file.string()), _file(sf_open(file.c_str(), SFM_READ, &_info), sf_close) {
        if (!_file) {
            throw Failure(ExitCode::inputUnreadable, _name + ": cannot be read as a song (" + sf_strerror(nullptr) +
                                                         "); give a WAV, FLAC, OGG or MP3 file");
        }
    }

    int rate() const override { return _info.samplerate; }
    int channels() const override { return _info.channels; }
    std::int64_t frames() const override { return _info.frames == SF_COUNT_MAX ? unknownLength : _info.frames; }
    Tags tags() const override { return readTags(_file.get()); }

    std::size_t read(float* samples, std::size_t frames) override {
        const sf_count_t count = sf_readf_float(_file.get(), samples, static_cast<sf_count_t>(frames));
        if (sf_error(_file.get()) != SF_ERR_NO_ERROR) throw damaged();
        return static_cast<std::size_t>(count);
    }

    std::int64_t skip(std::int64_t frames) override {
        const sf_count_t at = sf_seek(_file.get(), std::min<sf_count_t>(frames, _info.frames), SEEK_SET);
        if (at < 0) throw damaged();
        return at;
    }

private:
    Failure damaged() const {
        return {ExitCode::inputUnreadable,
                _name + ": is damaged (" + sf_strerror(_file.get()) + "); decode or copy it anew and try again"};
    }

    std::string _name;
    SF_INFO _info{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> _file;
};

}  // namespace

std::unique_ptr<SoundSource> openSoundFile(const std::filesystem::path& file) {
    return std::make_unique<SoundFile>(file);
}

}  // namespace tavrin::tool
