/// @file
/// Where audio comes from and goes to, and what its file says beside the sound.
#pragma once

#include <strings.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace tavrin::tool {

/// A file, a named pipe, or a descriptor that is already open.
struct AudioPlace {
    std::filesystem::path path{};  ///< opened when there is no descriptor; any bytes, `-` and `http:` are file names
    int descriptor = -1;           ///< taken as it is and left open, 0 for standard input; the path is then unused
    std::string name{};            ///< how messages call it; empty: the path

    std::string label() const { return name.empty() ? path.string() : name; }
};

struct WithoutCase {
    bool operator()(const std::string& a, const std::string& b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};

/// Texts by name ("title", "artist", "track", ...), as FFmpeg calls those of every container.
using Tags = std::map<std::string, std::string, WithoutCase>;

/// The cover, as the file holds it.
struct Picture {
    std::string codec;  ///< "mjpeg", "png", ...; empty: there is no picture
    int width = 0;      ///< pixels; 0 when the file does not say
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

/// How many are infinite or not a number: their exponent has all bits set. Comparing integers, compilers vectorise it.
inline std::int64_t countNotFinite(std::span<const float> samples) {
    std::uint32_t count = 0;
    for (const float sample : samples) count += (std::bit_cast<std::uint32_t>(sample) & 0x7F800000U) == 0x7F800000U;
    return count;
}

}  // namespace tavrin::tool
