#include "audio/byte_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t bufferSize = 1 << 16;

// Calls until something was done. A descriptor that came from outside may be one that does not wait.
template <typename Call>
ssize_t waitFor(int descriptor, short event, Call call) {
    for (;;) {
        const ssize_t count = call();
        if (count >= 0 || (errno != EAGAIN && errno != EINTR)) return count;
        pollfd item{descriptor, event, 0};
        poll(&item, 1, -1);
    }
}

}  // namespace

FileHandle makeScratchFile(const std::filesystem::path& folder) {
    // Not every file system knows files that never had a name.
    std::string name = (folder / ".tavrin-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), 0);
    if (descriptor >= 0) unlink(name.c_str());
    return {descriptor < 0 ? nullptr : fdopen(descriptor, "w+"), std::fclose};
}

ByteStream::ByteStream(const AudioPlace& place, Direction direction) : _place(place), _descriptor(place.descriptor) {
    const bool isInput = direction == Direction::in;
    if (_descriptor < 0) {
        _file.reset(std::fopen(place.path.c_str(), isInput ? "rbe" : "wbe"));
        if (_file) _descriptor = fileno(_file.get());
    }
    struct stat status {};
    const bool isThere = _descriptor >= 0 && fstat(_descriptor, &status) == 0;
    if (!isThere || S_ISDIR(status.st_mode)) {
        const std::string reason = std::strerror(isThere ? EISDIR : errno);
        if (!isInput) throw writeFailure(place.label(), reason);
        throw Failure(ExitCode::inputUnreadable,
                      place.label() + ": cannot be read (" + reason + "); check the name and the rights");
    }
    auto* buffer = static_cast<unsigned char*>(allocated(av_malloc(bufferSize)));
    _context.reset(allocated(avio_alloc_context(
        buffer, bufferSize, !isInput, this,
        [](void* self, std::uint8_t* bytes, int size) { return static_cast<ByteStream*>(self)->read(bytes, size); },
        // The bytes are const in newer versions.
        [](void* self, auto* bytes, int size) { return static_cast<ByteStream*>(self)->write(bytes, size); },
        [](void* self, std::int64_t offset, int whence) {
            return static_cast<ByteStream*>(self)->seek(offset, whence);
        })));
    // A file that begins elsewhere is like a pipe, and so is a shared one that others append to.
    const bool appends = !isInput && (fcntl(_descriptor, F_GETFL) & O_APPEND) != 0;
    const bool isFile = S_ISREG(status.st_mode) || S_ISBLK(status.st_mode);
    _context->seekable = isFile && !appends && lseek(_descriptor, 0, SEEK_CUR) == 0;
    if (!isInput) return;
    // So much tells a song's kind; the rest of a pipe may be long in coming. All of it is in the buffer, to be read.
    std::uint8_t first[12];
    avio_read(_context.get(), first, sizeof first);
    _head.assign(_context->buffer, _context->buf_end);
    avio_seek(_context.get(), 0, SEEK_SET);
}

void ByteStream::freeContext(AVIOContext** context) {
    av_freep(&(*context)->buffer);
    avio_context_free(context);
}

int ByteStream::fail() {
    if (_error == 0) _error = errno;
    return AVERROR(_error);
}

int ByteStream::read(std::uint8_t* bytes, int size) {
    const auto some = [&] { return ::read(_descriptor, bytes, static_cast<std::size_t>(size)); };
    const ssize_t count = waitFor(_descriptor, POLLIN, some);
    if (count < 0) return fail();
    if (count == 0) return AVERROR_EOF;
    if (!_head.empty() && !_head.starts_with("OggS")) return static_cast<int>(count);
    _tail.append(bytes, bytes + count);
    if (_tail.size() > 8 * bufferSize) _tail.erase(0, _tail.size() - bufferSize);
    return static_cast<int>(count);
}

int ByteStream::write(const std::uint8_t* bytes, int size) {
    for (const std::uint8_t* end = bytes + size; bytes < end;) {
        const auto some = [&] { return ::write(_descriptor, bytes, static_cast<std::size_t>(end - bytes)); };
        const ssize_t count = waitFor(_descriptor, POLLOUT, some);
        if (count < 0) return fail();
        bytes += count;
    }
    return size;
}

std::int64_t ByteStream::seek(std::int64_t offset, int whence) {
    // WMA's length is forgotten where the file's size contradicts its header.
    if (whence == AVSEEK_SIZE) return _head.starts_with("\x30\x26\xB2\x75") ? 0 : size();
    if (!isSeekable()) return AVERROR(ESPIPE);
    _tail.clear();
    const off_t position = lseek(_descriptor, offset, whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : position;
}

// Not an error for a pipe: MP3 files then lose their length.
std::int64_t ByteStream::size() const {
    struct stat status {};
    return isSeekable() && fstat(_descriptor, &status) == 0 ? status.st_size : 0;
}

void ByteStream::spool() {
    const bool isInput = _context->write_flag == 0;
    std::error_code none;
    _spool = makeScratchFile(std::filesystem::temp_directory_path(none));
    bool isKept = _spool != nullptr;
    std::vector<std::uint8_t> bytes(bufferSize);
    for (int count = 1; isKept && isInput && count > 0;) {
        count = avio_read(_context.get(), bytes.data(), bufferSize);
        const auto size = static_cast<std::size_t>(std::max(count, 0));
        isKept = std::fwrite(bytes.data(), 1, size, _spool.get()) == size;
    }
    if (!isKept || std::fflush(_spool.get()) != 0) {
        throw Failure(isInput ? ExitCode::inputUnreadable : ExitCode::writeFailed,
                      _place.label() + ": cannot be kept in a temporary file (" + std::strerror(errno) +
                          "); make room or choose another TMPDIR");
    }
    _descriptor = fileno(_spool.get());
    _context->seekable = AVIO_SEEKABLE_NORMAL;
    avio_seek(_context.get(), 0, SEEK_SET);
}

void ByteStream::finish() {
    avio_flush(_context.get());
    if (_spool) {
        std::rewind(_spool.get());
        _descriptor = _file ? fileno(_file.get()) : _place.descriptor;
        std::vector<std::uint8_t> bytes(bufferSize);
        while (const std::size_t count = _error == 0 ? std::fread(bytes.data(), 1, bytes.size(), _spool.get()) : 0)
            write(bytes.data(), static_cast<int>(count));
        if (std::ferror(_spool.get())) fail();
    }
    check();
    if (_file && std::fclose(_file.release()) != 0) fail();
    check();
}

void ByteStream::check() const {
    if (_error == EPIPE) throw readerGone();
    if (_error != 0) throw writeFailure(_place.label(), std::strerror(_error));
}

std::string ByteStream::readError() const { return _error == 0 ? "" : std::strerror(_error); }

}  // namespace tavrin::tool
