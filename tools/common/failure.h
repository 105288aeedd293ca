/// @file
/// How a run ends early: with one line for the user and an exit code.
#pragma once

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

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

/// @param file what was to be made or written. @param reason by default that of the system call that has just failed.
inline Failure writeFailure(const std::filesystem::path& file, const std::string& reason = std::strerror(errno)) {
    return {ExitCode::writeFailed,
            file.string() + ": cannot be written (" + reason + "); make room or choose another folder with -o"};
}

/// What the exception that is being handled means for the user. What is neither a Failure nor a lack of memory or
/// threads comes from a model or the runtime. @param subject for the message: what was worked on.
inline Failure currentFailure(const std::string& subject) {
    try {
        throw;
    } catch (const Failure& failure) {
        return failure;
    } catch (const std::exception& error) {
        const std::string text = subject + ": " + error.what();
        if (dynamic_cast<const std::bad_alloc*>(&error) || dynamic_cast<const std::system_error*>(&error))
            return {ExitCode::outOfResources, text + "; free some memory, or try fewer --jobs"};
        return {
            ExitCode::modelUnusable,
            text + "; choose another model (tavrin-model inspect says more, and a scrambled one needs its --key-file)"};
    }
}

}  // namespace tavrin::tool
