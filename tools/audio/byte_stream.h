/// @file
/// The bytes of a file or pipe, as FFmpeg's libraries read and write them. For the sources of this folder only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "audio/audio_place.h"
#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Never blocks for longer than a tenth of a second without asking AudioPlace::interrupted, not even while a named pipe
/// waits for its other end.
class ByteStream {
public:
    enum class Direction { in, out };

    /// @throws AudioError.
    ByteStream(const AudioPlace& place, Direction direction);
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    AVIOContext* context() { return _context.get(); }
    bool isSeekable() const { return _isSeekable; }
    std::int64_t size() const;  ///< bytes; negative when it is not known

    /// The first bytes of an input, as many as have come, at most 64 KiB. They are still to be read.
    const std::string& head() const { return _head; }
    /// The last bytes that were read, 64 KiB or more unless there were fewer.
    const std::string& tail() const { return _tail; }

    /// From now on, bytes come from or go to an unnamed file, in which one can seek. An input is read to its end first.
    void spool();
    /// Writes what spool() has kept and closes the file. @throws AudioError
    void finish();

    /// @throws AudioError for what went wrong inside the libraries' calls: interruption, a closed pipe, and whatever
    /// could not be written. They do not let exceptions pass, and tell less.
    void check() const;
    /// Whether an input broke off, and why; empty when it did not.
    std::string readError() const;

private:
    int read(std::uint8_t* bytes, int size);
    int readDescriptor(std::uint8_t* bytes, int size);
    int write(const std::uint8_t* bytes, int size);
    std::int64_t seek(std::int64_t offset, int whence);
    int wait(short events);
    int fail(int error);

    AudioPlace _place;
    Direction _direction;
    int _descriptor = -1;
    struct OpenFile {
        ~OpenFile();
        int descriptor = -1;
    };
    OpenFile _file;    // when there is only a path
    int _target = -1;  // where the spooled bytes belong
    bool _isSeekable = false;
    std::int64_t _origin = 0;  // where in the file the stream begins
    int _error = 0;            // errno of the first failure; ECANCELED: interrupted
    std::string _head;
    std::size_t _headRead = 0;  // how much of it the libraries have read again
    std::string _tail;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> _spool{nullptr, std::fclose};
    struct FreeContext {
        void operator()(AVIOContext* context) const;
    };
    std::unique_ptr<AVIOContext, FreeContext> _context;
};

}  // namespace tavrin::tool
