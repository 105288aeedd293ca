#include "separation.h"

#include <utility>

namespace tavrin::tool {

namespace {

constexpr double modelRate = 44100;

void append(std::vector<float>& to, const std::vector<float>& samples) {
    to.insert(to.end(), samples.begin(), samples.end());
}

TavrinProcConfig streamOf(const std::string& modelTag) {
    TavrinProcConfig config;
    config.modelTag = modelTag;
    return config;
}

}  // namespace

Separation::Separation(const std::string& modelTag, double songRate)
    : _separator(streamOf(modelTag)), _toModelRate(songRate, modelRate), _toSongRate(modelRate, songRate) {}

Parts Separation::process(const std::vector<float>& song) {
    append(_waiting, song);
    return split(_toSongRate.process(_separator.process(_toModelRate.process(song))));
}

Parts Separation::finish() {
    std::vector<float> stem = _toSongRate.process(_separator.process(_toModelRate.finish()));
    append(stem, _toSongRate.process(_separator.finish()));
    append(stem, _toSongRate.finish());
    // Two conversions of the rate can lose or gain a few samples.
    stem.resize(_waiting.size());
    return split(std::move(stem));
}

Parts Separation::split(std::vector<float> stem) {
    std::vector<float> rest(stem.size());
    for (std::size_t i = 0; i < stem.size(); ++i) rest[i] = _waiting[i] - stem[i];
    _waiting.erase(_waiting.begin(), _waiting.begin() + static_cast<std::ptrdiff_t>(stem.size()));
    _framesDone += static_cast<std::int64_t>(stem.size() / 2);
    return {std::move(stem), std::move(rest)};
}

}  // namespace tavrin::tool
