/// @file
/// What the commands have in common: --help, signals, exit codes.
#pragma once

#include <functional>
#include <string>

#include "common/failure.h"

namespace CLI {
class App;
}

namespace tavrin::tool {

/// Runs a command and says what went wrong. SIGINT, SIGTERM and SIGHUP end the process at once, wherever its threads
/// are: unfinished files and folders made for them are removed, the last words are said, and the exit code is 128 + the
/// signal's number. (Under nohup, SIGHUP stays ignored.) A broken pipe and a file size limit become ordinary failed
/// writes. To be called before any thread is started: one of its own waits for the signals.
/// @param subject what currentFailure() names; looked at when `work` has failed. @return the exit code.
int runCommand(const char* name, const std::string& subject, const std::function<ExitCode()>& work);

/// What the user reads when a signal ends the process. Any thread.
void setLastWords(const std::string& words);

/// As app.parse(), with a help that fits into 80 columns; ends the process with code 0 after --help and --version.
/// @throws Failure with ExitCode::wrongUsage.
void parseArguments(CLI::App& app, int argc, const char* const* argv);

}  // namespace tavrin::tool
