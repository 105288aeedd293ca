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
#include <utility>
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
class SpokenLog final : public plog::IAppender {
public:
    void write(const plog::Record& record) override { say(record.getMessage()); }
};

// All songs of a run, options.jobs at a time. One that fails does not keep the others from being separated.
class Batch {
public:
    Batch(const Options& options, const LoadedModels& models, const std::vector<Song>& songs)
        : _options(options),
          _models(models),
          _songs(songs),
          _progress(songs.size(), !options.quiet && !options.output.toStandardOutput()) {
        prepareLastWords();
    }

    ExitCode run() {
        const auto threads = std::min(static_cast<std::size_t>(_options.jobs), _songs.size());
        std::vector<std::future<void>> helpers;  // each with a thread of its own, where one can be had
        while (helpers.size() + 1 < threads) helpers.push_back(std::async([this] { work(); }));
        work();
        for (std::future<void>& helper : helpers) helper.get();
        return conclude();
    }

private:
    // Of a single song what it failed with; of several, that some did.
    ExitCode conclude() {
        const bool several = _songs.size() > 1;
        if (several && !_options.quiet) {
            say(std::to_string(_songs.size()) + " songs: " + std::to_string(_count["done"]) + " separated, " +
                std::to_string(_count["skipped"]) + " skipped, " + std::to_string(_count["failed"]) + " failed");
        }
        for (const std::string& failure : _failures) say((several ? "failed: " : "") + failure);
        return several && !_failures.empty() ? ExitCode::someSongsFailed : _code;
    }

    void work() {
        for (std::size_t next = _next++; next < _songs.size(); next = _next++) {
            try {
                double done = 0;
                const auto show = [&](double share) {
                    _progress.show(_songs[next].name(), std::exchange(done, share), share);
                };
                const SongOutcome outcome = separateSong(_options, _models, _songs[next], show);
                show(1);
                take(outcome);
            } catch (...) {
                _next = _songs.size();
                throw;
            }
        }
    }

    void take(const SongOutcome& song) {
        const std::lock_guard lock(_turn);
        const std::string status = song.record["status"];
        const bool isFailed = status == "failed";
        ++_count[status];
        if (isFailed) _failures.push_back(song.message);
        if (isFailed) _code = song.record["exit_code"];
        if (song.record.value("damaged", false)) _code = ExitCode::songsDamaged;
        prepareLastWords();
        if (_options.json) {
            std::puts(asText(song.record).c_str());
            if (std::fflush(stdout) != 0) throw readerGone();
        }
        for (const std::string warning : song.record.value("warnings", Json::array())) say("warning: " + warning);
        // The message of a single song that failed comes at the end.
        if (!_options.quiet && (!isFailed || _songs.size() > 1)) say(song.message);
    }

    void prepareLastWords() {
        if (_options.output.toStandardOutput()) return setLastWords("interrupted");
        if (_songs.size() == 1) return;
        setLastWords(
            "interrupted; " + std::to_string(_count["done"]) + " of " + std::to_string(_songs.size()) +
            " songs were separated and nothing of the others was written; the same command goes on with those");
    }

    const Options& _options;
    const LoadedModels& _models;
    const std::vector<Song>& _songs;
    Progress _progress;
    std::atomic<std::size_t> _next = 0;
    std::mutex _turn;
    std::exception_ptr _end;                    // why the run ends early
    std::map<std::string, std::size_t> _count;  // of the songs of each status
    std::vector<std::string> _failures;
    ExitCode _code = ExitCode::done;  // of a single song, or of several of which none failed
};

ExitCode separate(const Options& options) {
    static SpokenLog log;  // as plog's logger, until the process ends
    if (options.verbose) plog::init(plog::info, &log);
    if (options.listProviders) {
        for (const std::string& provider : availableProviders()) std::puts(provider.c_str());
        return ExitCode::done;
    }
    std::vector<std::string> warnings;
    const std::vector<Song> songs = listSongs(options.songs, options.output.folder, warnings);
    const LoadedModels models = loadModels(options.model);
    if (options.listStems) {
        for (const std::string& stem : models.names.stems) std::puts(stem.c_str());
        return ExitCode::done;
    }
    warnings.insert(warnings.end(), models.warnings.begin(), models.warnings.end());
    for (const std::string& warning : warnings) say("warning: " + warning);
    requireDistinctTargets(options.output, models.names, songs);
    return Batch(options, models, songs).run();
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) {
    using namespace tavrin::tool;
    return runCommand("tavrin-separate", "the run", [&] { return separate(parseOptions(argc, argv)); });
}
