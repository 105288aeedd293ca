#include "common/command.h"

#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "common/hidden_file.h"
#include "common/messages.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t lastColumn = 80;
constexpr std::size_t textColumn = 26;

// Breaks lines between words; all begin at that column, the first one stands there already.
std::string wrapped(const std::string& text, std::size_t indent) {
    std::string lines;
    std::size_t column = indent;
    std::istringstream words(text);
    for (std::string word; words >> word; column += word.size() + 1) {
        if (column + word.size() > lastColumn) {
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!lines.empty()) {
            lines += " ";
        }
        lines += word;
    }
    return lines;
}

class NarrowHelp final : public CLI::Formatter {
public:
    std::string make_group(std::string group, bool arePositionals,
                           std::vector<const CLI::Option*> options) const override {
        std::string text = "\n" + group + ":\n";
        for (const CLI::Option* option : options) text += make_option(option, arePositionals);
        return text;
    }

    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        // The type alone: what the checks add to it, defaults and the like are in the texts.
        const std::string type = " " + option->get_type_name();
        const bool isFlag = option->get_type_size() == 0;
        return entry("  " + make_option_name(option, isPositional) +
                         (isFlag || isPositional ? "" : type.substr(0, type.find(':'))),
                     option->get_description());
    }

    std::string make_subcommand(const CLI::App* command) const override {
        return entry("  " + command->get_name(), command->get_description());
    }

private:
    static std::string entry(std::string left, const std::string& text) {
        left += left.size() + 2 > textColumn ? "\n" + std::string(textColumn, ' ')
                                             : std::string(textColumn - left.size(), ' ');
        return left + wrapped(text, textColumn) + "\n";
    }
};

std::mutex turn;
std::string lastWords = "interrupted; nothing was written";

[[noreturn]] void waitAndEnd(sigset_t signals) {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) continue;
    HiddenFile::removeAll();
    const std::lock_guard lock(turn);
    sayAtOnce(lastWords);
    // No destructors: the other threads still use what they would destroy.
    _exit(128 + signal);
}

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

}  // namespace

int runCommand(const char* name, const std::string& subject, const std::function<ExitCode()>& work) {
    setSpeaker(name);
    try {
        endOnSignals();
        return static_cast<int>(work());
    } catch (...) {
        const Failure failure = currentFailure(subject);
        if (*failure.what()) say(failure.what());
        return static_cast<int>(failure.code());
    }
}

void setLastWords(const std::string& words) {
    const std::lock_guard lock(turn);
    lastWords = words;
}

void parseArguments(CLI::App& app, int argc, const char* const* argv) {
    const auto help = std::make_shared<NarrowHelp>();
    app.formatter(help);
    for (CLI::App* command : app.get_subcommands({})) command->formatter(help);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        std::exit(app.exit(helpOrVersion));
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::wrongUsage,
                      std::string(error.what()) + "; " + app.get_name() + " --help shows the usage");
    }
}

}  // namespace tavrin::tool
