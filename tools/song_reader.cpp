#include "song_reader.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "failure.h"

namespace tavrin::tool {

namespace {

constexpr int largestBlock = 65536;

std::vector<float> twoEqualChannels(const std::vector<float>& mono) {
    std::vector<float> stereo(mono.size() * 2);
    for (std::size_t i = 0; i < mono.size(); ++i) stereo[2 * i] = stereo[2 * i + 1] = mono[i];
    return stereo;
}

}  // namespace

SongReader::SongReader(const std::filesystem::path& file)
    : _name(file), _file(sf_open(file.c_str(), SFM_READ, &_info), sf_close) {
    if (!_file) {
        throw Failure(ExitCode::inputUnreadable, _name.string() + ": cannot be read as a song (" +
                                                     sf_strerror(nullptr) + "); give a WAV, FLAC, OGG or MP3 file");
    }
    if (_info.channels > 2) {
        throw Failure(ExitCode::inputUnreadable, _name.string() + ": has " + std::to_string(_info.channels) +
                                                     " channels; mix it down to stereo first");
    }
}

std::vector<float> SongReader::read() {
    const auto channels = static_cast<std::size_t>(_info.channels);
    // At most a second: a song of a very low rate grows a lot when it is converted to the model's.
    const int wanted = std::min(_info.samplerate, largestBlock);
    std::vector<float> block(static_cast<std::size_t>(wanted) * channels);
    const sf_count_t count = sf_readf_float(_file.get(), block.data(), wanted);
    if (sf_error(_file.get()) != SF_ERR_NO_ERROR) {
        throw Failure(ExitCode::inputUnreadable, _name.string() + ": is damaged (" + sf_strerror(_file.get()) +
                                                     "); decode or copy it anew and try again");
    }
    block.resize(static_cast<std::size_t>(count) * channels);
    for (float& sample : block) {
        if (std::isfinite(sample)) continue;
        sample = 0;
        ++_notFinite;
    }
    return channels == 1 ? twoEqualChannels(block) : block;
}

}  // namespace tavrin::tool
