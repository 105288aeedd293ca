#include "results.h"

#include <system_error>

#include "failure.h"
#include "stem_names.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

fs::path folderOf(const Options& options) { return options.folder / options.song.stem(); }

std::vector<std::string> stemNames(const Options& options) {
    std::vector<std::string> names;
    for (const Stem stem : options.stems) names.push_back(nameOf(stem));
    if (!names.empty()) return names;
    const std::string name = options.model.stem().string();
    // A model file called rest.onnx must not give its name to both files.
    return {name == "rest" ? "stem" : name};
}

// Where a part goes.
fs::path targetFor(const Options& options, const std::string& name) {
    fs::path target = folderOf(options) / (name + options.format.extension);
    std::error_code none;
    if (fs::equivalent(target, options.song, none)) {
        throw Failure(ExitCode::wrongUsage,
                      target.string() + ": would replace the song itself; choose another folder with -o");
    }
    if (fs::is_directory(target, none)) throw writeFailure(target, "there is a folder of that name");
    return target;
}

}  // namespace

// Through the other constructor, so that a failure half-way runs the destructor.
OutputFolder::OutputFolder(const fs::path& folder) : OutputFolder() {
    std::error_code error;
    fs::path path;
    for (const fs::path& step : folder) {
        path /= step;
        if (fs::create_directory(path, error)) _made.push_back(path);
    }
    if (error) throw writeFailure(folder, error.message());
}

OutputFolder::~OutputFolder() {
    // A folder that is in use by now is not empty, so it stays.
    std::error_code none;
    for (auto made = _made.rbegin(); made != _made.rend(); ++made) fs::remove(*made, none);
}

Results::Results(const Options& options, int rate, std::int64_t frames) : _folder(folderOf(options)) {
    const std::vector<std::string> stems = stemNames(options);
    const auto add = [&](std::size_t part, const std::string& name) {
        _files.try_emplace(part, targetFor(options, name), options.format, rate, frames);
    };
    for (std::size_t stem = 0; options.wantStems && stem < stems.size(); ++stem) add(stem, stems[stem]);
    if (options.wantRest) add(stems.size(), "rest");
}

void Results::write(const Parts& parts) {
    for (auto& [part, file] : _files) file.write(parts[part]);
}

std::string Results::publish() {
    for (auto& [part, file] : _files) file.complete();
    std::string names;
    for (auto& [part, file] : _files) {
        file.publish();
        names += (names.empty() ? "" : ", ") + file.target().string();
    }
    return names;
}

}  // namespace tavrin::tool
