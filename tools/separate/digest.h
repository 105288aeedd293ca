/// @file
/// Fingerprints of bytes.
#pragma once

#include <cstddef>
#include <string>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Takes bytes as they come and gives their digest: MurmurHash3, 128 bits. It tells songs and models apart, at the
/// speed of memory; against forgery it says nothing.
class Digest {
public:
    Digest() {
        if (av_hash_alloc(&_context, "murmur3") < 0) throw std::bad_alloc();
        av_hash_init(_context);
    }
    ~Digest() { av_hash_freep(&_context); }
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    Digest& add(const void* bytes, std::size_t count) {
        av_hash_update(_context, static_cast<const std::uint8_t*>(bytes), count);
        return *this;
    }

    /// In hexadecimal digits. Once, at the end.
    std::string text() {
        char digits[2 * AV_HASH_MAX_SIZE + 1];
        av_hash_final_hex(_context, reinterpret_cast<std::uint8_t*>(digits), sizeof digits);
        return digits;
    }

private:
    AVHashContext* _context = nullptr;
};

}  // namespace tavrin::tool
