/// @file
/// Fingerprints of bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct AVHashContext;

namespace tavrin::tool {

/// Takes bytes as they come and gives their digest.
class Digest {
public:
    /// @param kind one that FFmpeg knows: "SHA256" for files; "murmur3", many times as fast, to tell samples apart.
    explicit Digest(const char* kind);

    void add(const void* bytes, std::size_t count);

    /// In hexadecimal digits. Once, at the end.
    std::string text();

private:
    struct Free {
        void operator()(AVHashContext* context) const;
    };
    std::unique_ptr<AVHashContext, Free> _context;
};

}  // namespace tavrin::tool
