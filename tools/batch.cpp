#include "batch.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <thread>

#include "failure.h"
#include "progress.h"
#include "song_report.h"
#include "song_run.h"
#include "standard_streams.h"

namespace tavrin::tool {

namespace {

class Batch {
public:
    Batch(const Options& options, const Model& model, const std::vector<Song>& songs)
        : _options(options),
          _model(model),
          _songs(songs),
          _progress(songs.size(), options.verbosity != Verbosity::quiet) {}

    void run() {
        const auto threads = std::min<std::size_t>(static_cast<std::size_t>(_options.jobs), _songs.size());
        std::vector<std::thread> helpers;
        while (helpers.size() + 1 < threads) helpers.emplace_back([this] { work(); });
        work();
        for (std::thread& helper : helpers) helper.join();
        if (_end) std::rethrow_exception(_end);
    }

    std::size_t done() const { return _done; }
    std::size_t skipped() const { return _skipped; }
    const std::vector<SongReport>& failures() const { return _failures; }

private:
    void work() {
        for (std::size_t next = _next++; next < _songs.size(); next = _next++) {
            try {
                take(separateSong(_options, _model, _songs[next], _progress));
            } catch (...) {
                const std::lock_guard lock(_turn);
                if (!_end) _end = std::current_exception();
                _next = _songs.size();
            }
        }
    }

    void take(const SongReport& report) {
        const std::lock_guard lock(_turn);
        switch (report.status) {
            case SongReport::Status::done:
                ++_done;
                break;
            case SongReport::Status::skipped:
                ++_skipped;
                break;
            case SongReport::Status::failed:
                _failures.push_back(report);
                break;
        }
        if (_options.json) {
            const std::string line = toJson(report) + "\n";
            writeStandardOutput(line.data(), line.size());
        }
        if (_options.verbosity == Verbosity::quiet) return;
        for (const std::string& warning : report.warnings) say("warning: " + warning);
        // The message of a single song comes at the end.
        if (report.status != SongReport::Status::failed || _songs.size() > 1) say(describe(report));
    }

    const Options& _options;
    const Model& _model;
    const std::vector<Song>& _songs;
    Progress _progress;
    std::atomic<std::size_t> _next = 0;
    std::mutex _turn;
    std::exception_ptr _end;  // why the run ends early
    std::size_t _done = 0;
    std::size_t _skipped = 0;
    std::vector<SongReport> _failures;
};

}  // namespace

ExitCode separateSongs(const Options& options, const Model& model, const std::vector<Song>& songs) {
    Batch batch(options, model, songs);
    const bool several = songs.size() > 1;
    try {
        batch.run();
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::interrupted) throw;
        if (options.toStandardOutput()) throw Failure(ExitCode::interrupted, "interrupted");
        if (!several) throw;
        throw Failure(ExitCode::interrupted, "interrupted; " + std::to_string(batch.done()) + " of " +
                                                 std::to_string(songs.size()) +
                                                 " songs were separated and nothing of the others was written; the "
                                                 "same command goes on with those");
    }
    const std::vector<SongReport>& failures = batch.failures();
    if (several && options.verbosity != Verbosity::quiet) {
        say(std::to_string(songs.size()) + " songs: " + std::to_string(batch.done()) + " separated, " +
            std::to_string(batch.skipped()) + " skipped, " + std::to_string(failures.size()) + " failed");
    }
    for (const SongReport& failure : failures) say((several ? "failed: " : "") + failure.message);
    if (failures.empty()) return ExitCode::done;
    return several ? ExitCode::someSongsFailed : failures.front().code;
}

}  // namespace tavrin::tool
