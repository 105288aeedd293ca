/// @file
/// tavrin-separate: songs in, their stems and the rest out.
#include <plog/Appenders/IAppender.h>
#include <plog/Init.h>
#include <plog/Record.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "common/failure.h"
#include "common/interrupts.h"
#include "common/messages.h"
#include "separate/models.h"
#include "separate/names.h"
#include "separate/options.h"
#include "separate/progress.h"
#include "separate/record.h"
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
          _progress(songs.size(), !options.quiet && !options.output.toStandardOutput) {
        prepareLastWords();
    }

    ExitCode run() {
        const auto threads = std::min<std::size_t>(static_cast<std::size_t>(_options.jobs), _songs.size());
        std::vector<std::jthread> helpers;
        try {
            while (helpers.size() + 1 < threads) helpers.emplace_back([this] { work(); });
        } catch (const std::system_error& error) {
            say("warning: only " + std::to_string(helpers.size() + 1) + " songs at a time (" + error.what() + ")");
        }
        work();
        helpers.clear();
        if (_end) std::rethrow_exception(_end);
        return conclude();
    }

private:
    // Of a single song what it failed with; of several, that some did.
    ExitCode conclude() const {
        const bool several = _songs.size() > 1;
        if (several && !_options.quiet) {
            say(std::to_string(_songs.size()) + " songs: " + std::to_string(_done) + " separated, " +
                std::to_string(_skipped) + " skipped, " + std::to_string(_failures.size()) + " failed");
        }
        for (const SongReport& failure : _failures) say((several ? "failed: " : "") + failure.message);
        if (_failures.empty()) return _isDamaged ? ExitCode::songsDamaged : ExitCode::done;
        return several ? ExitCode::someSongsFailed : _failures.front().code;
    }

    void work() {
        for (std::size_t next = _next++; next < _songs.size(); next = _next++) {
            try {
                take(separateSong(_options, _models, _songs[next], _progress));
            } catch (...) {
                const std::lock_guard lock(_turn);
                if (!_end) _end = std::current_exception();
                _next = _songs.size();
            }
        }
    }

    void take(const SongReport& report) {
        const std::lock_guard lock(_turn);
        _done += report.status == SongReport::Status::done ? 1 : 0;
        _skipped += report.status == SongReport::Status::skipped ? 1 : 0;
        _isDamaged = _isDamaged || report.isDamaged;
        if (report.status == SongReport::Status::failed) _failures.push_back(report);
        prepareLastWords();
        if (_options.json) {
            std::puts(asText(recordOf(report)).c_str());
            if (std::fflush(stdout) != 0) throw readerGone();
        }
        for (const std::string& warning : report.warnings) say("warning: " + warning);
        if (_options.quiet) return;
        // The message of a single song comes at the end.
        if (report.status != SongReport::Status::failed || _songs.size() > 1) say(describe(report));
    }

    void prepareLastWords() const {
        if (_options.output.toStandardOutput) return setLastWords("interrupted");
        if (_songs.size() == 1) return;
        setLastWords(
            "interrupted; " + std::to_string(_done) + " of " + std::to_string(_songs.size()) +
            " songs were separated and nothing of the others was written; the same command goes on with those");
    }

    const Options& _options;
    const LoadedModels& _models;
    const std::vector<Song>& _songs;
    Progress _progress;
    std::atomic<std::size_t> _next = 0;
    std::mutex _turn;
    std::exception_ptr _end;  // why the run ends early
    std::size_t _done = 0;
    std::size_t _skipped = 0;
    bool _isDamaged = false;
    std::vector<SongReport> _failures;
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
