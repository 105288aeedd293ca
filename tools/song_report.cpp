#include "song_report.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "messages.h"

namespace tavrin::tool {

namespace {

std::string listFiles(const SongReport& report) {
    std::string names;
    for (const PartReport& part : report.parts) {
        const std::string name = part.file == pipeSign ? "standard output" : part.file.string();
        names += (names.empty() ? "" : ", ") + name;
    }
    return report.picture.empty() ? names : names + ", " + report.picture.string();
}

double rounded(double value, double steps = 1000) { return std::round(value * steps) / steps; }

}  // namespace

std::string describe(const SongReport& report) {
    if (report.status == SongReport::Status::failed) return report.message;
    const std::string name = report.song.label() + ": ";
    if (report.status == SongReport::Status::skipped) {
        return name + "skipped, its results are newer (" + listFiles(report) + "); --overwrite makes them anew";
    }
    char speed[40];
    std::snprintf(speed, sizeof speed, "%.1f", report.timesRealTime());
    return name + clockTime(report.seconds) + " of music in " + clockTime(report.elapsed) + " (" + speed +
           " times real time): " + listFiles(report);
}

std::string toJson(const SongReport& report) {
    using Json = nlohmann::ordered_json;
    static constexpr const char* statuses[] = {"done", "skipped", "failed"};
    const bool done = report.status == SongReport::Status::done;
    Json line = {{"song", report.song.file.string()}, {"status", statuses[static_cast<int>(report.status)]}};
    if (report.status == SongReport::Status::failed) {
        line["exit_code"] = static_cast<int>(report.code);
        line["message"] = report.message;
    } else {
        line["files"] = Json::array();
        for (const PartReport& part : report.parts) {
            Json file = {{"part", part.name}, {"file", part.file.string()}};
            if (done) file.update({{"peak", rounded(part.peak, 1e6)}, {"clipped", part.clipped}});
            line["files"].push_back(file);
        }
        if (!report.picture.empty()) line["spectrogram"] = report.picture.string();
    }
    if (done) {
        line["rate"] = report.rate;
        line["seconds"] = rounded(report.seconds);
        line["elapsed"] = rounded(report.elapsed);
        line["times_real_time"] = rounded(report.timesRealTime());
        line["gain"] = rounded(report.gain, 1e6);
        line["provider"] = report.provider;
    }
    // File names need not be UTF-8, JSON does.
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tavrin::tool
