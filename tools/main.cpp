/// @file
/// tavrin-separate: songs in, their stems and the rest out.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "batch.h"
#include "failure.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "providers.h"
#include "standard_streams.h"
#include "stem_stream.h"
#include "targets.h"
#include "work_list.h"

namespace tavrin::tool {

namespace {

ExitCode listProviders() {
    std::string list;
    for (const std::string& provider : offeredProviders()) list += provider + "\n";
    writeStandardOutput(list.data(), list.size());
    return ExitCode::done;
}

ExitCode run(int argc, const char* const* argv) {
    noteInterrupts();
    try {
        const Options options = parseOptions(argc, argv);
        if (options.listProviders) return listProviders();
        const std::vector<Song> songs = listSongs(options);
        requireDistinctTargets(options, songs);
        const Model model(options);
        return separateSongs(options, model, songs);
    } catch (const Failure& failure) {
        if (*failure.what()) say(failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        say(std::string(error.what()) + "; free some memory and disk, then try again");
        return ExitCode::writeFailed;
    }
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) { return static_cast<int>(tavrin::tool::run(argc, argv)); }
