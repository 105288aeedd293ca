#include "targets.h"

#include <map>
#include <system_error>
#include <utility>

#include "failure.h"
#include "stem_names.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> stemNames(const Options& options) {
    std::vector<std::string> names;
    for (const Stem stem : options.stems) names.push_back(nameOf(stem));
    if (!names.empty()) return names;
    const std::string name = options.model.stem().string();
    // A model file called rest.onnx must not give its name to both files.
    return {name == "rest" ? "stem" : name};
}

using Words = std::vector<std::pair<std::string, std::string>>;  // what stands for what

std::string expand(const std::string& pattern, const Words& words) {
    std::string text;
    for (std::size_t at = 0; at < pattern.size();) {
        std::size_t used = 1;
        std::string piece = pattern.substr(at, 1);
        for (const auto& [word, meaning] : words) {
            if (pattern.compare(at, word.size(), word) != 0) continue;
            piece = meaning;
            used = word.size();
        }
        text += piece;
        at += used;
    }
    return text;
}

fs::path fileFor(const Options& options, const Song& song, const std::string& stem, const std::string& extension) {
    const std::string folder = song.folder.empty() ? "." : song.folder.string();
    const fs::path file =
        expand(options.name, {{"{song}", song.name()}, {"{stem}", stem}, {"{ext}", extension}, {"{folder}", folder}});
    return options.folder / file.lexically_normal();
}

}  // namespace

std::vector<fs::path> Targets::files() const {
    std::vector<fs::path> files;
    for (const Target& target : parts) files.push_back(target.file);
    if (!picture.empty()) files.push_back(picture);
    return files;
}

bool Targets::areNewerThan(const fs::path& song) const {
    std::error_code error;
    const fs::file_time_type time = fs::last_write_time(song, error);
    bool newer = !error;
    for (const fs::path& file : files()) newer = newer && fs::last_write_time(file, error) >= time && !error;
    return newer;
}

Targets targetsOf(const Options& options, const Song& song) {
    Targets targets;
    const auto add = [&](std::size_t part, const std::string& name) {
        const fs::path file =
            options.toStandardOutput() ? options.folder : fileFor(options, song, name, options.format.extension);
        targets.parts.push_back({part, name, file});
    };
    const std::vector<std::string> stems = stemNames(options);
    for (std::size_t stem = 0; options.wantStems && stem < stems.size(); ++stem) add(stem, stems[stem]);
    if (options.wantRest) add(stems.size(), "rest");
    if (options.spectrogram) {
        targets.picture = fileFor(options, song, "spectrogram", "png");
        if (options.name.find("{ext}") == std::string::npos) targets.picture += ".png";
    }
    return targets;
}

void requireDistinctTargets(const Options& options, const std::vector<Song>& songs) {
    if (options.toStandardOutput()) return;
    std::map<fs::path, std::string> owners;  // of every name that must not be used again
    for (const Song& song : songs) owners[identityOf(song.file)] = "";
    for (const Song& song : songs) {
        for (const fs::path& file : targetsOf(options, song).files()) {
            const auto [owner, isNew] = owners.emplace(identityOf(file), song.label());
            if (isNew) continue;
            if (owner->second.empty()) {
                throw Failure(ExitCode::wrongUsage,
                              file.string() + ": would replace a song itself; choose another folder with -o");
            }
            const std::string both = owner->second == song.label() ? "" : " and of " + owner->second;
            throw Failure(ExitCode::wrongUsage, file.string() + ": would be a result of " + song.label() + both +
                                                    (both.empty() ? " twice; put {stem} into --name"
                                                                  : "; tell them apart with {folder} in --name, or "
                                                                    "separate them into different folders"));
        }
    }
}

}  // namespace tavrin::tool
