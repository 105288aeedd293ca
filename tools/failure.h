/// @file
/// How a run ends early: with one line for the user and an exit code.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tavrin::tool {

/// The exit codes of tavrin-separate; scripts rely on them.
enum class ExitCode {
    done = 0,
    wrongUsage = 1,
    inputUnreadable = 2,
    modelUnusable = 3,
    writeFailed = 4,
    someSongsFailed = 5,
    interrupted = 130
};

/// Ends the run. Its text is the whole message: it names the file or the value, the reason and the next step.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), _code(code) {}
    ExitCode code() const noexcept { return _code; }

private:
    ExitCode _code;
};

/// The end of a run whose reader has heard enough: no failure, and nothing to say.
inline Failure readerGone() { return {ExitCode::done, ""}; }

/// @param file what was to be made or written.
inline Failure writeFailure(const std::filesystem::path& file, const std::string& reason) {
    return {ExitCode::writeFailed,
            file.string() + ": cannot be written (" + reason + "); make room or choose another folder with -o"};
}

}  // namespace tavrin::tool
