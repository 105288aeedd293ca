#include "song_reader.h"

#include <algorithm>
#include <cmath>

#include "failure.h"
#include "messages.h"

namespace tavrin::tool {

namespace {

constexpr int largestBlock = 65536;

std::vector<float> twoEqualChannels(const std::vector<float>& mono) {
    std::vector<float> stereo(mono.size() * 2);
    for (std::size_t i = 0; i < mono.size(); ++i) stereo[2 * i] = stereo[2 * i + 1] = mono[i];
    return stereo;
}

}  // namespace

SongReader::SongReader(const Options& options, const Song& song)
    : _name(song.label()), _source(song.isPipe() ? openStandardInput(options) : openSoundFile(song.file)) {
    if (_source->channels() > 2) {
        throw Failure(ExitCode::inputUnreadable, _name + ": has " + std::to_string(_source->channels()) +
                                                     " channels; mix it down to stereo first");
    }
    if (options.start > 0) skipTo(options.start);
    if (_source->frames() != unknownLength) _frames = _source->frames() - std::llround(options.start * rate());
    // A day of any rate is far from the largest number; so is what users mean by no limit.
    if (std::isfinite(options.duration)) _left = std::llround(options.duration * rate());
    _frames = std::min(_frames, _left);
}

void SongReader::skipTo(double seconds) {
    const std::int64_t wanted = std::llround(seconds * rate());
    const std::int64_t skipped = _source->skip(wanted);
    if (skipped < wanted || wanted == _source->frames()) {
        throw Failure(ExitCode::wrongUsage, _name + ": is only " + clockTime(this->seconds(skipped)) +
                                                " long; choose an earlier --start than " + clockTime(seconds));
    }
}

std::vector<float> SongReader::read() {
    const auto channels = static_cast<std::size_t>(_source->channels());
    // At most a second: a song of a very low rate grows a lot when it is converted to the model's.
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(_left, std::min(rate(), largestBlock)));
    std::vector<float> block(wanted * channels);
    const std::size_t count = wanted > 0 ? _source->read(block.data(), wanted) : 0;
    if (_left != unknownLength) _left -= static_cast<std::int64_t>(count);
    block.resize(count * channels);
    for (float& sample : block) {
        if (std::isfinite(sample)) continue;
        sample = 0;
        ++_notFinite;
    }
    return channels == 1 ? twoEqualChannels(block) : block;
}

}  // namespace tavrin::tool
