#include "audio/ffmpeg.h"

#include <utility>

namespace tavrin::tool {

namespace {

constexpr std::size_t mostLines = 100;

constexpr const char* brokenOff = "Packet corrupt";

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
    char text[1024];
    int withPrefix = 0;  // theirs has addresses in it
    av_log_format_line2(object, level, format, arguments, text, sizeof text, &withPrefix);
    std::string& line = currentLog->_unfinished;
    const AVClass* who = object ? *static_cast<AVClass**>(object) : nullptr;
    if (line.empty() && who) line = who->item_name(object) + std::string(": ");
    line += text;
    if (!line.ends_with('\n')) return;
    line.pop_back();
    // A piece of a file that broke off is a mere warning to them.
    const bool isError = level <= AV_LOG_ERROR || line.find(brokenOff) != std::string::npos;
    currentLog->add(std::exchange(line, ""), isError);
}

void LibraryLog::add(const std::string& line, bool isError) {
    if (_lines.size() < mostLines) _lines.push_back(line);
    if (!isError) return;
    ++_errors;
    _lastError = line.find(brokenOff) == std::string::npos ? line : "part of the data is missing";
}

}  // namespace tavrin::tool
