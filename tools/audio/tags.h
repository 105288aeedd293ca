/// @file
/// What a song's file says about the song.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tavrin::tool {

/// Texts by name ("title", "artist", "track", ...), in the file's order. Names are those that FFmpeg gives every
/// container's; compare them without case.
using Tags = std::vector<std::pair<std::string, std::string>>;

/// The text of a tag; empty when there is none.
std::string tagText(const Tags& tags, const std::string& name);

/// Replaces the text of a tag or adds it.
void setTag(Tags& tags, const std::string& name, const std::string& text);

/// The cover, as the file holds it.
struct Picture {
    std::string codec;  ///< "mjpeg", "png", ...; empty: there is no picture
    int width = 0;      ///< pixels; 0 when the file does not say
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

}  // namespace tavrin::tool
