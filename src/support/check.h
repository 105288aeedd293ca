/// @file
/// An assertion that every build type keeps.
#pragma once

namespace tavrin {

/// Prints the failed expression with its place to standard error and aborts the process.
[[noreturn]] void checkFailed(const char* expression, const char* file, int line, const char* function) noexcept;

}  // namespace tavrin

/// Aborts when `expression` is false, in release builds too: for states from which no correct output can follow.
#define TAVRIN_CHECK(expression) \
    (static_cast<bool>(expression) ? void() : tavrin::checkFailed(#expression, __FILE__, __LINE__, __func__))
