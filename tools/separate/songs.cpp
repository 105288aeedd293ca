#include "separate/songs.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <numeric>
#include <optional>
#include <set>
#include <system_error>

#include "common/failure.h"
#include "separate/names.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

bool isSong(const fs::path& file) {
    static const std::set<std::string> extensions = {".wav",  ".flac", ".ogg", ".oga", ".opus", ".mp3",  ".m4a", ".m4b",
                                                     ".mp4",  ".aac",  ".wma", ".mka", ".aif",  ".aiff", ".w64", ".wv",
                                                     ".ape",  ".caf",  ".au",  ".mov", ".mkv",  ".webm", ".avi", ".tta",
                                                     ".rf64", ".ac3",  ".mp2", ".mpc", ".aifc"};
    std::string extension = file.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extensions.contains(extension);
}

// @param seen the folders that have been searched.
void search(const fs::path& folder, std::set<fs::path>& seen, std::vector<fs::path>& songs,
            std::vector<std::string>& warnings) {
    if (!seen.insert(identityOf(folder)).second) return;
    std::error_code error;
    std::set<fs::path> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.insert(entry->path());
    if (error) warnings.push_back(folder.string() + ": cannot be searched for songs (" + error.message() + ")");
    for (const fs::path& path : entries) {
        if (path.filename().string().starts_with('.')) continue;
        if (fs::is_directory(path, error)) {
            search(path, seen, songs, warnings);
        } else if (isSong(path)) {
            songs.push_back(path);
        }
    }
}

std::vector<fs::path> songsIn(const fs::path& folder, const fs::path& results, std::vector<std::string>& warnings) {
    if (identityOf(folder) == results) {
        throw Failure(ExitCode::wrongUsage, folder.string() +
                                                ": its results would lie among its songs, and be taken for songs next "
                                                "time; choose another folder with -o");
    }
    std::set<fs::path> seen = {results};
    std::vector<fs::path> songs;
    search(folder.has_filename() ? folder : folder.parent_path(), seen, songs, warnings);  // "album/"
    if (!songs.empty()) return songs;
    const std::string reason =
        warnings.empty() ? "has no sound file" : warnings.back().substr(folder.string().size() + 2);
    throw Failure(ExitCode::inputUnreadable, folder.string() + ": " + reason + "; give a folder of songs");
}

fs::path parentOf(const fs::path& file) { return fs::absolute(file).lexically_normal().parent_path(); }

// The deepest folder that holds all songs.
fs::path commonFolder(const std::vector<Song>& songs) {
    std::optional<fs::path> common;
    for (const Song& song : songs) {
        if (song.isPipe) continue;
        const fs::path parent = parentOf(song.file);
        if (!common) common = parent;
        const auto end = std::mismatch(common->begin(), common->end(), parent.begin(), parent.end()).first;
        common = std::accumulate(common->begin(), end, fs::path(), std::divides());
    }
    return common.value_or("");
}

}  // namespace

std::string Song::name() const { return isPipe ? "stdin" : asFileName(file.stem().string()); }

std::string Song::label() const { return isPipe ? "standard input" : file.string(); }

fs::path identityOf(const fs::path& file) {
    std::error_code error;
    fs::path path = fs::weakly_canonical(file, error);
    return error ? fs::absolute(file).lexically_normal() : path;
}

std::vector<Song> listSongs(const std::vector<std::string>& given, const fs::path& results,
                            std::vector<std::string>& warnings) {
    const fs::path resultsFolder = identityOf(results.empty() ? fs::current_path() : results);
    std::vector<Song> songs;
    std::set<fs::path> known;
    std::error_code none;
    for (const std::string& word : given) {
        if (word == pipeSign) {
            if (known.insert(pipeSign).second) songs.push_back({{}, {}, true});
            continue;
        }
        const bool isFolder = fs::is_directory(word, none);
        for (const fs::path& file : isFolder ? songsIn(word, resultsFolder, warnings) : std::vector<fs::path>{word}) {
            if (known.insert(identityOf(file)).second) songs.push_back({file, {}, false});
        }
    }
    if (songs.empty()) return songs;
    const bool isOneFolder = given.size() == 1 && fs::is_directory(given.front(), none);
    const fs::path base = isOneFolder ? parentOf(fs::path(given.front()) / "x") : commonFolder(songs);
    for (Song& song : songs) {
        if (!song.isPipe) song.folder = parentOf(song.file).lexically_relative(base);
        if (song.folder == ".") song.folder.clear();
    }
    return songs;
}

}  // namespace tavrin::tool
