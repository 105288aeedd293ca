#include "audio/resampler.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

namespace {

constexpr std::int64_t largestPiece = 8192;  // samples per channel

}  // namespace

void Resampler::Free::operator()(SwrContext* context) const { swr_free(&context); }

Resampler::Resampler(int from, int to) : _from(from), _to(to) {
    if (from == to) return;
    AVChannelLayout stereo;
    av_channel_layout_default(&stereo, 2);
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLT, to, &stereo, AV_SAMPLE_FMT_FLT, from, 0, nullptr);
    _context.reset(allocated(context));
    av_opt_set(context, "resampler", "soxr", 0);
    av_opt_set_int(context, "precision", 28, 0);  // bits: what soxr calls very high quality
    if (const int result = swr_init(context); result < 0) {
        throw std::runtime_error("FFmpeg's libswresample cannot convert " + std::to_string(from) + " Hz to " +
                                 std::to_string(to) + " Hz (" + errorText(result) + "); it needs a build with libsoxr");
    }
}

Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;
Resampler& Resampler::operator=(Resampler&&) noexcept = default;

std::vector<float> Resampler::process(const std::vector<float>& samples) {
    const auto count = static_cast<std::int64_t>(samples.size() / 2);
    _in += count;
    std::vector<float> result;
    if (!_context) result = samples;
    // What does not fit into one call would wait in libswresample, which loses it when it ends.
    for (std::int64_t i = 0; _context && i < count; i += largestPiece) {
        convert(&samples[static_cast<std::size_t>(2 * i)], std::min(count - i, largestPiece), result);
    }
    _out += static_cast<std::int64_t>(result.size() / 2);
    return result;
}

std::vector<float> Resampler::finish(std::int64_t length) {
    std::vector<float> last;
    if (_context && _in > 0) convert(nullptr, 0, last);
    if (length < 0) length = av_rescale(_in, _to, _from);
    last.resize(static_cast<std::size_t>(2 * std::max<std::int64_t>(0, length - _out)));
    return last;
}

// Without samples: what is still withheld.
void Resampler::convert(const float* samples, std::int64_t count, std::vector<float>& result) {
    const std::size_t have = result.size();
    const int most = swr_get_out_samples(_context.get(), static_cast<int>(count)) + 16;
    result.resize(have + 2 * static_cast<std::size_t>(most));
    auto* out = reinterpret_cast<std::uint8_t*>(&result[have]);
    const auto* in = reinterpret_cast<const std::uint8_t*>(samples);
    const int made = swr_convert(_context.get(), &out, most, samples ? &in : nullptr, static_cast<int>(count));
    if (made < 0) throw std::runtime_error("the rate of the samples cannot be converted: " + errorText(made));
    result.resize(have + 2 * static_cast<std::size_t>(made));
}

}  // namespace tavrin::tool
