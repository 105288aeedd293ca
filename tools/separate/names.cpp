#include "separate/names.h"

#include <map>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* recordExtension = "tavrin.json";

fs::path fileFor(const OutputOptions& output, const Song& song, const std::string& stem, const std::string& part,
                 const std::string& extension) {
    const std::map<std::string, std::string> words = {{"{song}", song.name()},
                                                      {"{stem}", stem},
                                                      {"{part}", part},
                                                      {"{ext}", extension},
                                                      {"{folder}", song.folder.empty() ? "." : song.folder.string()}};
    std::string file = output.name;
    for (std::size_t at = 0; (at = file.find('{', at)) != std::string::npos;) {
        const std::string word = file.substr(at, file.find('}', at) + 1 - at);
        if (!words.contains(word))
            throw Failure(ExitCode::wrongUsage, "--name: \"" + output.name + "\" has an unknown " + word +
                                                    "; known are {song}, {stem}, {part}, {ext} and {folder}");
        file.replace(at, word.size(), words.at(word));
        at += words.at(word).size();
    }
    // What is no sound has an ending of its own, behind one that the template insists on.
    const bool isSound = !output.format || extension == output.format->extension;
    if (!isSound && output.name.find("{ext}") == std::string::npos) file += "." + extension;
    return output.folder / fs::path(file).lexically_normal();
}

}  // namespace

std::vector<fs::path> Targets::files() const {
    std::vector<fs::path> files;
    for (const Target& target : parts) files.push_back(target.file);
    for (const fs::path& side : {picture, record}) {
        if (!side.empty()) files.push_back(side);
    }
    return files;
}

Targets targetsOf(const OutputOptions& output, const PartNames& names, const Song& song) {
    Targets targets;
    const auto add = [&](std::size_t part, const std::string& stem, const std::string& name) {
        const fs::path file = fileFor(output, song, stem, name, output.format->extension);
        targets.parts.push_back({part, name, output.toStandardOutput ? fs::path() : file});
    };
    const std::size_t count = names.stems.size();
    for (std::size_t i = 0; output.wantStems && i < count; ++i) add(i, names.stems[i], names.stems[i]);
    if (output.wantRest) add(count, names.group + ".rest", "rest");
    if (output.spectrogram) targets.picture = fileFor(output, song, names.group + ".spectrogram", "spectrogram", "png");
    if (output.record) targets.record = fileFor(output, song, names.group, names.group, recordExtension);
    return targets;
}

void requireDistinctTargets(const OutputOptions& output, const PartNames& names, const std::vector<Song>& songs) {
    if (output.toStandardOutput) return;
    std::map<fs::path, const Song*> owners;  // of every name that must not be used again; null: it is a song's own
    for (const Song& song : songs) {
        if (!song.isPipe) owners[identityOf(song.file)] = nullptr;
    }
    for (const Song& song : songs) {
        for (const fs::path& file : targetsOf(output, names, song).files()) {
            const auto [owner, isNew] = owners.emplace(identityOf(file), &song);
            if (isNew) continue;
            if (!owner->second)
                throw Failure(ExitCode::wrongUsage,
                              file.string() + ": would replace a song itself; choose another folder with -o");
            if (owner->second == &song)
                throw Failure(ExitCode::wrongUsage, file.string() + ": would be a result of " + song.label() +
                                                        " twice; put {stem} into --name");
            const bool folderHelps =
                owner->second->folder != song.folder && output.name.find("{folder}") == std::string::npos;
            throw Failure(ExitCode::wrongUsage,
                          file.string() + ": would be a result of " + song.label() + " and of " +
                              owner->second->label() +
                              (folderHelps ? "; tell them apart with {folder} in --name"
                                           : "; separate them into different folders, or rename one of them"));
        }
    }
}

void requireUsableTemplate(const OutputOptions& output) {
    fileFor(output, {}, "", "", "");
    const std::string last = fs::path(output.name).filename().string();
    if (last.empty() || last == "." || last == "..")
        throw Failure(ExitCode::wrongUsage, "--name: \"" + output.name + "\" names no file; add {stem}.{ext}");
}

std::string endingOf(const std::string& name) {
    const std::string extension = fs::path(name).extension().string();
    return extension.find('{') == std::string::npos && !extension.empty() ? extension.substr(1) : "";
}

std::string joined(const std::vector<std::string>& names, const char* between) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : between) + name;
    return list;
}

std::string asFileName(std::string name) {
    for (char& c : name) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '/') c = '_';
    }
    if (name == "." || name == "..") name.replace(0, name.size(), name.size(), '_');
    return name.empty() ? "_" : name;
}

}  // namespace tavrin::tool
