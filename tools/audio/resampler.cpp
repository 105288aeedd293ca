#include "audio/resampler.h"

#include <algorithm>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

AVChannelLayout usualLayout(int channels) {
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    return layout;
}

}  // namespace

Resampler::Resampler(int from, int to) : Resampler(usualLayout(2), AV_SAMPLE_FMT_FLT, from, to) {}

Resampler::Resampler(const AVChannelLayout& layout, AVSampleFormat format, int from, int to) : _from(from), _to(to) {
    const int width = layout.nb_channels;
    if (width == 2 && format == AV_SAMPLE_FMT_FLT && from == to) return;
    // One or two channels are what they are, whatever the file calls them.
    AVChannelLayout in = width <= 2 ? usualLayout(width) : layout, out = usualLayout(2);
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &out, AV_SAMPLE_FMT_FLT, to, &in, format, from, 0, nullptr);
    _converter.reset(allocated(context));
    constexpr double both[] = {1, 1};
    if (width == 1) swr_set_matrix(context, both, 1);
    av_opt_set(context, "resampler", "soxr", 0);
    av_opt_set_int(context, "precision", 28, 0);  // bits: what soxr calls very high quality
    if (const int result = swr_init(context); result < 0) {
        throw Failure(ExitCode::inputUnreadable, "FFmpeg's libswresample cannot convert " + std::to_string(from) +
                                                     " Hz to " + std::to_string(to) + " Hz (" + errorText(result) +
                                                     "); it needs a build with libsoxr");
    }
}

std::vector<float> Resampler::process(std::vector<float> samples) {
    constexpr std::int64_t largestPiece = 8192;  // samples per channel
    const auto count = static_cast<std::int64_t>(samples.size() / 2);
    if (_converter) {
        std::vector<float> result;
        // What does not fit into one call would wait in libswresample, which loses it when it ends.
        for (std::int64_t i = 0; i < count; i += largestPiece) {
            const auto* data = reinterpret_cast<const std::uint8_t*>(&samples[static_cast<std::size_t>(2 * i)]);
            process(&data, static_cast<int>(std::min(count - i, largestPiece)), result);
        }
        samples.swap(result);
    }
    _in += count;
    _out += static_cast<std::int64_t>(samples.size() / 2);
    return samples;
}

void Resampler::process(const std::uint8_t** data, int count, std::vector<float>& result) {
    if (!_converter) {
        const auto* samples = data ? reinterpret_cast<const float*>(*data) : nullptr;
        result.insert(result.end(), samples, samples + 2 * std::ptrdiff_t{count});
        return;
    }
    const std::size_t have = result.size();
    const int most = swr_get_out_samples(_converter.get(), count) + 16;
    result.resize(have + 2 * static_cast<std::size_t>(most));
    auto* out = reinterpret_cast<std::uint8_t*>(&result[have]);
    const int made = swr_convert(_converter.get(), &out, most, data, count);
    if (made < 0) {
        throw Failure(ExitCode::inputUnreadable, "the rate of the samples cannot be converted: " + errorText(made));
    }
    result.resize(have + 2 * static_cast<std::size_t>(made));
}

std::vector<float> Resampler::finish(std::int64_t length) {
    std::vector<float> last;
    if (_in > 0) process(nullptr, 0, last);
    if (length < 0) length = av_rescale(_in, _to, _from);
    last.resize(static_cast<std::size_t>(2 * std::max<std::int64_t>(0, length - _out)));
    return last;
}

}  // namespace tavrin::tool
