#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "messages.h"
#include "sound_source.h"

namespace tavrin::tool {

Progress::Progress(std::size_t songs, bool wanted)
    : _songs(songs), _visible(wanted && songs > 0 && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (_visible) showStatus("");
}

void Progress::Song::show(std::int64_t framesDone, std::int64_t frames) {
    if (frames <= 0 || frames == unknownLength) return;
    // A compressed file may turn out longer than it said.
    const double share = std::min(1.0, static_cast<double>(framesDone) / static_cast<double>(frames));
    _progress.advance(share - _share, false);
    _share = share;
}

void Progress::advance(double songs, bool finished) {
    const std::lock_guard lock(_turn);
    _done += songs;
    _finished += finished ? 1 : 0;
    if (_visible && _finished < _songs) show();
}

void Progress::show() const {
    constexpr std::size_t width = 30;
    const double share = std::clamp(_done / static_cast<double>(_songs), 0.0, 1.0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    const auto full = static_cast<std::size_t>(share * width);
    const std::string bar = std::string(full, '#') + std::string(width - full, '.');
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3.0f %%", share * 100);
    std::string line = "[" + bar + "] " + percent;
    if (share > 0) line += "  " + clockTime(seconds * (1 - share) / share) + " left";
    if (_songs > 1) line += "  " + std::to_string(_finished) + " of " + std::to_string(_songs) + " songs";
    showStatus(line);
}

}  // namespace tavrin::tool
