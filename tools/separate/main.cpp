/// @file
/// tavrin-separate: songs in, their stems and the rest out.
#include <plog/Appenders/IAppender.h>
#include <plog/Init.h>
#include <plog/Record.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/command.h"
#include "common/failure.h"
#include "common/hidden_file.h"
#include "common/messages.h"
#include "separate/models.h"
#include "separate/options.h"
#include "separate/results.h"
#include "separate/songs.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

// What the library does, for users who want to see everything.
struct SpokenLog final : plog::IAppender {
    void write(const plog::Record& record) override { say(record.getMessage()); }
};

// A file's path, and its size and time unless it is something else than a regular file.
Json fileRecord(const fs::path& file) {
    if (file == pipeSign) return {{"file", pipeSign}};  // standard input or output
    Json record = {{"file", fs::absolute(file).lexically_normal().string()}};
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return record;
    record["size"] = fs::file_size(file, error);
    const auto time = std::chrono::file_clock::to_sys(fs::last_write_time(file, error)).time_since_epoch();
    record["modified"] = std::chrono::nanoseconds(time).count();  // since 1970
    return record;
}

// One line of it; bytes that are not UTF-8 are replaced.
std::string asText(const Json& record) { return record.dump(-1, ' ', false, Json::error_handler_t::replace); }

// Read as it would be from a file, where strings are UTF-8 for sure.
Json asWritten(const Json& record) { return Json::parse(asText(record)); }

// One song on its way to its results, and what there is to tell of it.
class SongRun {
public:
    SongRun(const Options& options, const LoadedModels& models, const Song& song, Progress& progress)
        : _options(options), _models(models), _song(song), _progress(progress) {}

    // Separates the song and writes its results, unless they are up to date. Returns also when that fails.
    // @throws readerGone(), when the whole run is to end.
    void run() {
        Json wanted = {{"tavrin", TAVRIN_VERSION}, {"status", "failed"}};
        try {
            wanted.update(wantedRecord());
            record = wanted;
            _targets = targetsOf(_options.output, _models.names, _song);
            std::ifstream stream(_targets.record);
            _earlier = Json::parse(stream, nullptr, false);  // no object when there is none that can be read
            if (_options.overwrite || !takeOver()) separate();
        } catch (...) {
            const Failure failure = currentFailure(_song.label() + ": " + _models.label);
            if (failure.code() == ExitCode::done) throw;  // readerGone()
            message = failure.what();
            record = wanted;
            record.update({{"exit_code", static_cast<int>(failure.code())}, {"message", message}});
        }
        show(1);
    }

    std::string message;  // for the user
    Json record;          // for programs, and for the next run

private:
    // How much of the song is done, from 0 to 1.
    void show(double share) { _progress.show(_song.name(), std::exchange(_shown, share), share); }

    AudioReader open() const {
        AudioInput input = _options.input;
        input.place = {_song.file, _song.isPipe() ? STDIN_FILENO : -1, _song.label()};
        return AudioReader(input);
    }

    // Of the samples that would be separated.
    std::string digestOfSong() const {
        AudioReader reader = open();
        Digest digest;
        for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read())
            digest.add(block.data(), block.size() * sizeof(float));
        return digest.text();
    }

    std::string listFiles() const {
        std::string names;
        for (const Target& part : _targets.parts) names += (names.empty() ? "" : ", ") + part.label();
        return _targets.picture.empty() ? names : names + ", " + _targets.picture.string();
    }

    // What the record of a song has to say for its results to be up to date: song, models and options.
    Json wantedRecord() const {
        const OutputOptions& output = _options.output;
        static constexpr const char* policies[] = {"none", "clamp", "scale-all"};
        const char* const picture = output.linear ? "linear" : "logarithmic";
        Json wanted = {{"song", fileRecord(_song.file)},
                       {"models", _models.record},
                       {"options",
                        {{"stems", _models.names.stems},
                         {"only", output.only},
                         {"format", output.format->name},
                         {"quality", output.quality ? Json(*output.quality) : Json()},
                         {"clip", policies[static_cast<int>(output.clip)]},
                         {"spectrogram", output.spectrogram ? picture : ""},
                         {"start", _options.input.start},
                         {"duration", std::isfinite(_options.input.duration) ? Json(_options.input.duration) : Json()},
                         {"latency", _options.model.latency},
                         {"context", _options.model.context}}}};
        if (const auto& raw = _options.input.raw) wanted["options"]["raw"] = {raw->format, raw->rate, raw->channels};
        return wanted;
    }

    bool areOutputsThere(const Json& outputs) const {
        std::vector<fs::path> files = _targets.files();
        files.pop_back();  // the record
        if (outputs.size() != files.size()) return false;
        for (std::size_t i = 0; i < files.size(); ++i) {
            const Json present = asWritten(fileRecord(files[i]));
            Json output = outputs.at(i);
            output.update(present);
            if (output != outputs[i] || !present.contains("size")) return false;
        }
        return true;
    }

    // Completes the record of a song from an earlier one, provided that models, options, song and results are still the
    // same. Only when the song's path or time differ, its samples are compared by their digest.
    bool takeOver() {
        try {
            const Json wanted = asWritten(record);
            const Json& before = _earlier.at("song");
            const Json& audio = before.at("audio");
            const Json& now = wanted.at("song");
            const bool isSame = _earlier.at("models") == wanted.at("models") &&
                                _earlier.at("options") == wanted.at("options") &&
                                areOutputsThere(_earlier.at("outputs"));
            if (!isSame || !now.contains("size") || before.at("size") != now.at("size")) return false;
            const bool isUntouched = before.at("file") == now.at("file") && before.at("modified") == now.at("modified");
            if (!isUntouched && audio != digestOfSong()) return false;
            record.update({{"outputs", _earlier.at("outputs")},
                           {"damaged", _earlier.at("damaged").get<bool>()},
                           {"warnings", _earlier.at("warnings").get<std::vector<std::string>>()}});
            record["song"]["audio"] = audio;
            record["status"] = "skipped";
            message = _song.label() + ": skipped, its results are up to date (" + listFiles() +
                      "); --overwrite makes them anew";
            return true;
        } catch (const Json::exception&) {
            return false;  // not one of ours, or of another version
        }
    }

    // What the user should know about a song although it was separated.
    void warnAbout(const AudioReader& reader) {
        const auto warn = [&](const std::string& what) { record["warnings"].push_back(_song.label() + ": " + what); };
        constexpr std::size_t most = 5;
        const std::span damage = reader.damage();
        for (const auto& [from, to, errors, reason] : damage.first(std::min(most, damage.size())))
            warn("is damaged from " + clockTime(from) + " to " + clockTime(to) + " (" + std::to_string(errors) +
                 (errors == 1 ? " error: " : " errors, the first: ") + reason + ")");
        if (damage.size() > most) warn("is damaged in " + std::to_string(damage.size() - most) + " more places");
        if (const auto& length = reader.wrongLength())
            warn("has " + clockTime(length->actual) + " of sound, but its header says " + clockTime(length->claimed) +
                 "; check that it is complete");
        if (reader.notFinite() > 0)
            warn(std::to_string(reader.notFinite()) + " samples are not finite numbers and count as 0; check the song");
    }

    // An earlier run with other options may have left a part that looks as if it belonged to the new ones.
    void warnAboutLeftovers() {
        if (!_earlier.is_object()) return;
        std::set<fs::path> own;
        for (const fs::path& file : _targets.files()) own.insert(identityOf(file));
        for (const Json& output : _earlier.value("outputs", Json::array())) {
            const std::string file = output.value("file", "");
            std::error_code none;
            if (!own.contains(identityOf(file)) && fs::exists(file, none))
                record["warnings"].push_back(file +
                                             ": is of an earlier run and does not belong to what is new beside it");
        }
    }

    // The unfinished files are removed before anybody hears of a failure.
    void separate() {
        const auto start = std::chrono::steady_clock::now();
        AudioReader reader = open();
        Separation separation(_models.stages, reader.rate());
        Results results(_options.output, _song, _targets, reader, _options.input.start);
        Digest digest;
        const auto length = static_cast<double>(reader.length().value_or(0));
        std::future<void> written;  // what is separated is written while more is, where a thread can be had for it
        const auto write = [&](Parts parts) {
            if (written.valid()) written.get();
            written = std::async([&results, parts = std::move(parts)]() mutable { results.write(std::move(parts)); });
        };
        for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read()) {
            digest.add(block.data(), block.size() * sizeof(float));
            if (Parts parts = separation.process(block); !parts.front().empty()) write(std::move(parts));
            // A compressed file may turn out longer than it said.
            if (length > 0) show(std::min(1.0, static_cast<double>(separation.samplesDone()) / length));
        }
        write(separation.finish());
        written.get();

        const double seconds = static_cast<double>(separation.samplesDone()) / reader.rate();
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double speed = seconds / elapsed;
        const auto rounded = [](double value) { return std::round(value * 1000) / 1000; };
        record["song"]["audio"] = digest.text();
        record.update({{"status", "done"},
                       {"rate", reader.rate()},
                       {"seconds", rounded(seconds)},
                       {"elapsed", rounded(elapsed)},
                       {"times_real_time", rounded(speed)},
                       {"provider", _models.provider},
                       {"damaged", reader.isDamaged()},
                       {"warnings", Json::array()}});
        warnAbout(reader);
        warnAboutLeftovers();
        results.publish(record);
        const std::vector<fs::path> files = _targets.files();
        for (std::size_t i = 0; i < record["outputs"].size(); ++i) record["outputs"][i].update(fileRecord(files[i]));
        if (!_targets.record.empty()) {
            HiddenFile file(_targets.record);
            file.write(asText(record) + "\n");
            HiddenFile::publish({&file});
        }
        if (_options.verbose)
            for (const std::string& line : reader.messages()) say(_song.label() + ": " + line);
        char times[40];
        std::snprintf(times, sizeof times, "%.1f", speed);
        message = _song.label() + ": " + clockTime(seconds) + " of music in " + clockTime(elapsed) + " (" + times +
                  " times real time): " + listFiles();
    }

    const Options& _options;
    const LoadedModels& _models;
    const Song& _song;
    Progress& _progress;
    double _shown = 0;
    Targets _targets;
    Json _earlier;  // the record of an earlier run
};

// All songs of a run, options.jobs at a time. One that fails does not keep the others from being separated.
class Batch {
public:
    Batch(const Options& options, const LoadedModels& models, const std::vector<Song>& songs)
        : _options(options),
          _models(models),
          _songs(songs),
          _progress(songs.size(), !options.quiet && !options.output.toStandardOutput()) {}

    ExitCode run() {
        prepareLastWords();
        const auto threads = std::min(static_cast<std::size_t>(_options.jobs), _songs.size());
        std::vector<std::future<void>> helpers;  // each with a thread of its own, where one can be had
        while (helpers.size() + 1 < threads) helpers.push_back(std::async([this] { work(); }));
        work();
        for (std::future<void>& helper : helpers) helper.get();
        const bool several = _songs.size() > 1;
        if (several && !_options.quiet) {
            say(std::to_string(_songs.size()) + " songs: " + std::to_string(_count["done"]) + " separated, " +
                std::to_string(_count["skipped"]) + " skipped, " + std::to_string(_count["failed"]) + " failed");
        }
        for (const std::string& failure : _failures) say((several ? "failed: " : "") + failure);
        return several && !_failures.empty() ? ExitCode::someSongsFailed : _code;
    }

private:
    void work() {
        for (std::size_t next = _next++; next < _songs.size(); next = _next++) {
            try {
                SongRun song(_options, _models, _songs[next], _progress);
                song.run();
                take(song);
            } catch (...) {
                _next = _songs.size();
                throw;
            }
        }
    }

    void take(const SongRun& song) {
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
    std::map<std::string, std::size_t> _count;  // of the songs of each status
    std::vector<std::string> _failures;
    ExitCode _code = ExitCode::done;  // of a single song, or of several of which none failed
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
    return Batch(options, models, songs).run();
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) {
    using namespace tavrin::tool;
    return runCommand("tavrin-separate", "the run", [&] { return separate(parseOptions(argc, argv)); });
}
