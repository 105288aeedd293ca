/// @file
/// How much memory something needs at its peak.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// A line of the status of this process, or of another one, in KiB.
inline size_t residentKiB(const std::string& name, const std::string& process = "self") {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name + ":", 0) == 0) return std::stoul(line.substr(name.size() + 1));
    throw std::runtime_error("no " + name + " in the process's status");
}

/// The pages that an action is the first to touch.
template <class Action>
size_t pageFaults(const Action& action) {
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    action();
    getrusage(RUSAGE_SELF, &after);
    return size_t(after.ru_minflt - before.ru_minflt);
}

/// The growth of the resident set's peak while `action` runs, in KiB. It runs in a copy of the process, so nothing that
/// it allocates is memory that was freed before.
template <class Action>
size_t peakGrowthKiB(const Action& action) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe for the memory measurement");
    const pid_t child = fork();
    if (child == 0) {
        std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts again from what is resident now
        const size_t before = residentKiB("VmRSS");
        action();
        const size_t growth = residentKiB("VmHWM") - before;
        _exit(write(ends[1], &growth, sizeof growth) == sizeof growth ? 0 : 1);
    }
    close(ends[1]);  // so that a child that dies ends the reading
    size_t growth = 0;
    const bool got = child > 0 && read(ends[0], &growth, sizeof growth) == sizeof growth;
    close(ends[0]);
    int status = 0;
    if (!got || waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error("the memory measurement failed");
    return growth;
}
