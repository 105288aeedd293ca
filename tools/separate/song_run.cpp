#include "separate/song_run.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <future>
#include <set>
#include <span>
#include <system_error>
#include <utility>

#include "common/failure.h"
#include "common/hidden_file.h"
#include "separate/results.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

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

// Read as it would be from a file, where strings are UTF-8 for sure.
Json asWritten(const Json& record) { return Json::parse(asText(record)); }

// One song on its way to its results.
struct SongRun {
    const Options& options;
    const LoadedModels& models;
    const Song& song;
    Progress& progress;
    double shown = 0;
    Targets targets{};
    Json earlier{};  // the record of an earlier run
    Json record{};
    std::string message{};

    SongOutcome run() {
        Json wanted = {{"tavrin", TAVRIN_VERSION}, {"status", "failed"}};
        try {
            wanted.update(wantedRecord());
            record = wanted;
            targets = targetsOf(options.output, models.names, song);
            std::ifstream stream(targets.record);
            earlier = Json::parse(stream, nullptr, false);  // no object when there is none that can be read
            if (options.overwrite || !takeOver()) separate();
        } catch (...) {
            const Failure failure = currentFailure(song.label() + ": " + models.label);
            if (failure.code() == ExitCode::done) throw;  // readerGone()
            message = failure.what();
            record = wanted;
            record.update({{"exit_code", static_cast<int>(failure.code())}, {"message", message}});
        }
        show(1);
        return {message, record};
    }

    // How much of the song is done, from 0 to 1.
    void show(double share) { progress.show(song.name(), std::exchange(shown, share), share); }

    AudioReader open() const {
        AudioInput input = options.input;
        input.place = {song.file, song.isPipe() ? STDIN_FILENO : -1, song.label()};
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
        std::vector<std::string> names;
        for (const Target& part : targets.parts) names.push_back(part.label());
        if (!targets.picture.empty()) names.push_back(targets.picture.string());
        return joined(names, ", ");
    }

    // What the record of a song has to say for its results to be up to date: song, models and options.
    Json wantedRecord() const {
        const OutputOptions& output = options.output;
        const char* const picture = output.linear ? "linear" : "logarithmic";
        Json wanted = {{"song", fileRecord(song.file)},
                       {"models", models.record},
                       {"options",
                        {{"stems", models.names.stems},
                         {"only", output.only},
                         {"format", output.format->name},
                         {"quality", output.quality ? Json(*output.quality) : Json()},
                         {"clip", output.clip},
                         {"spectrogram", output.spectrogram ? picture : ""},
                         {"start", options.input.start},
                         {"duration", std::isfinite(options.input.duration) ? Json(options.input.duration) : Json()},
                         {"latency", options.model.latency},
                         {"context", options.model.context}}}};
        if (const auto& raw = options.input.raw) wanted["options"]["raw"] = {raw->format, raw->rate, raw->channels};
        return wanted;
    }

    bool areOutputsThere(const Json& outputs) const {
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
    bool takeOver() {
        try {
            const Json wanted = asWritten(record);
            const Json& before = earlier.at("song");
            const Json& audio = before.at("audio");
            const Json& now = wanted.at("song");
            const bool isSame = earlier.at("models") == wanted.at("models") &&
                                earlier.at("options") == wanted.at("options") && areOutputsThere(earlier.at("outputs"));
            if (!isSame || !now.contains("size") || before.at("size") != now.at("size")) return false;
            const bool isUntouched = before.at("file") == now.at("file") && before.at("modified") == now.at("modified");
            if (!isUntouched && audio != digestOfSong()) return false;
            record.update({{"outputs", earlier.at("outputs")},
                           {"damaged", earlier.at("damaged").get<bool>()},
                           {"warnings", earlier.at("warnings").get<std::vector<std::string>>()}});
            record["song"]["audio"] = audio;
            record["status"] = "skipped";
            message = song.label() + ": skipped, its results are up to date (" + listFiles() +
                      "); --overwrite makes them anew";
            return true;
        } catch (const Json::exception&) {
            return false;  // not one of ours, or of another version
        }
    }

    // What the user should know about a song although it was separated.
    void warnAbout(const AudioReader& reader) {
        const auto warn = [&](const std::string& what) { record["warnings"].push_back(song.label() + ": " + what); };
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
        if (!earlier.is_object()) return;
        std::set<fs::path> own;
        for (const fs::path& file : targets.files()) own.insert(identityOf(file));
        for (const Json& output : earlier.value("outputs", Json::array())) {
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
        Separation separation(models.stages, reader.rate());
        Results results(options.output, song, targets, reader, options.input.start);
        Digest digest;
        const auto length = static_cast<double>(reader.length().value_or(0));
        double done = 0;  // samples per channel
        Parts next;
        std::future<void> written;  // what is separated is written while more is, where a thread can be had for it
        const auto write = [&](Parts parts) {
            if (written.valid()) written.get();
            done += static_cast<double>(parts.front().size()) / 2;
            next = std::move(parts);
            written = std::async([&] { results.write(std::move(next)); });
        };
        for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read()) {
            digest.add(block.data(), block.size() * sizeof(float));
            if (Parts parts = separation.process(std::move(block)); !parts.front().empty()) write(std::move(parts));
            // A compressed file may turn out longer than it said.
            if (length > 0) show(std::min(1.0, done / length));
        }
        write(separation.process({}, true));
        written.get();

        const double seconds = done / reader.rate();
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double speed = seconds / elapsed;
        const auto rounded = [](double value) { return std::round(value * 1000) / 1000; };
        record["song"]["audio"] = digest.text();
        record.update({{"status", "done"},
                       {"rate", reader.rate()},
                       {"seconds", rounded(seconds)},
                       {"elapsed", rounded(elapsed)},
                       {"times_real_time", rounded(speed)},
                       {"provider", models.provider},
                       {"damaged", reader.isDamaged()},
                       {"warnings", Json::array()}});
        warnAbout(reader);
        warnAboutLeftovers();
        results.publish(record);
        const std::vector<fs::path> files = targets.files();
        for (std::size_t i = 0; i < record["outputs"].size(); ++i) record["outputs"][i].update(fileRecord(files[i]));
        if (!targets.record.empty()) {
            HiddenFile file(targets.record);
            file.write(asText(record) + "\n");
            HiddenFile::publish({&file});
        }
        if (options.verbose)
            for (const std::string& line : reader.messages()) say(song.label() + ": " + line);
        char times[40];
        std::snprintf(times, sizeof times, "%.1f", speed);
        message = song.label() + ": " + clockTime(seconds) + " of music in " + clockTime(elapsed) + " (" + times +
                  " times real time): " + listFiles();
    }
};

}  // namespace

SongOutcome separateSong(const Options& options, const LoadedModels& models, const Song& song, Progress& progress) {
    return SongRun{options, models, song, progress}.run();
}

std::string asText(const Json& record) { return record.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace tavrin::tool
