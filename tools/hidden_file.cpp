#include "hidden_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "failure.h"

namespace tavrin::tool {

namespace {

std::filesystem::path hiddenName(const std::filesystem::path& target) {
    std::filesystem::path name = ".";
    name += target.filename();
    name += ".part";
    return target.parent_path() / name;
}

bool isFileAt(const std::filesystem::path& path, int descriptor) {
    struct stat named {};
    struct stat opened {};
    return stat(path.c_str(), &named) == 0 && fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

}  // namespace

HiddenFile::HiddenFile(std::filesystem::path target)
    : _target(std::move(target)),
      _hidden(hiddenName(_target)),
      _descriptor(open(_hidden.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)) {
    if (_descriptor < 0) throw writeFailure(_target, std::strerror(errno));
    // The lock keeps two runs from mixing their samples; what a killed run left behind is not locked and is used anew.
    if (flock(_descriptor, LOCK_EX | LOCK_NB) != 0 || !isFileAt(_hidden, _descriptor)) {
        close(_descriptor);
        throw Failure(ExitCode::writeFailed, _target.string() + ": another run is writing it; wait for that one");
    }
    _error = ftruncate(_descriptor, 0) == 0 ? 0 : errno;
}

HiddenFile::~HiddenFile() {
    if (_descriptor < 0) return;
    std::error_code none;
    std::filesystem::remove(_hidden, none);
    close(_descriptor);
}

std::int64_t HiddenFile::size() const {
    struct stat status {};
    return fstat(_descriptor, &status) == 0 ? status.st_size : -1;
}

std::int64_t HiddenFile::seek(std::int64_t offset, int whence) { return lseek(_descriptor, offset, whence); }

std::int64_t HiddenFile::write(const void* bytes, std::int64_t count) {
    std::int64_t written = 0;
    while (written < count) {
        const ssize_t now =
            ::write(_descriptor, static_cast<const char*>(bytes) + written, static_cast<std::size_t>(count - written));
        if (now < 0 && errno == EINTR) continue;
        if (now < 0 && _error == 0) _error = errno;
        if (now <= 0) break;
        written += now;
    }
    return written;
}

void HiddenFile::publish() {
    std::error_code error;
    std::filesystem::rename(_hidden, _target, error);
    if (error) throw writeFailure(_target, error.message());
    // Some file systems report a failed write only now.
    if (close(std::exchange(_descriptor, -1)) != 0) throw writeFailure(_target, std::strerror(errno));
}

}  // namespace tavrin::tool
