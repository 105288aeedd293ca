/// @file
/// tavrin-separate: songs in, their stems and the rest out.
#include <plog/Appenders/IAppender.h>
#include <plog/Init.h>
#include <plog/Record.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "common/failure.h"
#include "common/interrupts.h"
#include "common/messages.h"
#include "separate/batch.h"
#include "separate/models.h"
#include "separate/names.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace tavrin::tool {

namespace {

// What the library does, for users who want to see everything.
class SpokenLog final : public plog::IAppender {
public:
    void write(const plog::Record& record) override { say(record.getMessage()); }
};

void printList(const std::vector<std::string>& words) {
    for (const std::string& word : words) std::puts(word.c_str());
}

ExitCode separate(const Options& options) {
    static SpokenLog log;  // as plog's logger, until the process ends
    if (options.verbose) plog::init(plog::info, &log);
    if (options.listProviders) {
        printList(availableProviders());
        return ExitCode::done;
    }
    std::vector<std::string> warnings;
    const std::vector<Song> songs = listSongs(options.songs, options.output.folder, warnings);
    const LoadedModels models = loadModels(options.model);
    if (options.listStems) {
        printList(models.names.stems);
        return ExitCode::done;
    }
    warnings.insert(warnings.end(), models.warnings.begin(), models.warnings.end());
    for (const std::string& warning : warnings) say("warning: " + warning);
    requireDistinctTargets(options.output, models.names, songs);
    return separateSongs(options, models, songs);
}

ExitCode run(int argc, const char* const* argv) {
    setSpeaker("tavrin-separate");
    try {
        endOnSignals();
        return separate(parseOptions(argc, argv));
    } catch (const Failure& failure) {
        if (*failure.what()) say(failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        say(resourceFailure(error).what());
        return ExitCode::outOfResources;
    }
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) { return static_cast<int>(tavrin::tool::run(argc, argv)); }
