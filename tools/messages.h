/// @file
/// What the user reads while the tool works. All of it goes to standard error: standard output is left to scripts.
#pragma once

#include <plog/Appenders/IAppender.h>

#include <string>

namespace tavrin::tool {

enum class Verbosity { quiet, normal, verbose };

/// Prints one line, with the program's name before it.
void say(std::string message);

/// "3:07.5" or "1:03:07.5".
std::string clockTime(double seconds);

/// The library's log as messages of this program. Unless the user wants to see everything, an error is kept instead of
/// printed: when the run fails it is the reason to name, and when the run goes on (an accelerator that did not start,
/// say) it was none. Nor is every model run of a multi-stem model announced then.
class LogLines final : public plog::IAppender {
public:
    /// Makes this the process's log. To be called before the first model is loaded, because the library would otherwise
    /// install its own log, on standard output.
    static const LogLines& install(Verbosity verbosity);

    void write(const plog::Record& record) override;

    /// The last error.
    const std::string& lastError() const { return _lastError; }

private:
    explicit LogLines(bool showAll) : _showAll(showAll) {}

    bool _showAll;
    std::string _lastError;
};

}  // namespace tavrin::tool
