#include "work_list.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <system_error>

#include "failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

bool isSong(const fs::path& file) {
    static const std::set<std::string> extensions = {".wav", ".flac", ".ogg",  ".oga", ".opus",
                                                     ".mp3", ".aif",  ".aiff", ".w64", ".rf64"};
    std::string extension = file.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extensions.contains(extension);
}

bool isHidden(const fs::path& file) { return file.filename().string().starts_with('.'); }

std::vector<Song> searchFolder(const fs::path& folder, const fs::path& results) {
    std::vector<Song> songs;
    for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator(); ++entry) {
        const fs::path& path = entry->path();
        if (entry->is_directory()) {
            if (isHidden(path) || identityOf(path) == results) entry.disable_recursion_pending();
        } else if (!isHidden(path) && isSong(path)) {
            songs.push_back({path, path.parent_path().lexically_relative(folder)});
            if (songs.back().folder == ".") songs.back().folder.clear();
        }
    }
    std::sort(songs.begin(), songs.end(), [](const Song& a, const Song& b) { return a.file < b.file; });
    return songs;
}

std::vector<Song> songsIn(fs::path folder, const fs::path& results) {
    if (!folder.has_filename()) folder = folder.parent_path();  // "album/"
    if (identityOf(folder) == results) {
        throw Failure(ExitCode::wrongUsage, folder.string() +
                                                ": its results would lie among its songs, and be taken "
                                                "for songs next time; choose another folder with -o");
    }
    try {
        std::vector<Song> songs = searchFolder(folder, results);
        if (!songs.empty()) return songs;
    } catch (const fs::filesystem_error& error) {
        throw Failure(ExitCode::inputUnreadable, error.path1().string() + ": cannot be searched for songs (" +
                                                     error.code().message() + "); give the songs themselves");
    }
    throw Failure(ExitCode::inputUnreadable,
                  folder.string() + ": has no WAV, FLAC, OGG or MP3 file; give a folder of songs");
}

}  // namespace

fs::path identityOf(const fs::path& file) {
    std::error_code error;
    fs::path path = fs::weakly_canonical(file, error);
    return error ? fs::absolute(file).lexically_normal() : path;
}

std::vector<Song> listSongs(const Options& options) {
    const fs::path results = identityOf(options.folder.empty() ? fs::current_path() : options.folder);
    std::vector<Song> songs;
    std::set<fs::path> known;
    std::error_code none;
    for (const fs::path& given : options.songs) {
        const bool isFolder = given != pipeSign && fs::is_directory(given, none);
        for (const Song& song : isFolder ? songsIn(given, results) : std::vector<Song>{{given, ""}}) {
            if (known.insert(identityOf(song.file)).second) songs.push_back(song);
        }
    }
    return songs;
}

}  // namespace tavrin::tool
