#include "separate/song_run.h"

#include <unistd.h>

#include <chrono>
#include <exception>
#include <future>
#include <set>
#include <system_error>
#include <utility>

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

bool mayBeSkipped(const Options& options, const Targets& targets, SongReport& report) {
    if (options.overwrite || targets.record.empty()) return false;
    const nlohmann::ordered_json record = readRecord(targets.record);
    const auto audio = [&] { return digestOf(options.input, report.song); };
    if (!isUpToDate(record, report.wanted, targets, audio)) return false;
    report.status = SongReport::Status::skipped;
    report.audio = record["song"].value("audio", "");
    report.isDamaged = record.value("damaged", false);
    report.warnings = record.value("warnings", std::vector<std::string>{});
    for (const Target& target : targets.parts) report.parts.push_back({target.name, target.file});
    report.picture = targets.picture;
    return true;
}

// What the user should know about a song although it was separated.
void warnAbout(const AudioReader& reader, SongReport& report) {
    const auto warn = [&](const std::string& what) { report.warnings.push_back(report.song.label() + ": " + what); };
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
    report.isDamaged = reader.isDamaged();
}

// An earlier run with other options may have left a part that looks as if it belonged to the new ones.
void warnAboutLeftovers(const nlohmann::ordered_json& earlier, const Targets& targets, SongReport& report) {
    if (!earlier.is_object()) return;
    std::set<std::filesystem::path> own;
    for (const std::filesystem::path& file : targets.files()) own.insert(identityOf(file));
    for (const auto& output : earlier.value("outputs", nlohmann::ordered_json::array())) {
        const std::string file = output.value("file", "");
        std::error_code none;
        if (!own.contains(identityOf(file)) && std::filesystem::exists(file, none))
            report.warnings.push_back(file + ": is of an earlier run and does not belong to what is new beside it");
    }
}

void writeRecord(const SongReport& report, const std::filesystem::path& target) {
    HiddenFile file(target);
    file.write(asText(recordOf(report)) + "\n");
    file.publish();
}

// The unfinished files are removed before anybody hears of a failure.
void separate(const Options& options, const LoadedModels& models, const Targets& targets, Progress::Song& bar,
              SongReport& report) {
    const auto start = std::chrono::steady_clock::now();
    AudioReader reader = openSong(options.input, report.song);
    Separation separation(models.stages, reader.rate());
    Results results(options.output, report.song, targets, reader, options.input.start);
    Digest digest;
    const std::int64_t length = reader.length().value_or(0);
    std::future<void> written;  // what is separated is written while more is, where a thread can be had for it
    const auto write = [&](Parts parts) {
        if (written.valid()) written.get();
        written = std::async([&results, parts = std::move(parts)] { results.write(parts); });
    };
    for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read()) {
        digest.add(block.data(), block.size() * sizeof(float));
        if (Parts parts = separation.process(block); !parts.front().empty()) write(std::move(parts));
        bar.show(separation.samplesDone(), length);
    }
    write(separation.finish());
    written.get();
    report.rate = reader.rate();
    report.audio = digest.text();
    report.provider = models.provider;
    report.seconds = static_cast<double>(separation.samplesDone()) / reader.rate();
    report.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    warnAbout(reader, report);
    if (!targets.record.empty()) warnAboutLeftovers(readRecord(targets.record), targets, report);
    results.publish(report);
    report.status = SongReport::Status::done;
    if (!targets.record.empty()) writeRecord(report, targets.record);
    if (!options.verbose) return;
    for (const std::string& message : reader.messages()) say(report.song.label() + ": " + message);
}

}  // namespace

SongReport separateSong(const Options& options, const LoadedModels& models, const Song& song, Progress& progress) {
    SongReport report;
    report.song = song;
    const auto failed = [&](ExitCode code, const std::string& message) {
        report.status = SongReport::Status::failed;
        report.code = code;
        report.message = message;
    };
    try {
        Progress::Song bar(progress, song.name());
        const Targets targets = targetsOf(options.output, models.names, song);
        report.wanted = wantedRecord(options, models, song);
        if (!mayBeSkipped(options, targets, report)) separate(options, models, targets, bar, report);
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::done) throw;  // readerGone()
        failed(failure.code(), failure.what());
    } catch (const std::system_error& error) {
        failed(ExitCode::outOfResources, song.label() + ": " + resourceFailure(error).what());
    } catch (const std::runtime_error& error) {
        failed(ExitCode::modelUnusable,
               song.label() + ": " + models.label + ": " + error.what() + "; choose another model with --model");
    } catch (const std::exception& error) {
        failed(ExitCode::outOfResources, song.label() + ": " + resourceFailure(error).what());
    }
    return report;
}

}  // namespace tavrin::tool
