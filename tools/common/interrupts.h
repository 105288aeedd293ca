/// @file
/// What happens when the user or the system wants the program to end.
#pragma once

#include <string>

namespace tavrin::tool {

/// From now on SIGINT, SIGTERM and SIGHUP end the process at once, wherever its threads are: unfinished files and
/// folders made for them are removed, the last words are said, and the exit code is 128 + the signal's number. (Under
/// nohup, SIGHUP stays ignored.) A broken pipe and a file size limit become ordinary failed writes.
///
/// To be called before any thread is started: a thread of its own waits for the signals, and the others must not get
/// them. @throws std::system_error when it cannot be started.
void endOnSignals();

/// What the user reads when a signal ends the process. Any thread.
void setLastWords(const std::string& words);

}  // namespace tavrin::tool
