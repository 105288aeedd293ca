#include "inference/profiler.h"

#include <cstdint>
#include <utility>

#include "support/log.h"

Profiler::Profiler(std::string name) : _name(std::move(name)), _start(std::chrono::steady_clock::now()) {}

Profiler::~Profiler() {
    const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - _start;
    TAVRIN_LOG(plog::info, "Profiler::~Profiler()")
        << "[Profiler] " << _name << " took: " << std::int64_t{elapsed.count()} / 1000 << " \u00b5s";
}
