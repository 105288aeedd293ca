#include "common/hidden_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

// Whoever makes, names or removes files has the turn: songs that are separated side by side share folders.
std::recursive_timed_mutex turn;
std::set<fs::path> unfinished;
std::vector<fs::path> madeFolders;  // outer ones first

void makeFolders(const fs::path& folder) {
    std::error_code error;
    fs::path path;
    for (const fs::path& step : folder) {
        path /= step;
        if (fs::create_directory(path, error)) madeFolders.push_back(path);
    }
    if (error) throw writeFailure(folder, error.message());
}

// Those that are in use are not empty, so they stay.
void removeEmptyFolders() {
    std::error_code none;
    for (auto folder = madeFolders.rbegin(); folder != madeFolders.rend(); ++folder) fs::remove(*folder, none);
}

bool isFileAt(const fs::path& path, int descriptor) {
    struct stat named {};
    struct stat opened {};
    return stat(path.c_str(), &named) == 0 && fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

}  // namespace

HiddenFile::HiddenFile(const fs::path& target)
    : _target(target), _hidden((target.parent_path() / ".").concat(target.filename().string() + ".part")) {
    const std::lock_guard lock(turn);
    std::error_code none;
    if (fs::is_directory(_target, none)) throw writeFailure(_target, "there is a folder of that name");
    makeFolders(_target.parent_path());
    _descriptor = open(_hidden.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (_descriptor < 0) {
        const Failure failure = writeFailure(_target);
        removeEmptyFolders();
        throw failure;
    }
    // The lock keeps two runs from mixing their samples; what a killed run left behind is not locked and is used anew.
    if (flock(_descriptor, LOCK_EX | LOCK_NB) != 0 || !isFileAt(_hidden, _descriptor)) {
        close(_descriptor);
        throw Failure(ExitCode::writeFailed, _target.string() + ": another run is writing it; wait for that one");
    }
    unfinished.insert(_hidden);
    if (ftruncate(_descriptor, 0) != 0) throw writeFailure(_target);
}

HiddenFile::~HiddenFile() {
    if (_descriptor < 0) return;
    const std::lock_guard lock(turn);
    std::error_code none;
    fs::remove(_hidden, none);
    unfinished.erase(_hidden);
    close(_descriptor);
    removeEmptyFolders();
}

void HiddenFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(_descriptor, bytes.data(), bytes.size());
        if (written < 0) throw writeFailure(_target);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void HiddenFile::publish(const std::vector<HiddenFile*>& files) {
    const std::lock_guard lock(turn);
    for (HiddenFile* file : files) {
        std::error_code error;
        fs::rename(file->_hidden, file->_target, error);
        if (error) throw writeFailure(file->_target, error.message());
        unfinished.erase(file->_hidden);
        // Some file systems report a failed write only now.
        if (close(std::exchange(file->_descriptor, -1)) != 0) throw writeFailure(file->_target);
    }
}

void HiddenFile::removeAll() {
    // Kept locked. A file system that hangs must not keep the process from ending.
    constexpr std::chrono::milliseconds patience(200);
    if (!turn.try_lock_for(patience)) return;
    std::error_code none;
    for (const fs::path& file : unfinished) fs::remove(file, none);
    removeEmptyFolders();
}

}  // namespace tavrin::tool
