#include "audio/ffmpeg.h"

#include <utility>

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
