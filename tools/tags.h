/// @file
/// What a song's file says about the song.
#pragma once

#include <sndfile.h>

#include <map>
#include <string>

namespace tavrin::tool {

/// Texts by libsndfile's SF_STR_ number: title, artist, album and so on.
using Tags = std::map<int, std::string>;

Tags readTags(SNDFILE* file);

/// Before the first samples. What the container has no place for is left out.
void writeTags(SNDFILE* file, const Tags& tags);

}  // namespace tavrin::tool
