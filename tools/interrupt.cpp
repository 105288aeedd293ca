#include "interrupt.h"

#include <csignal>

#include "failure.h"

namespace tavrin::tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void note(int /*signal*/) { interrupted = 1; }

}  // namespace

void noteInterrupts() {
    std::signal(SIGINT, note);
    std::signal(SIGTERM, note);
    // Under nohup it stays ignored.
    if (std::signal(SIGHUP, note) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

void throwIfInterrupted() {
    if (interrupted) throw Failure(ExitCode::interrupted, "interrupted; nothing was written");
}

}  // namespace tavrin::tool
