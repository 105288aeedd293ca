#include "separate/song_run.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>
#include <set>
#include <system_error>
#include <utility>

#include "common/hidden_file.h"
#include "common/messages.h"
#include "separate/digest.h"
#include "separate/results.h"

namespace tavrin::tool {

namespace {

AudioReader openSong(AudioInput input, const Song& song) {
    input.place = {song.file, song.isPipe ? STDIN_FILENO : -1, song.label()};
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
    std::set<std::filesystem::path> own;
    for (const std::filesystem::path& file : targets.files()) own.insert(identityOf(file));
    for (const Json& output : earlier.value("outputs", Json::array())) {
        const std::string file = output.value("file", "");
        std::error_code none;
        if (!own.contains(identityOf(file)) && std::filesystem::exists(file, none))
            warnings.push_back(file + ": is of an earlier run and does not belong to what is new beside it");
    }
}

// Completes the record. The unfinished files are removed before anybody hears of a failure.
// @return the message.
std::string separate(const Options& options, const LoadedModels& models, const Song& song, const Targets& targets,
                     const Json& earlier, Progress::Song& bar, Json& record) {
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
        bar.show(separation.samplesDone(), length);
    }
    write(separation.finish());
    written.get();

    const double seconds = static_cast<double>(separation.samplesDone()) / reader.rate();
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double speed = elapsed > 0 ? seconds / elapsed : 0;
    const auto rounded = [](double value) { return std::round(value * 1000) / 1000; };
    record["status"] = "done";
    record["song"]["audio"] = digest.text();
    record.update({{"outputs", Json::array()},
                   {"rate", reader.rate()},
                   {"seconds", rounded(seconds)},
                   {"elapsed", rounded(elapsed)},
                   {"times_real_time", rounded(speed)},
                   {"provider", models.provider},
                   {"damaged", reader.isDamaged()},
                   {"warnings", Json::array()}});
    warnAbout(reader, song.label(), record["warnings"]);
    warnAboutLeftovers(earlier, targets, record["warnings"]);
    results.publish(record);
    if (!targets.record.empty()) {
        HiddenFile file(targets.record);
        file.write(asText(record) + "\n");
        file.publish();
    }
    if (options.verbose)
        for (const std::string& message : reader.messages()) say(song.label() + ": " + message);
    char times[40];
    std::snprintf(times, sizeof times, "%.1f", speed);
    return song.label() + ": " + clockTime(seconds) + " of music in " + clockTime(elapsed) + " (" + times +
           " times real time): " + listFiles(targets);
}

}  // namespace

SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song, Progress& progress) {
    Json wanted = {{"tavrin", TAVRIN_VERSION}, {"status", "failed"}};
    try {
        Progress::Song bar(progress, song.name());
        wanted.update(wantedRecord(options, models, song));
        const Targets targets = targetsOf(options.output, models.names, song);
        const Json earlier = targets.record.empty() ? Json() : readRecord(targets.record);
        const auto audio = [&] { return digestOf(options.input, song); };
        Json record = wanted;
        if (options.overwrite || !takeOver(record, earlier, targets, audio))
            return {separate(options, models, song, targets, earlier, bar, record), std::move(record)};
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

}  // namespace tavrin::tool
