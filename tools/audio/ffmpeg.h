/// @file
/// What reader, writer and resampler share of FFmpeg's libraries.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/hash.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <cstddef>
#include <cstdint>
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

/// Collects what the libraries have to say about one song: they know one log for the whole process, and without this
/// it is the terminal.
class LibraryLog {
public:
    /// While it lives, messages of the current thread go to `log`.
    class Scope {
    public:
        explicit Scope(LibraryLog& log);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        LibraryLog* _outer;
    };

    const std::vector<std::string>& lines() const { return _lines; }
    /// How many lines were errors, those included that found no place in lines().
    std::size_t errors() const { return _errors; }
    const std::string& lastError() const { return _lastError; }

private:
    static void receive(void* object, int level, const char* format, va_list arguments);

    std::vector<std::string> _lines;
    std::string _unfinished;  // a line may come in several pieces
    std::string _lastError;
    std::size_t _errors = 0;
};

}  // namespace tavrin::tool
