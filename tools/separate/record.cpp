#include "separate/record.h"

#include <chrono>
#include <cmath>
#include <fstream>
#include <system_error>

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

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

Json fileRecord(const fs::path& file) {
    Json record = {{"file", fs::absolute(file).lexically_normal().string()}};
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return record;
    record["size"] = fs::file_size(file, error);
    const auto time = std::chrono::file_clock::to_sys(fs::last_write_time(file, error)).time_since_epoch();
    record["modified"] = std::chrono::nanoseconds(time).count();  // since 1970
    return record;
}

Json wantedRecord(const Options& options, const LoadedModels& models, const Song& song) {
    return {{"song", song.isPipe ? Json{{"file", pipeSign}} : fileRecord(song.file)},
            {"models", models.record},
            {"options", optionsRecord(options, models)}};
}

std::string asText(const Json& record) { return record.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json readRecord(const fs::path& file) {
    std::ifstream stream(file);
    return Json::parse(stream, nullptr, false);
}

bool takeOver(Json& record, const Json& earlier, const Targets& targets, const std::function<std::string()>& audio) {
    try {
        const Json wanted = asWritten(record);
        const Json& before = earlier.at("song");
        const Json& now = wanted.at("song");
        const bool isSame = earlier.at("models") == wanted.at("models") &&
                            earlier.at("options") == wanted.at("options") &&
                            areOutputsThere(earlier.at("outputs"), targets);
        if (!isSame || !now.contains("size") || before.at("size") != now.at("size")) return false;
        const bool isUntouched = before.at("file") == now.at("file") && before.at("modified") == now.at("modified");
        if (!isUntouched && before.at("audio") != audio()) return false;
        record.update({{"outputs", earlier.at("outputs")},
                       {"damaged", earlier.at("damaged").get<bool>()},
                       {"warnings", earlier.at("warnings").get<std::vector<std::string>>()}});
        record["song"]["audio"] = before.at("audio");
        return true;
    } catch (const Json::exception&) {
        return false;  // not one of ours, or of another version
    }
}

}  // namespace tavrin::tool
