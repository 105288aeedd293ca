#include "separate/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "common/messages.h"

namespace tavrin::tool {

Progress::Progress(std::size_t songs, bool wanted)
    : _songs(songs), _isVisible(wanted && songs > 0 && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (_isVisible) showStatus("");
}

void Progress::Song::show(std::int64_t samplesDone, std::int64_t length) {
    if (length <= 0) return;
    // A compressed file may turn out longer than it said.
    const double share = std::min(1.0, static_cast<double>(samplesDone) / static_cast<double>(length));
    _progress.advance(share - _share, false, _name);
    _share = share;
}

void Progress::advance(double songs, bool isFinished, const std::string& name) {
    const std::lock_guard lock(_turn);
    _done += songs;
    _finished += isFinished ? 1 : 0;
    if (_isVisible && _finished < _songs) showStatus(line(name));
}

std::string Progress::line(const std::string& name) const {
    constexpr std::size_t widestBar = 30;
    winsize terminal{};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0;
    const std::size_t columns = (isKnown ? terminal.ws_col : 80U) - 1;  // the last one would begin another line
    const double share = std::clamp(_done / static_cast<double>(_songs), 0.0, 1.0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3.0f %%", share * 100);
    std::string line = percent;
    if (share > 0) line += "  " + clockTime(seconds * (1 - share) / share) + " left";
    if (_songs > 1) line += "  " + std::to_string(_finished) + " of " + std::to_string(_songs);
    const std::size_t width = columns / 3 < 8 ? 0 : std::min(columns / 3, widestBar);
    std::string bar(width, '.');
    std::fill_n(bar.begin(), static_cast<std::size_t>(share * static_cast<double>(width)), '#');
    if (width > 0) line = bar + " " + line;
    if (line.size() + 4 < columns) line += "  " + cut(printable(name), columns - line.size() - 2);
    return cut(line, columns);
}

}  // namespace tavrin::tool
