#include "audio/byte_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "audio/audio_error.h"

namespace tavrin::tool {

namespace {

constexpr int bufferSize = 1 << 16;
constexpr int patienceMilliseconds = 100;
// A pipe that can take anything takes so much at once (PIPE_BUF).
constexpr int pipePiece = 4096;

}  // namespace

ByteStream::ByteStream(const AudioPlace& place, Direction direction)
    : _place(place), _direction(direction), _descriptor(place.descriptor) {
    // Without O_NONBLOCK, opening a named pipe waits for its other end.
    const int flags = (direction == Direction::in ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC) | O_NONBLOCK | O_CLOEXEC;
    while (_descriptor < 0 && _error == 0) {
        _descriptor = _file.descriptor = open(place.path.c_str(), flags, 0666);
        if (_descriptor >= 0) break;
        // Nobody reads the named pipe yet.
        const bool isWaiting = errno == ENXIO && direction == Direction::out;
        if (!isWaiting && errno != EINTR) _error = errno;
        if (isWaiting && place.interrupted && place.interrupted()) _error = ECANCELED;
        if (isWaiting) poll(nullptr, 0, patienceMilliseconds);
    }
    struct stat status {};
    if (_error == 0 && fstat(_descriptor, &status) != 0) _error = errno;
    if (_error == 0 && S_ISDIR(status.st_mode)) _error = EISDIR;
    if (_error != 0) {
        if (direction == Direction::out || _error == ECANCELED) check();
        throw AudioError(AudioError::Kind::unreadable, place.label() + ": cannot be read (" + std::strerror(_error) +
                                                           "); check the name and the rights");
    }
    // A shared file that others append to is written from front to back.
    const bool appends = direction == Direction::out && (fcntl(_descriptor, F_GETFL) & O_APPEND) != 0;
    _isSeekable = (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode)) && !appends;
    if (_isSeekable) _origin = lseek(_descriptor, 0, SEEK_CUR);
    auto* buffer = static_cast<unsigned char*>(allocated(av_malloc(bufferSize)));
#if LIBAVFORMAT_VERSION_MAJOR < 61
    using Written = std::uint8_t*;
#else
    using Written = const std::uint8_t*;
#endif
    _context.reset(allocated(avio_alloc_context(
        buffer, bufferSize, direction == Direction::out, this,
        [](void* self, std::uint8_t* bytes, int size) { return static_cast<ByteStream*>(self)->read(bytes, size); },
        [](void* self, Written bytes, int size) { return static_cast<ByteStream*>(self)->write(bytes, size); },
        [](void* self, std::int64_t offset, int whence) {
            return static_cast<ByteStream*>(self)->seek(offset, whence);
        })));
    _context->seekable = _isSeekable ? AVIO_SEEKABLE_NORMAL : 0;
    if (direction == Direction::out) return;
    // A file's head is whole. A pipe's is what tells its kind: the rest may be long in coming.
    const std::size_t wanted = _isSeekable ? bufferSize : 12;
    std::string head(bufferSize, '\0');
    std::size_t size = 0;
    while (size < wanted) {
        const int count =
            readDescriptor(reinterpret_cast<std::uint8_t*>(head.data()) + size, static_cast<int>(head.size() - size));
        if (count <= 0) break;
        size += static_cast<std::size_t>(count);
    }
    check();
    _head = head.substr(0, size);
    if (!_isSeekable) return;
    _headRead = size;
    seek(0, SEEK_SET);
}

ByteStream::OpenFile::~OpenFile() {
    if (descriptor >= 0) close(descriptor);
}

void ByteStream::FreeContext::operator()(AVIOContext* context) const {
    av_freep(&context->buffer);
    avio_context_free(&context);
}

int ByteStream::fail(int error) {
    if (_error == 0) _error = error;
    return error == ECANCELED ? AVERROR_EXIT : AVERROR(error);
}

// Returns 0 as soon as something can be done, or a negative result.
int ByteStream::wait(short events) {
    for (;;) {
        if (_place.interrupted && _place.interrupted()) return fail(ECANCELED);
        if (_isSeekable) return 0;
        pollfd item{_descriptor, events, 0};
        const int count = poll(&item, 1, patienceMilliseconds);
        if (count > 0) return 0;
        if (count < 0 && errno != EINTR) return fail(errno);
    }
}

int ByteStream::readDescriptor(std::uint8_t* bytes, int size) {
    for (;;) {
        if (const int result = wait(POLLIN); result < 0) return result;
        const ssize_t count = ::read(_descriptor, bytes, static_cast<std::size_t>(size));
        if (count == 0) return AVERROR_EOF;
        if (count > 0) {
            _tail.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
            if (_tail.size() > std::size_t{8} * bufferSize) _tail.erase(0, _tail.size() - bufferSize);
            return static_cast<int>(count);
        }
        if (errno != EAGAIN && errno != EINTR) return fail(errno);
    }
}

int ByteStream::read(std::uint8_t* bytes, int size) {
    if (_headRead == _head.size()) return readDescriptor(bytes, size);
    const std::size_t count = _head.copy(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size), _headRead);
    _headRead += count;
    return static_cast<int>(count);
}

int ByteStream::write(const std::uint8_t* bytes, int size) {
    for (int written = 0; written < size;) {
        if (const int result = wait(POLLOUT); result < 0) return result;
        const int piece = _isSeekable ? size - written : std::min(size - written, pipePiece);
        const ssize_t count = ::write(_descriptor, bytes + written, static_cast<std::size_t>(piece));
        if (count > 0) written += static_cast<int>(count);
        if (count < 0 && errno != EAGAIN && errno != EINTR) return fail(errno);
    }
    return size;
}

std::int64_t ByteStream::seek(std::int64_t offset, int whence) {
    // An error as the size of a pipe would count as one: MP3 files then lose their length.
    if (whence == AVSEEK_SIZE) return std::max<std::int64_t>(0, size());
    if (!_isSeekable) return AVERROR(ESPIPE);
    _tail.clear();
    const off_t position = lseek(_descriptor, whence == SEEK_SET ? offset + _origin : offset, whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : position - _origin;
}

std::int64_t ByteStream::size() const {
    struct stat status {};
    return _isSeekable && fstat(_descriptor, &status) == 0 ? status.st_size - _origin : -1;
}

void ByteStream::spool() {
    _spool.reset(std::tmpfile());
    if (!_spool) fail(errno);
    std::vector<std::uint8_t> bytes(bufferSize);
    while (_direction == Direction::in && _error == 0) {
        const int count = read(bytes.data(), bufferSize);
        if (count <= 0) break;
        if (std::fwrite(bytes.data(), 1, static_cast<std::size_t>(count), _spool.get()) == 0) fail(errno);
    }
    if (_error == 0 && std::fflush(_spool.get()) != 0) fail(errno);
    check();
    _target = std::exchange(_descriptor, fileno(_spool.get()));
    _isSeekable = true;
    _context->seekable = AVIO_SEEKABLE_NORMAL;
    seek(0, SEEK_SET);
}

void ByteStream::finish() {
    avio_flush(_context.get());
    if (_spool && _error == 0) {
        std::rewind(_spool.get());
        _descriptor = _target;
        _isSeekable = false;
        std::vector<std::uint8_t> bytes(bufferSize);
        std::size_t count = 0;
        while (_error == 0 && (count = std::fread(bytes.data(), 1, bytes.size(), _spool.get())) > 0) {
            write(bytes.data(), static_cast<int>(count));
        }
        _spool.reset();
    }
    check();
    if (_file.descriptor >= 0 && close(std::exchange(_file.descriptor, -1)) != 0) fail(errno);
    check();
}

void ByteStream::check() const {
    if (_error == ECANCELED) throw AudioError(AudioError::Kind::interrupted, _place.label() + ": interrupted");
    if (_error == 0 || (_direction == Direction::in && !_spool)) return;
    if (_direction == Direction::in) {
        throw AudioError(AudioError::Kind::unreadable, _place.label() + ": cannot be kept in a temporary file (" +
                                                           std::strerror(_error) +
                                                           "); make room or choose another TMPDIR");
    }
    if (_error == EPIPE) throw AudioError(AudioError::Kind::readerGone, _place.label() + ": nobody reads it any more");
    throw AudioError(AudioError::Kind::unwritable, _place.label() + ": cannot be written (" + std::strerror(_error) +
                                                       "); make room or choose another folder with -o");
}

std::string ByteStream::readError() const { return _error == 0 ? "" : std::strerror(_error); }

}  // namespace tavrin::tool
