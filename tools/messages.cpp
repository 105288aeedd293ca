#include "messages.h"

#include <plog/Init.h>
#include <plog/Record.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tavrin::tool {

void say(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "tavrin-separate: %s\n", message.c_str());
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

const LogLines& LogLines::install(Verbosity verbosity) {
    // Static, like plog's logger: the library may log until the process ends.
    static LogLines lines(verbosity == Verbosity::verbose);
    const plog::Severity severity[] = {plog::error, plog::warning, plog::info};
    plog::init(severity[static_cast<int>(verbosity)], &lines);
    return lines;
}

void LogLines::write(const plog::Record& record) {
    const std::string line = record.getMessage();
    const bool isError = record.getSeverity() <= plog::error;
    // A warning to the library, but to its user nothing to worry about.
    const bool isTiming = line.starts_with("[INFERENCE_onnx] Inference finished");
    if (_showAll || (!isError && !isTiming)) say(line);
    if (isError) _lastError = line;
}

}  // namespace tavrin::tool
