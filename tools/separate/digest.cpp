#include "separate/digest.h"

#include <new>
#include <vector>

extern "C" {
#include <libavutil/hash.h>
}

namespace tavrin::tool {

void Digest::Free::operator()(AVHashContext* context) const { av_hash_freep(&context); }

Digest::Digest(const char* kind) {
    AVHashContext* context = nullptr;
    if (av_hash_alloc(&context, kind) < 0) throw std::bad_alloc();
    _context.reset(context);
    av_hash_init(context);
}

void Digest::add(const void* bytes, std::size_t count) {
    av_hash_update(_context.get(), static_cast<const unsigned char*>(bytes), count);
}

std::string Digest::text() {
    std::vector<unsigned char> digits(2 * AV_HASH_MAX_SIZE + 1);
    av_hash_final_hex(_context.get(), digits.data(), static_cast<int>(digits.size()));
    return reinterpret_cast<const char*>(digits.data());
}

}  // namespace tavrin::tool
