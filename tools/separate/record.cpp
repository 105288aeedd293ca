#include "separate/record.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <system_error>

#include "common/messages.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

using Json = nlohmann::ordered_json;

std::string pathText(const fs::path& file) { return fs::absolute(file).lexically_normal().string(); }

// Size and time of a regular file; without them for anything else.
Json fileRecord(const fs::path& file) {
    Json record = {{"file", pathText(file)}};
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return record;
    record["size"] = fs::file_size(file, error);
    const auto time = std::chrono::file_clock::to_sys(fs::last_write_time(file, error)).time_since_epoch();
    record["modified"] = std::chrono::nanoseconds(time).count();  // since 1970
    return record;
}

std::string listFiles(const SongReport& report) {
    std::string names;
    for (const PartReport& part : report.parts) names += (names.empty() ? "" : ", ") + part.label();
    return report.picture.empty() ? names : names + ", " + report.picture.string();
}

double rounded(double value, double steps = 1000) { return std::round(value * steps) / steps; }

Json optionsRecord(const Options& options, const LoadedModels& models) {
    const OutputOptions& output = options.output;
    static constexpr const char* policies[] = {"none", "clamp", "scale-all"};
    Json record = {{"stems", models.names.stems},
                   {"only", output.wantStems ? output.wantRest ? "" : "stem" : "rest"},
                   {"format", output.format->name},
                   {"quality", output.quality ? Json(*output.quality) : Json()},
                   {"clip", policies[static_cast<int>(output.clip)]},
                   {"spectrogram", !output.spectrogram ? ""
                                   : output.linear     ? "linear"
                                                       : "logarithmic"},
                   {"start", options.input.start},
                   {"duration", std::isfinite(options.input.duration) ? Json(options.input.duration) : Json()},
                   {"latency", options.model.latency},
                   {"context", options.model.context}};
    if (options.input.raw)
        record["raw"] = {options.input.raw->format, options.input.raw->rate, options.input.raw->channels};
    return record;
}

// Read as it would be from a file, where strings are UTF-8 for sure.
Json asWritten(const Json& record) { return Json::parse(asText(record)); }

bool areOutputsThere(const Json& outputs, const Targets& targets) {
    std::vector<fs::path> files = targets.files();
    files.pop_back();  // the record
    if (outputs.size() != files.size()) return false;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Json present = asWritten(fileRecord(files[i]));
        for (const auto& [key, value] : present.items()) {
            if (outputs.at(i).at(key) != value) return false;
        }
        if (!present.contains("size")) return false;
    }
    return true;
}

}  // namespace

std::string describe(const SongReport& report) {
    if (report.status == SongReport::Status::failed) return report.message;
    const std::string name = report.song.label() + ": ";
    if (report.status == SongReport::Status::skipped) {
        return name + "skipped, its results are up to date (" + listFiles(report) + "); --overwrite makes them anew";
    }
    char speed[40];
    std::snprintf(speed, sizeof speed, "%.1f", report.timesRealTime());
    return name + clockTime(report.seconds) + " of music in " + clockTime(report.elapsed) + " (" + speed +
           " times real time): " + listFiles(report);
}

Json wantedRecord(const Options& options, const LoadedModels& models, const Song& song) {
    return {{"song", song.isPipe ? Json{{"file", pipeSign}} : fileRecord(song.file)},
            {"models", models.record},
            {"options", optionsRecord(options, models)}};
}

Json recordOf(const SongReport& report) {
    static constexpr const char* statuses[] = {"done", "skipped", "failed"};
    Json record = {{"tavrin", TAVRIN_VERSION}, {"status", statuses[static_cast<int>(report.status)]}};
    record.update(report.wanted);
    if (!report.audio.empty()) record["song"]["audio"] = report.audio;
    if (report.status == SongReport::Status::failed) {
        record["exit_code"] = static_cast<int>(report.code);
        record["message"] = report.message;
        return record;
    }
    const bool done = report.status == SongReport::Status::done;
    record["outputs"] = Json::array();
    for (const PartReport& part : report.parts) {
        Json file = {{"part", part.name}};
        file.update(part.file.empty() ? Json{{"file", pipeSign}} : fileRecord(part.file));
        if (done) file.update({{"peak", rounded(part.peak, 1e6)}, {"clipped", part.clipped}});
        record["outputs"].push_back(file);
    }
    if (!report.picture.empty()) {
        record["outputs"].push_back({{"part", "spectrogram"}});
        record["outputs"].back().update(fileRecord(report.picture));
    }
    if (done) {
        record["rate"] = report.rate;
        record["seconds"] = rounded(report.seconds);
        record["elapsed"] = rounded(report.elapsed);
        record["times_real_time"] = rounded(report.timesRealTime());
        record["gain"] = rounded(report.gain, 1e6);
        record["provider"] = report.provider;
    }
    record["damaged"] = report.isDamaged;
    record["warnings"] = report.warnings;
    return record;
}

std::string asText(const Json& record) { return record.dump(-1, ' ', false, Json::error_handler_t::replace); }

bool isUpToDate(const Json& record, const Json& wanted, const Targets& targets,
                const std::function<std::string()>& audio) {
    if (!record.is_object()) return false;
    try {
        const Json expected = asWritten(wanted);
        const Json& before = record.at("song");
        const Json& now = expected.at("song");
        const bool isSame = record.at("models") == expected.at("models") &&
                            record.at("options") == expected.at("options") &&
                            areOutputsThere(record.at("outputs"), targets);
        if (!isSame || !now.contains("size") || before.at("size") != now.at("size")) return false;
        const bool isUntouched = before.at("file") == now.at("file") && before.at("modified") == now.at("modified");
        return isUntouched || before.at("audio") == audio();
    } catch (const Json::exception&) {
        return false;  // not one of ours, or of another version
    }
}

Json readRecord(const fs::path& file) {
    std::ifstream stream(file);
    return Json::parse(stream, nullptr, false);
}

}  // namespace tavrin::tool
