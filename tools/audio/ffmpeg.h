/// @file
/// FFmpeg's libraries, as the other files here use them.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/hash.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}
#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace tavrin::tool {

template <auto function>
struct FreeWith {
    template <typename T>
    void operator()(T* object) const {
        function(&object);
    }
};
using CodecHandle = std::unique_ptr<AVCodecContext, FreeWith<avcodec_free_context>>;
using PacketHandle = std::unique_ptr<AVPacket, FreeWith<av_packet_free>>;
using FrameHandle = std::unique_ptr<AVFrame, FreeWith<av_frame_free>>;
using FormatHandle = std::unique_ptr<AVFormatContext, FreeWith<avformat_close_input>>;

/// The result of an allocation. @throws std::bad_alloc when there is none.
template <typename T>
T* allocated(T* object) {
    if (!object) throw std::bad_alloc();
    return object;
}

/// What one of the libraries' negative results means.
std::string errorText(int result);

/// What the libraries have to say about one song: they know one log for the whole process, and without this it is the
/// terminal.
struct LibraryLog {
    /// While it lives, messages of the current thread go to that log.
    struct Scope {
        explicit Scope(LibraryLog& log);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    std::vector<std::string> lines{};  ///< the first hundred
    std::size_t errors = 0;            ///< how many of all lines were errors
    std::string lastError{};
    std::string unfinished{};  ///< a line may come in several pieces
};

struct WithoutCase {
    bool operator()(const std::string& a, const std::string& b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};

/// Texts by name ("title", "artist", "track", ...), as the libraries call those of every container.
using Tags = std::map<std::string, std::string, WithoutCase>;

/// The cover, as the file holds it.
struct Picture {
    std::string codec;  ///< "mjpeg", "png", ...; empty: there is no picture
    int width = 0;      ///< pixels; 0 when the file does not say
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

}  // namespace tavrin::tool
