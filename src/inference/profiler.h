/// @file
/// A scoped timer.
#pragma once

#include <chrono>
#include <string>

#include "tavrin/export.h"

/// Logs, at info, how long its scope took: "[Profiler] NAME took: N µs".
class TAVRIN_EXPORT Profiler {
public:
    /// Starts the time. @param name says in the log what was timed.
    Profiler(std::string name);
    /// Stops it and logs it.
    ~Profiler();
    Profiler(const Profiler&) = delete;
    Profiler& operator=(const Profiler&) = delete;

private:
    std::string _name;
    std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds> _start;
};
