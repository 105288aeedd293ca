#include "results.h"

#include <system_error>

#include "failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

fs::path folderOf(const Options& options) { return options.folder / options.song.stem(); }

// A model file called rest.onnx must not give its name to both files.
std::string stemName(const Options& options) {
    const std::string name = options.model.stem().string();
    return name == "rest" ? "stem" : name;
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
    if (options.wantStem) _stem.emplace(targetFor(options, stemName(options)), options.format, rate, frames);
    if (options.wantRest) _rest.emplace(targetFor(options, "rest"), options.format, rate, frames);
}

void Results::write(const Parts& parts) {
    if (_stem) _stem->write(parts.stem);
    if (_rest) _rest->write(parts.rest);
}

std::string Results::publish() {
    if (_stem) _stem->complete();
    if (_rest) _rest->complete();
    std::string names;
    for (std::optional<AudioWriter>* part : {&_stem, &_rest}) {
        if (!*part) continue;
        (*part)->publish();
        names += (names.empty() ? "" : ", ") + (*part)->target().string();
    }
    return names;
}

}  // namespace tavrin::tool
