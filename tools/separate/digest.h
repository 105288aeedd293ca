/// @file
/// Fingerprints of bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Takes bytes as they come and gives their digest.
class Digest {
public:
    /// @param kind one that FFmpeg knows: "SHA256" for files; "murmur3", many times as fast, to tell samples apart.
    explicit Digest(const char* kind) {
        AVHashContext* context = nullptr;
        if (av_hash_alloc(&context, kind) < 0) throw std::bad_alloc();
        _context.reset(context);
        av_hash_init(context);
    }

    void add(const void* bytes, std::size_t count) {
        av_hash_update(_context.get(), static_cast<const std::uint8_t*>(bytes), count);
    }

    /// In hexadecimal digits. Once, at the end.
    std::string text() {
        char digits[2 * AV_HASH_MAX_SIZE + 1];
        av_hash_final_hex(_context.get(), reinterpret_cast<std::uint8_t*>(digits), sizeof digits);
        return digits;
    }

private:
    std::unique_ptr<AVHashContext, FreeWith<av_hash_freep>> _context;
};

}  // namespace tavrin::tool
