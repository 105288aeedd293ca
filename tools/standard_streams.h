/// @file
/// Standard input and output as streams of bytes that never keep the user's Ctrl-C waiting.
#pragma once

#include <cstddef>

namespace tavrin::tool {

/// Waits for bytes. @return how many came, at most `size`; 0 at the end only.
/// @throws Failure with ExitCode::inputUnreadable, or with ExitCode::interrupted.
std::size_t readStandardInput(char* bytes, std::size_t size);

/// Writes all of them, waiting as long as the reader takes.
/// @throws readerGone(), Failure with ExitCode::writeFailed, or with ExitCode::interrupted.
void writeStandardOutput(const char* bytes, std::size_t size);

}  // namespace tavrin::tool
