#include "common/messages.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>

namespace tavrin::tool {

namespace {

constexpr const char* wipeLine = "\r\033[K";

std::timed_mutex turn;
std::string speaker;
std::string status;  // what the terminal's last line shows

std::string lineOf(const std::string& message) {
    return (status.empty() ? "" : wipeLine) + speaker + ": " + printable(message) + "\n";
}

// Bytes of the character at the start of the text when it may be shown; otherwise 0.
std::size_t shownBytes(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : 0); };
    const unsigned first = byte(at);
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const std::size_t size = first >= 0xF0 && first < 0xF5 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    if (size == 0 || first >= 0xF5) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if (byte(at + i) >> 6 != 2) return 0;
    }
    const bool isControl = first == 0xC2 && byte(at + 1) < 0xA0;
    return isControl ? 0 : size;
}

}  // namespace

void setSpeaker(const char* program) { speaker = program; }

void say(const std::string& message) {
    const std::lock_guard lock(turn);
    std::fputs((lineOf(message) + status).c_str(), stderr);
}

void sayAtOnce(const std::string& message) {
    constexpr std::chrono::milliseconds patience(100);
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (!turn.try_lock_for(patience) || poll(&room, 1, 0) != 1) return;
    const std::string line = lineOf(message);
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;  // nobody is left to be told
}

void showStatus(const std::string& line) {
    const std::lock_guard lock(turn);
    if (line == status) return;
    status = line;
    std::fprintf(stderr, "%s%s", wipeLine, line.c_str());
    std::fflush(stderr);
}

std::string printable(const std::string& text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t bytes = shownBytes(text, at)) {
            shown += text.substr(at, bytes);
            at += bytes;
            continue;
        }
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned char>(text[at++]));
        shown += code;
    }
    return shown;
}

std::string cut(const std::string& text, std::size_t characters) {
    const auto isStart = [](char c) { return (static_cast<unsigned char>(c) >> 6) != 2; };
    std::size_t count = 0;
    std::size_t keep = 0;  // bytes of all but the last character allowed
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (isStart(text[at]) && ++count == characters) keep = at;
    }
    if (count <= characters) return text;
    return characters == 0 ? "" : text.substr(0, keep) + "…";
}

std::string clockTime(double seconds) {
    const auto tenths = std::llround(seconds * 10);
    const long long hours = tenths / 36000;
    char text[40];
    std::snprintf(text, sizeof text, hours > 0 ? "%02lld:%04.1f" : "%lld:%04.1f", tenths / 600 % 60,
                  static_cast<double>(tenths % 600) / 10);
    return (hours > 0 ? std::to_string(hours) + ":" : "") + text;
}

}  // namespace tavrin::tool
