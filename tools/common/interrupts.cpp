#include "common/interrupts.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <mutex>
#include <thread>

#include "common/hidden_file.h"
#include "common/messages.h"

namespace tavrin::tool {

namespace {

std::mutex turn;
std::string lastWords = "interrupted; nothing was written";

[[noreturn]] void waitAndEnd(sigset_t signals) {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    HiddenFile::removeAll();
    const std::lock_guard lock(turn);
    sayAtOnce(lastWords);
    // No destructors: the other threads still use what they would destroy.
    _exit(128 + signal);
}

}  // namespace

void endOnSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present {};
        sigaction(signal, nullptr, &present);
        // Shells start background commands with SIGINT ignored, but a user who sends it means it.
        if (signal == SIGHUP && present.sa_handler == SIG_IGN) continue;
        std::signal(signal, SIG_DFL);
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread(waitAndEnd, signals).detach();
}

void setLastWords(const std::string& words) {
    const std::lock_guard lock(turn);
    lastWords = words;
}

}  // namespace tavrin::tool
