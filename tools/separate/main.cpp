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
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <set>
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
class SpokenLog final : public plog::IAppender {
public:
    void write(const plog::Record& record) override { say(record.getMessage()); }
};

AudioReader openSong(AudioInput input, const Song& song) {
    input.place = {song.file, song.isPipe() ? STDIN_FILENO : -1, song.label()};
    return AudioReader(input);
}

// Of the samples that would be separated.
std::string digestOf(const AudioInput& input, const Song& song) {
    AudioReader reader = openSong(input, song);
    Digest digest;
    for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read())
        digest.add(block.data(), block.size() * sizeof(float));
    return digest.text();
}

std::string listFiles(const Targets& targets) {
    std::string names;
    for (const Target& part : targets.parts) names += (names.empty() ? "" : ", ") + part.label();
    return targets.picture.empty() ? names : names + ", " + targets.picture.string();
}

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

// What the record of a song has to say for its results to be up to date: song, models and options.
Json wantedRecord(const Options& options, const LoadedModels& models, const Song& song) {
    const OutputOptions& output = options.output;
    static constexpr const char* policies[] = {"none", "clamp", "scale-all"};
    Json record = {{"song", fileRecord(song.file)},
                   {"models", models.record},
                   {"options",
                    {{"stems", models.names.stems},
                     {"only", output.only},
                     {"format", output.format->name},
                     {"quality", output.quality ? Json(*output.quality) : Json()},
                     {"clip", policies[static_cast<int>(output.clip)]},
                     {"spectrogram", !output.spectrogram ? ""
                                     : output.linear     ? "linear"
                                                         : "logarithmic"},
                     {"start", options.input.start},
                     {"duration", std::isfinite(options.input.duration) ? Json(options.input.duration) : Json()},
                     {"latency", options.model.latency},
                     {"context", options.model.context}}}};
    if (const auto& raw = options.input.raw) record["options"]["raw"] = {raw->format, raw->rate, raw->channels};
    return record;
}

// One line of it; bytes that are not UTF-8 are replaced.
std::string asText(const Json& record) { return record.dump(-1, ' ', false, Json::error_handler_t::replace); }

// Read as it would be from a file, where strings are UTF-8 for sure.
Json asWritten(const Json& record) { return Json::parse(asText(record)); }

bool areOutputsThere(const Json& outputs, const Targets& targets) {
    std::vector<fs::path> files = targets.files();
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
bool takeOver(Json& record, const Json& earlier, const Options& options, const Song& song, const Targets& targets) {
    try {
        const Json wanted = asWritten(record);
        const Json& before = earlier.at("song");
        const Json& now = wanted.at("song");
        const bool isSame = earlier.at("models") == wanted.at("models") &&
                            earlier.at("options") == wanted.at("options") &&
                            areOutputsThere(earlier.at("outputs"), targets);
        if (!isSame || !now.contains("size") || before.at("size") != now.at("size")) return false;
        const bool isUntouched = before.at("file") == now.at("file") && before.at("modified") == now.at("modified");
        if (!isUntouched && before.at("audio") != digestOf(options.input, song)) return false;
        record.update({{"outputs", earlier.at("outputs")},
                       {"damaged", earlier.at("damaged").get<bool>()},
                       {"warnings", earlier.at("warnings").get<std::vector<std::string>>()}});
        record["song"]["audio"] = before.at("audio");
        return true;
    } catch (const Json::exception&) {
        return false;  // not one of ours, or of another version
    }
}

// What the user should know about a song although it was separated.
void warnAbout(const AudioReader& reader, const std::string& song, Json& warnings) {
    const auto warn = [&](const std::string& what) { warnings.push_back(song + ": " + what); };
    constexpr std::size_t most = 5;
    const std::vector<Damage>& damage = reader.damage();
    for (std::size_t i = 0; i < damage.size() && i < most; ++i)
        warn("is damaged from " + clockTime(damage[i].from) + " to " + clockTime(damage[i].to) + " (" +
             std::to_string(damage[i].errors) + (damage[i].errors == 1 ? " error: " : " errors, the first: ") +
             damage[i].reason + ")");
    if (damage.size() > most) warn("is damaged in " + std::to_string(damage.size() - most) + " more places");
    if (const auto& length = reader.wrongLength())
        warn("has " + clockTime(length->actual) + " of sound, but its header says " + clockTime(length->claimed) +
             "; check that it is complete");
    if (reader.notFinite() > 0)
        warn(std::to_string(reader.notFinite()) + " samples are not finite numbers and count as 0; check the song");
}

// An earlier run with other options may have left a part that looks as if it belonged to the new ones.
void warnAboutLeftovers(const Json& earlier, const Targets& targets, Json& warnings) {
    if (!earlier.is_object()) return;
    std::set<fs::path> own;
    for (const fs::path& file : targets.files()) own.insert(identityOf(file));
    for (const Json& output : earlier.value("outputs", Json::array())) {
        const std::string file = output.value("file", "");
        std::error_code none;
        if (!own.contains(identityOf(file)) && fs::exists(file, none))
            warnings.push_back(file + ": is of an earlier run and does not belong to what is new beside it");
    }
}

// Completes the record. The unfinished files are removed before anybody hears of a failure.
// @return the message.
std::string separate(const Options& options, const LoadedModels& models, const Song& song, const Targets& targets,
                     const Json& earlier, const std::function<void(double)>& show, Json& record) {
    const auto start = std::chrono::steady_clock::now();
    AudioReader reader = openSong(options.input, song);
    Separation separation(models.stages, reader.rate());
    Results results(options.output, song, targets, reader, options.input.start);
    Digest digest;
    const std::int64_t length = reader.length().value_or(0);
    std::future<void> written;  // what is separated is written while more is, where a thread can be had for it
    const auto write = [&](Parts parts) {
        if (written.valid()) written.get();
        written = std::async([&results, parts = std::move(parts)]() mutable { results.write(std::move(parts)); });
    };
    for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read()) {
        digest.add(block.data(), block.size() * sizeof(float));
        if (Parts parts = separation.process(block); !parts.front().empty()) write(std::move(parts));
        // A compressed file may turn out longer than it said.
        if (length > 0)
            show(std::min(1.0, static_cast<double>(separation.samplesDone()) / static_cast<double>(length)));
    }
    write(separation.finish());
    written.get();

    const double seconds = static_cast<double>(separation.samplesDone()) / reader.rate();
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double speed = elapsed > 0 ? seconds / elapsed : 0;
    const auto rounded = [](double value) { return std::round(value * 1000) / 1000; };
    record["status"] = "done";
    record["song"]["audio"] = digest.text();
    record.update({{"rate", reader.rate()},
                   {"seconds", rounded(seconds)},
                   {"elapsed", rounded(elapsed)},
                   {"times_real_time", rounded(speed)},
                   {"provider", models.provider},
                   {"damaged", reader.isDamaged()},
                   {"warnings", Json::array()}});
    warnAbout(reader, song.label(), record["warnings"]);
    warnAboutLeftovers(earlier, targets, record["warnings"]);
    results.publish(record);
    const std::vector<fs::path> files = targets.files();
    for (std::size_t i = 0; i < record["outputs"].size(); ++i) record["outputs"][i].update(fileRecord(files[i]));
    if (!targets.record.empty()) {
        HiddenFile file(targets.record);
        file.write(asText(record) + "\n");
        HiddenFile::publish({&file});
    }
    if (options.verbose)
        for (const std::string& message : reader.messages()) say(song.label() + ": " + message);
    char times[40];
    std::snprintf(times, sizeof times, "%.1f", speed);
    return song.label() + ": " + clockTime(seconds) + " of music in " + clockTime(elapsed) + " (" + times +
           " times real time): " + listFiles(targets);
}

struct SongOutcome {
    std::string message;  // what to tell the user
    Json record;          // for programs, and for the next run; also of a song that failed
};

// Separates a song and writes its results, unless they are up to date.
// @param show hears how much of the song is done, from 0 to 1. @throws readerGone(), when the whole run is to end.
SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song,
                         const std::function<void(double)>& show) {
    Json wanted = {{"tavrin", TAVRIN_VERSION}, {"status", "failed"}};
    try {
        wanted.update(wantedRecord(options, models, song));
        const Targets targets = targetsOf(options.output, models.names, song);
        std::ifstream stream(targets.record);
        const Json earlier = Json::parse(stream, nullptr, false);  // no object when there is none that can be read
        Json record = wanted;
        if (options.overwrite || !takeOver(record, earlier, options, song, targets))
            return {separate(options, models, song, targets, earlier, show, record), std::move(record)};
        record["status"] = "skipped";
        return {song.label() + ": skipped, its results are up to date (" + listFiles(targets) +
                    "); --overwrite makes them anew",
                std::move(record)};
    } catch (...) {
        const Failure failure = currentFailure(song.label() + ": " + models.label);
        if (failure.code() == ExitCode::done) throw;  // readerGone()
        wanted.update({{"exit_code", static_cast<int>(failure.code())}, {"message", failure.what()}});
        return {failure.what(), std::move(wanted)};
    }
}

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
