#include "audio/resampler.h"

#include <algorithm>
#include <utility>

namespace tavrin::tool {

Resampler::Resampler(int from, int to) : _from(from), _to(to) {
    AVChannelLayout stereo;
    av_channel_layout_default(&stereo, 2);
    if (from != to) _converter = makeConverter(stereo, AV_SAMPLE_FMT_FLT, from, to);
}

std::vector<float> Resampler::process(std::vector<float> samples) {
    constexpr std::int64_t largestPiece = 8192;  // samples per channel
    const auto count = static_cast<std::int64_t>(samples.size() / 2);
    if (_converter) {
        std::vector<float> result;
        // What does not fit into one call would wait in libswresample, which loses it when it ends.
        for (std::int64_t i = 0; i < count; i += largestPiece) {
            const auto* data = reinterpret_cast<const std::uint8_t*>(&samples[static_cast<std::size_t>(2 * i)]);
            convert(_converter.get(), &data, static_cast<int>(std::min(count - i, largestPiece)), 2, result);
        }
        samples = std::move(result);
    }
    _in += count;
    _out += static_cast<std::int64_t>(samples.size() / 2);
    return samples;
}

std::vector<float> Resampler::finish(std::int64_t length) {
    std::vector<float> last;
    if (_converter && _in > 0) convert(_converter.get(), nullptr, 0, 2, last);
    if (length < 0) length = av_rescale(_in, _to, _from);
    last.resize(static_cast<std::size_t>(2 * std::max<std::int64_t>(0, length - _out)));
    return last;
}

}  // namespace tavrin::tool
