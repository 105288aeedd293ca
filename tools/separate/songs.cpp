#include "separate/songs.h"

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <system_error>

#include "audio/ffmpeg.h"
#include "common/failure.h"
#include "common/messages.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* songEndings =
    "wav,flac,ogg,oga,opus,mp3,m4a,m4b,mp4,aac,wma,mka,aif,aiff,aifc,w64,wv,ape,caf,au,mov,mkv,webm,avi,tta,rf64,ac3,"
    "mp2,mpc";

// @param seen the folders that have been searched.
void search(const fs::path& folder, std::set<fs::path>& seen, std::vector<fs::path>& songs) {
    if (!seen.insert(identityOf(folder)).second) return;
    std::error_code error;
    std::set<fs::path> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.insert(entry->path());
    if (error) say("warning: " + folder.string() + ": cannot be searched for songs (" + error.message() + ")");
    for (const fs::path& path : entries) {
        if (path.filename().string().starts_with('.')) continue;
        if (fs::is_directory(path, error)) {
            search(path, seen, songs);
        } else if (av_match_ext(path.c_str(), songEndings) != 0) {
            songs.push_back(path);
        }
    }
}

fs::path parentOf(const fs::path& file) { return fs::absolute(file).lexically_normal().parent_path(); }

// The deepest folder that holds all songs.
fs::path commonFolder(const std::vector<Song>& songs) {
    fs::path common;
    for (const Song& song : songs) {
        if (song.isPipe()) continue;
        const fs::path parent = parentOf(song.file);
        if (common.empty()) common = parent;
        const auto end = std::mismatch(common.begin(), common.end(), parent.begin(), parent.end()).first;
        common = std::accumulate(common.begin(), end, fs::path(), std::divides());
    }
    return common;
}

fs::path fileFor(const OutputOptions& output, const Song& song, const std::string& stem, const std::string& part,
                 const std::string& extension) {
    const std::map<std::string, std::string> words = {{"{song}", song.name()},
                                                      {"{stem}", stem},
                                                      {"{part}", part},
                                                      {"{ext}", extension},
                                                      {"{folder}", song.folder.string()}};
    const fs::path last = fs::path(output.name).filename();
    if (last.empty() || last == "." || last == "..")
        throw Failure(ExitCode::wrongUsage, "--name: \"" + output.name + "\" names no file; add {stem}.{ext}");
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
    if (extension != output.format->extension && output.name.find("{ext}") == std::string::npos)
        file += "." + extension;
    return output.folder / fs::path(file).lexically_normal();
}

}  // namespace

std::string Song::name() const { return isPipe() ? "stdin" : asFileName(file.stem().string()); }

std::vector<Song> listSongs(const std::vector<std::string>& given, const fs::path& results) {
    const fs::path resultsFolder = identityOf(results.empty() ? fs::current_path() : results);
    const auto isFolder = [](const std::string& word) {
        std::error_code none;
        return word != pipeSign && fs::is_directory(word, none);
    };
    std::vector<Song> songs;
    std::set<fs::path> known;
    for (const std::string& word : given) {
        std::vector<fs::path> files;
        if (!isFolder(word)) {
            files.emplace_back(word);
        } else {
            std::set<fs::path> seen = {resultsFolder};
            const fs::path folder = word;
            if (identityOf(folder) == resultsFolder)
                throw Failure(ExitCode::wrongUsage, word +
                                                        ": its results would lie among its songs, and be taken for "
                                                        "songs next time; choose another folder with -o");
            search(folder.has_filename() ? folder : folder.parent_path(), seen, files);  // "album/"
            if (files.empty())
                throw Failure(ExitCode::inputUnreadable, word + ": has no sound file; give a folder of songs");
        }
        for (const fs::path& file : files) {
            if (known.insert(identityOf(file)).second) songs.push_back({file});
        }
    }
    const bool isOneFolder = given.size() == 1 && isFolder(given.front());
    const fs::path base = isOneFolder ? parentOf(fs::path(given.front()) / "x") : commonFolder(songs);
    for (Song& song : songs) {
        if (!song.isPipe()) song.folder = parentOf(song.file).lexically_relative(base);
    }
    return songs;
}

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
        targets.parts.push_back({part, name, output.toStandardOutput() ? pipeSign : file});
    };
    const std::size_t count = names.stems.size();
    for (std::size_t i = 0; output.only != "rest" && i < count; ++i) add(i, names.stems[i], names.stems[i]);
    if (output.only != "stem") add(count, names.group + ".rest", "rest");
    if (output.spectrogram) targets.picture = fileFor(output, song, names.group + ".spectrogram", "spectrogram", "png");
    if (!output.noRecord && !output.toStandardOutput())
        targets.record = fileFor(output, song, names.group, names.group, "tavrin.json");
    return targets;
}

void requireDistinctTargets(const OutputOptions& output, const PartNames& names, const std::vector<Song>& songs) {
    if (output.toStandardOutput()) return;
    std::map<fs::path, const Song*> owners;  // of every name that must not be used again; null: it is a song's own
    for (const Song& song : songs) {
        if (!song.isPipe()) owners[identityOf(song.file)] = nullptr;
    }
    for (const Song& song : songs) {
        for (const fs::path& file : targetsOf(output, names, song).files()) {
            const auto [owner, isNew] = owners.emplace(identityOf(file), &song);
            if (isNew) continue;
            const Song* const other = owner->second;
            std::string problem = "would be a result of " + song.label() + " twice; put {stem} into --name";
            if (!other) problem = "would replace a song itself; choose another folder with -o";
            if (other && other != &song)
                problem = "would be a result of " + song.label() + " and of " + other->label() +
                          "; tell them apart with {folder} in --name, or separate them into different folders";
            throw Failure(ExitCode::wrongUsage, file.string() + ": " + problem);
        }
    }
}

fs::path identityOf(const fs::path& file) {
    std::error_code error;
    fs::path path = fs::weakly_canonical(file, error);
    return error ? fs::absolute(file).lexically_normal() : path;
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
