#include "separation.h"

#include <utility>

namespace tavrin::tool {

namespace {

constexpr double modelRate = 44100;

void append(std::vector<float>& to, const std::vector<float>& samples) {
    to.insert(to.end(), samples.begin(), samples.end());
}

}  // namespace

Separation::Separation(std::unique_ptr<StemStream> stems, double songRate)
    : _stems(std::move(stems)), _toModelRate(songRate, modelRate) {
    while (_toSongRate.size() < _stems->stems()) _toSongRate.emplace_back(modelRate, songRate);
}

Parts Separation::process(const std::vector<float>& song) {
    append(_waiting, song);
    Parts stems = _stems->process(_toModelRate.process(song));
    for (std::size_t s = 0; s < stems.size(); ++s) stems[s] = _toSongRate[s].process(std::move(stems[s]));
    return withRest(std::move(stems));
}

Parts Separation::finish() {
    Parts stems = _stems->process(_toModelRate.finish());
    const Parts last = _stems->finish();
    for (std::size_t s = 0; s < stems.size(); ++s) {
        append(stems[s], last[s]);
        stems[s] = _toSongRate[s].process(std::move(stems[s]));
        append(stems[s], _toSongRate[s].finish());
        // Two conversions of the rate can lose or gain a few samples.
        stems[s].resize(_waiting.size());
    }
    return withRest(std::move(stems));
}

// The stems are equally long: their streams went through the same steps.
Parts Separation::withRest(Parts stems) {
    const auto end = _waiting.begin() + static_cast<std::ptrdiff_t>(stems.front().size());
    std::vector<float> rest(_waiting.begin(), end);
    _waiting.erase(_waiting.begin(), end);
    for (const std::vector<float>& stem : stems) {
        for (std::size_t i = 0; i < rest.size(); ++i) rest[i] -= stem[i];
    }
    _framesDone += static_cast<std::int64_t>(rest.size() / 2);
    stems.push_back(std::move(rest));
    return stems;
}

}  // namespace tavrin::tool
