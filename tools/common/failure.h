/// @file
/// How a run ends early: with one line for the user and an exit code.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tavrin::tool {

/// The exit codes of the commands; scripts rely on them. A signal ends a command with 128 + its number.
enum class ExitCode {
    done = 0,
    wrongUsage = 1,
    inputUnreadable = 2,
    modelUnusable = 3,
    writeFailed = 4,
    someSongsFailed = 5,
    songsDamaged = 6,  ///< all were separated, but something of a song is missing
    outOfResources = 7
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

/// @param error of this program or its surroundings: no memory, no thread.
inline Failure resourceFailure(const std::exception& error) {
    return {ExitCode::outOfResources, std::string(error.what()) + "; free some memory, or try fewer --jobs"};
}

}  // namespace tavrin::tool
