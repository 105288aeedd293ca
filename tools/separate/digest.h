/// @file
/// Fingerprints of bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Takes bytes as they come and gives their digest: MurmurHash3, 128 bits. It tells songs and models apart, at the
/// speed of memory; against forgery it says nothing.
class Digest {
public:
    Digest() {
        AVHashContext* context = nullptr;
        if (av_hash_alloc(&context, "murmur3") < 0) throw std::bad_alloc();
        _context.reset(context);
        av_hash_init(context);
    }

    Digest& add(const void* bytes, std::size_t count) {
        av_hash_update(_context.get(), static_cast<const std::uint8_t*>(bytes), count);
        return *this;
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
