/// @file
/// The bytes of a file or pipe, as FFmpeg's libraries read and write them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// A file, a named pipe, or a descriptor that is already open.
struct AudioPlace {
    std::filesystem::path path{};  ///< opened when there is no descriptor; any bytes, `-` and `http:` are file names
    int descriptor = -1;           ///< taken as it is and left open, 0 for standard input; the path is then unused
    std::string name{};            ///< how messages call it; empty: the path

    std::string label() const { return name.empty() ? path.string() : name; }
};

using FileHandle = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A file in that folder, for writing and reading, that has no name: it is gone when the program ends, however it ends.
/// @return null, with errno set, when there can be none.
FileHandle makeScratchFile(const std::filesystem::path& folder);

class ByteStream {
public:
    enum class Direction { in, out };

    /// Waits for the other end of a named pipe. @throws Failure.
    ByteStream(const AudioPlace& place, Direction direction);
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    AVIOContext* context() { return _context.get(); }
    bool isSeekable() const { return _context->seekable != 0; }
    std::int64_t size() const;  ///< bytes; 0 when it is not known

    /// The first bytes of an input, as many as have come, at most 64 KiB. They are still to be read.
    const std::string& head() const { return _head; }
    /// The last bytes that were read of an Ogg file, 64 KiB or more unless there were fewer.
    const std::string& tail() const { return _tail; }

    /// From now on, bytes come from or go to an unnamed file, in which one can seek. An input is read to its end first.
    void spool();
    /// Writes what spool() has kept and closes the file. @throws Failure
    void finish();

    /// @throws Failure for what could not be written inside the libraries' calls: they do not let exceptions pass, and
    /// tell less.
    void check() const;
    /// Why an input broke off; empty when it did not.
    std::string readError() const;

private:
    int read(std::uint8_t* bytes, int size);
    int write(const std::uint8_t* bytes, int size);
    std::int64_t seek(std::int64_t offset, int whence);
    int fail();

    AudioPlace _place;
    FileHandle _file{nullptr, std::fclose};  // when there is only a path
    FileHandle _spool{nullptr, std::fclose};
    int _descriptor;
    int _error = 0;  // errno of the first failure
    std::string _head;
    std::string _tail;
    static void freeContext(AVIOContext** context);
    std::unique_ptr<AVIOContext, FreeWith<freeContext>> _context;
};

}  // namespace tavrin::tool
