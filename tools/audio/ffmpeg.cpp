#include "audio/ffmpeg.h"

#include <utility>

namespace tavrin::tool {

namespace {

thread_local LibraryLog* currentLog = nullptr;

void receive(void* object, int level, const char* format, va_list arguments) {
    if (!currentLog || level > AV_LOG_WARNING) return;
    LibraryLog& log = *currentLog;
    char text[1024];
    int withPrefix = 0;  // theirs has addresses in it
    av_log_format_line2(object, level, format, arguments, text, sizeof text, &withPrefix);
    const AVClass* who = object ? *static_cast<AVClass**>(object) : nullptr;
    if (log.unfinished.empty() && who) log.unfinished = who->item_name(object) + std::string(": ");
    log.unfinished += text;
    if (!log.unfinished.ends_with('\n')) return;
    std::string line = std::exchange(log.unfinished, "");
    line.pop_back();
    if (log.lines.size() < 100) log.lines.push_back(line);
    // A piece of a file that broke off is a mere warning to them.
    const bool isBrokenOff = line.find("Packet corrupt") != std::string::npos;
    if (level > AV_LOG_ERROR && !isBrokenOff) return;
    ++log.errors;
    log.lastError = isBrokenOff ? "part of the data is missing" : line;
}

}  // namespace

std::string errorText(int result) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    return av_make_error_string(text, sizeof text, result);
}

LibraryLog::Scope::Scope(LibraryLog& log) {
    static const bool installed = (av_log_set_callback(receive), true);
    currentLog = installed ? &log : nullptr;
}

LibraryLog::Scope::~Scope() { currentLog = nullptr; }

}  // namespace tavrin::tool
