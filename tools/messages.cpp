#include "messages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>

namespace tavrin::tool {

namespace {

constexpr const char* wipeLine = "\r\033[K";

std::mutex turn;
std::string status;  // what the terminal's last line shows

}  // namespace

void say(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    const std::lock_guard lock(turn);
    if (!status.empty()) std::fputs(wipeLine, stderr);
    std::fprintf(stderr, "tavrin-separate: %s\n%s", message.c_str(), status.c_str());
}

void showStatus(const std::string& line) {
    const std::lock_guard lock(turn);
    if (line == status) return;
    status = line;
    std::fprintf(stderr, "%s%s", wipeLine, line.c_str());
    std::fflush(stderr);
}

std::string clockTime(double seconds) {
    const auto tenths = std::llround(seconds * 10);
    const long long minutes = tenths / 600;
    char text[40];
    if (minutes < 60) {
        std::snprintf(text, sizeof text, "%lld:%04.1f", minutes, static_cast<double>(tenths % 600) / 10);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld:%04.1f", minutes / 60, minutes % 60,
                      static_cast<double>(tenths % 600) / 10);
    }
    return text;
}

}  // namespace tavrin::tool
