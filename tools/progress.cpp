#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "messages.h"
#include "song_reader.h"

namespace tavrin::tool {

Progress::Progress(std::int64_t totalFrames, bool wanted)
    : _totalFrames(totalFrames),
      _visible(wanted && totalFrames > 0 && totalFrames != SongReader::unknownLength && isatty(STDERR_FILENO) == 1) {
    show(0);
}

Progress::~Progress() {
    if (_visible) std::fputs("\r\033[K", stderr);
}

double Progress::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
}

void Progress::show(std::int64_t framesDone) {
    if (!_visible) return;
    constexpr std::size_t width = 40;
    // A compressed file may turn out longer than it said.
    const double share = std::min(1.0, static_cast<double>(framesDone) / static_cast<double>(_totalFrames));
    const auto full = static_cast<std::size_t>(share * width);
    const std::string bar = std::string(full, '#') + std::string(width - full, '.');
    const std::string left = framesDone > 0 ? clockTime(seconds() * (1 - share) / share) + " left" : "";
    std::fprintf(stderr, "\r\033[K[%s] %3.0f %%  %s", bar.c_str(), share * 100, left.c_str());
    std::fflush(stderr);
}

}  // namespace tavrin::tool
