/// @file
/// tavrin-separate: songs in, their stems and the rest out.
#include <plog/Appenders/IAppender.h>
#include <plog/Init.h>
#include <plog/Record.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "common/command.h"
#include "common/failure.h"
#include "common/messages.h"
#include "separate/models.h"
#include "separate/options.h"
#include "separate/song_run.h"
#include "separate/songs.h"

namespace tavrin::tool {

namespace {

// What the library does, for users who want to see everything.
struct SpokenLog final : plog::IAppender {
    void write(const plog::Record& record) override { say(record.getMessage()); }
};

// All songs of a run, options.jobs at a time. One that fails does not keep the others from being separated.
struct Batch {
    const Options& options;
    const LoadedModels& models;
    const std::vector<Song>& songs;
    Progress progress{songs.size(), !options.quiet && !options.output.toStandardOutput()};
    std::atomic<std::size_t> next = 0;
    std::mutex turn{};
    std::map<std::string, std::size_t> count{};  // of the songs of each status
    std::vector<std::string> failures{};
    ExitCode code = ExitCode::done;  // of a single song, or of several of which none failed

    ExitCode run() {
        prepareLastWords();
        const auto threads = std::min(static_cast<std::size_t>(options.jobs), songs.size());
        std::vector<std::future<void>> helpers;  // each with a thread of its own, where one can be had
        while (helpers.size() + 1 < threads) helpers.push_back(std::async([this] { work(); }));
        work();
        for (std::future<void>& helper : helpers) helper.get();
        const bool several = songs.size() > 1;
        if (several && !options.quiet)
            say(std::to_string(songs.size()) + " songs: " + std::to_string(count["done"]) + " separated, " +
                std::to_string(count["skipped"]) + " skipped, " + std::to_string(count["failed"]) + " failed");
        for (const std::string& failure : failures) say((several ? "failed: " : "") + failure);
        return several && !failures.empty() ? ExitCode::someSongsFailed : code;
    }

    void work() {
        for (std::size_t song = next++; song < songs.size(); song = next++) {
            try {
                take(separateSong(options, models, songs[song], progress));
            } catch (...) {
                next = songs.size();
                throw;
            }
        }
    }

    void take(const SongOutcome& song) {
        const std::lock_guard lock(turn);
        const std::string status = song.record["status"];
        const bool isFailed = status == "failed";
        ++count[status];
        if (isFailed) failures.push_back(song.message);
        if (isFailed) code = song.record["exit_code"];
        if (song.record.value("damaged", false)) code = ExitCode::songsDamaged;
        prepareLastWords();
        if (options.json) {
            std::puts(asText(song.record).c_str());
            if (std::fflush(stdout) != 0) throw readerGone();
        }
        for (const std::string warning : song.record.value("warnings", Json::array())) say("warning: " + warning);
        // The message of a single song that failed comes at the end.
        if (!options.quiet && (!isFailed || songs.size() > 1)) say(song.message);
    }

    void prepareLastWords() {
        if (options.output.toStandardOutput()) return setLastWords("interrupted");
        if (songs.size() == 1) return;
        setLastWords(
            "interrupted; " + std::to_string(count["done"]) + " of " + std::to_string(songs.size()) +
            " songs were separated and nothing of the others was written; the same command goes on with those");
    }
};

ExitCode separate(const Options& options) {
    static SpokenLog log;  // as plog's logger, until the process ends
    if (options.verbose) plog::init(plog::info, &log);
    const auto list = [](const std::vector<std::string>& names) {
        std::puts(joined(names, "\n").c_str());
        return ExitCode::done;
    };
    if (options.listProviders) return list(availableProviders());
    const std::vector<Song> songs = listSongs(options.songs, options.output.folder);
    const LoadedModels models = loadModels(options.model);
    if (options.listStems) return list(models.names.stems);
    requireDistinctTargets(options.output, models.names, songs);
    return Batch{options, models, songs}.run();
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) {
    using namespace tavrin::tool;
    return runCommand("tavrin-separate", "the run", [&] { return separate(parseOptions(argc, argv)); });
}
