/// @file
/// What happens when the user or the system wants the program to end.
#pragma once

namespace tavrin::tool {

/// From now on SIGINT, SIGTERM and SIGHUP are noted for throwIfInterrupted(), so that there is time to clean up; a
/// broken pipe and a file size limit are ordinary failed writes.
void noteInterrupts();

/// @throws Failure with ExitCode::interrupted after one of these signals.
void throwIfInterrupted();

}  // namespace tavrin::tool
