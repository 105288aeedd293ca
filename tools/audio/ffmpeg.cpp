#include "audio/ffmpeg.h"

#include <algorithm>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t mostLines = 100;

thread_local LibraryLog* currentLog = nullptr;

}  // namespace

std::string errorText(int result) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(result, text, sizeof text);
    return text;
}

ConverterHandle makeConverter(const AVChannelLayout& layout, AVSampleFormat format, int fromRate, int toRate) {
    AVChannelLayout out;
    av_channel_layout_default(&out, std::min(layout.nb_channels, 2));
    // Two channels are left and right whatever the file calls them.
    AVChannelLayout in = layout.nb_channels <= 2 ? out : layout;
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &out, AV_SAMPLE_FMT_FLT, toRate, &in, format, fromRate, 0, nullptr);
    ConverterHandle converter(allocated(context));
    av_opt_set(context, "resampler", "soxr", 0);
    av_opt_set_int(context, "precision", 28, 0);  // bits: what soxr calls very high quality
    if (const int result = swr_init(context); result < 0) {
        throw Failure(ExitCode::inputUnreadable, "FFmpeg's libswresample cannot convert " + std::to_string(fromRate) +
                                                     " Hz to " + std::to_string(toRate) + " Hz (" + errorText(result) +
                                                     "); it needs a build with libsoxr");
    }
    return converter;
}

void convert(SwrContext* converter, const std::uint8_t** data, int count, int channels, std::vector<float>& result) {
    const auto width = static_cast<std::size_t>(channels);
    const std::size_t have = result.size();
    const int most = swr_get_out_samples(converter, count) + 16;
    result.resize(have + width * static_cast<std::size_t>(most));
    auto* out = reinterpret_cast<std::uint8_t*>(&result[have]);
    const int made = swr_convert(converter, &out, most, data, count);
    if (made < 0)
        throw Failure(ExitCode::inputUnreadable, "the rate of the samples cannot be converted: " + errorText(made));
    result.resize(have + width * static_cast<std::size_t>(made));
}

LibraryLog::Scope::Scope(LibraryLog& log) : _outer(std::exchange(currentLog, &log)) {
    static const bool installed = (av_log_set_callback(receive), true);
    static_cast<void>(installed);
}

LibraryLog::Scope::~Scope() { currentLog = _outer; }

void LibraryLog::receive(void* object, int level, const char* format, va_list arguments) {
    if (!currentLog || level > AV_LOG_WARNING) return;
    LibraryLog& log = *currentLog;
    char text[1024];
    int withPrefix = 0;  // theirs has addresses in it
    av_log_format_line2(object, level, format, arguments, text, sizeof text, &withPrefix);
    const AVClass* who = object ? *static_cast<AVClass**>(object) : nullptr;
    if (log._unfinished.empty() && who) log._unfinished = who->item_name(object) + std::string(": ");
    log._unfinished += text;
    if (!log._unfinished.ends_with('\n')) return;
    std::string line = std::exchange(log._unfinished, "");
    line.pop_back();
    if (log._lines.size() < mostLines) log._lines.push_back(line);
    // A piece of a file that broke off is a mere warning to them.
    const bool isBrokenOff = line.find("Packet corrupt") != std::string::npos;
    if (level > AV_LOG_ERROR && !isBrokenOff) return;
    ++log._errors;
    log._lastError = isBrokenOff ? "part of the data is missing" : line;
}

}  // namespace tavrin::tool
