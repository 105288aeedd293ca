#include "tags.h"

namespace tavrin::tool {

namespace {

// The name of the program that wrote a file is not the song's.
constexpr int carriedOver[] = {SF_STR_TITLE, SF_STR_ARTIST,  SF_STR_ALBUM,   SF_STR_TRACKNUMBER, SF_STR_DATE,
                               SF_STR_GENRE, SF_STR_COMMENT, SF_STR_LICENSE, SF_STR_COPYRIGHT};

}  // namespace

Tags readTags(SNDFILE* file) {
    Tags tags;
    for (const int key : carriedOver) {
        if (const char* text = sf_get_string(file, key)) tags[key] = text;
    }
    return tags;
}

void writeTags(SNDFILE* file, const Tags& tags) {
    for (const auto& [key, text] : tags) sf_set_string(file, key, text.c_str());
}

}  // namespace tavrin::tool
