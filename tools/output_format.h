/// @file
/// The file formats that results can have.
#pragma once

#include <sndfile.h>

namespace tavrin::tool {

struct OutputFormat {
    const char* name;       ///< as on the command line
    const char* extension;  ///< with its dot
    int code;               ///< libsndfile's
};

/// The first is the default.
inline constexpr OutputFormat outputFormats[] = {
    {"wav-float", ".wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT}, {"wav16", ".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
    {"wav24", ".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},    {"flac16", ".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
    {"flac24", ".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
};

}  // namespace tavrin::tool
