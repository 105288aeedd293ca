#include "log_lines.h"

#include <plog/Init.h>
#include <plog/Record.h>

namespace tavrin::tool {

namespace {

// What follows `start` in the line, or nothing.
std::string after(const std::string& start, const std::string& line) {
    return line.starts_with(start) ? line.substr(start.size()) : "";
}

}  // namespace

const LogLines& LogLines::install(Verbosity verbosity) {
    // Static, like plog's logger: the library may log until the process ends.
    static LogLines lines(verbosity);
    plog::init(plog::info, &lines);
    return lines;
}

void LogLines::write(const plog::Record& record) {
    const std::string line = record.getMessage();
    const bool isError = record.getSeverity() <= plog::error;
    // A warning to the library, but to its user nothing to worry about.
    const bool isTiming = line.starts_with("[INFERENCE_onnx] Inference finished");
    const bool isWarning = record.getSeverity() == plog::warning && !isTiming;
    if (_verbosity == Verbosity::verbose || (isWarning && _verbosity == Verbosity::normal)) say(line);
    const std::lock_guard lock(_turn);
    if (isError) _lastError = line;
    noteProvider(line, isError);
}

void LogLines::noteProvider(const std::string& line, bool isError) {
    if (line == "[INFERENCE_onnx] Create Inference ONNX") {
        _provider = _providerBefore = "CPUExecutionProvider";
    } else if (const std::string tried = after("[INFERENCE_onnx] Append execution provider: ", line); !tried.empty()) {
        _providerBefore = _provider;
        _provider = tried;
    } else if (isError || line.starts_with("[INFERENCE_onnx] Unknown EP: ")) {
        _provider = _providerBefore;
    }
}

std::string LogLines::lastError() const {
    const std::lock_guard lock(_turn);
    return _lastError;
}

std::string LogLines::provider() const {
    const std::lock_guard lock(_turn);
    return _provider;
}

}  // namespace tavrin::tool
