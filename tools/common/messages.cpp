#include "common/messages.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string_view>

namespace tavrin::tool {

namespace {

// What a terminal does: it forgets a line, it cuts lines at its edge, it goes on below.
constexpr const char* wipeLine = "\r\033[K";
constexpr const char* withoutWrap = "\033[?7l";
constexpr const char* withWrap = "\033[?7h";

std::timed_mutex turn;
std::string speaker;
std::string status;  // what the terminal's last line shows

std::string lineOf(const std::string& message) {
    return (status.empty() ? "" : wipeLine) + speaker + ": " + printable(message) + "\n";
}

// Whoever calls it has the turn.
void showStatus(const std::string& line) {
    if (line == status) return;
    status = line;
    std::fprintf(stderr, "%s%s", wipeLine, line.c_str());
    std::fflush(stderr);
}

// Bytes of the character at the start of the text when it may be shown; otherwise 0.
std::size_t shownBytes(std::string_view text) {
    const auto first = static_cast<std::uint8_t>(text.front());
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const auto size = static_cast<std::size_t>(std::countl_one(first));
    if (size < 2 || first > 0xF4 || size > text.size()) return 0;
    const std::string_view character = text.substr(0, size);
    const auto isContinuation = [](char c) { return static_cast<std::uint8_t>(c) >> 6 == 2; };
    const bool isWhole = std::all_of(character.begin() + 1, character.end(), isContinuation);
    // What comes before "\xC2\xA0" is a control character, or a letter in more bytes than it needs.
    return isWhole && character >= "\xC2\xA0" ? size : 0;
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

Progress::Progress(std::size_t songs, bool wanted) : _songs(songs), _isVisible(wanted && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    const std::lock_guard lock(turn);
    showStatus("");
}

void Progress::show(const std::string& song, double before, double now) {
    const std::lock_guard lock(turn);
    _done += now - before;
    _finished += before < 1 && now >= 1 ? 1 : 0;
    if (_isVisible && _finished < _songs) showStatus(line(song));
}

std::string Progress::line(const std::string& song) const {
    constexpr std::size_t width = 10;
    const double share = std::clamp(_done / static_cast<double>(_songs), 0.0, 1.0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    std::string bar(width, '.');
    std::fill_n(bar.begin(), static_cast<std::size_t>(share * width), '#');
    char percent[16];
    std::snprintf(percent, sizeof percent, " %3.0f %%", share * 100);
    std::string line = bar + percent;
    if (share > 0) line += "  " + clockTime(seconds * (1 - share) / share) + " left";
    if (_songs > 1) line += "  " + std::to_string(_finished) + " of " + std::to_string(_songs);
    return withoutWrap + line + "  " + printable(song) + withWrap;
}

std::string printable(const std::string& text) {
    std::string shown;
    for (std::string_view left = text; !left.empty();) {
        const std::size_t bytes = shownBytes(left);
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02X", static_cast<std::uint8_t>(left.front()));
        shown += bytes > 0 ? left.substr(0, bytes) : code;
        left.remove_prefix(std::max<std::size_t>(1, bytes));
    }
    return shown;
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
