/// @file
/// The file formats that results can have, and what becomes of samples that are too loud for them.
#pragma once

#include <sndfile.h>

namespace tavrin::tool {

struct OutputFormat {
    const char* name;       ///< as on the command line
    const char* extension;  ///< without a dot
    int code;               ///< libsndfile's

    int container() const { return code & SF_FORMAT_TYPEMASK; }
    int encoding() const { return code & SF_FORMAT_SUBMASK; }
    /// Whether samples beyond full scale survive in it.
    bool hasHeadroom() const { return encoding() == SF_FORMAT_FLOAT || encoding() == SF_FORMAT_VORBIS; }
    /// Whether it can be written without going back, as to a pipe.
    bool isStreamable() const { return container() == SF_FORMAT_WAV || container() == SF_FORMAT_RAW; }
};

/// The first is the default.
inline constexpr OutputFormat outputFormats[] = {
    {"wav-float", "wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
    {"wav16", "wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
    {"wav24", "wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
    {"flac16", "flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
    {"flac24", "flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
    {"ogg", "ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {"raw-float32", "raw", SF_FORMAT_RAW | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
    {"raw-int16", "raw", SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
};

enum class ClipPolicy {
    none,     ///< samples stay as they are; a format that cannot hold them is refused
    clamp,    ///< samples beyond full scale are set to full scale
    scaleAll  ///< all parts of a song are turned down by one factor, so that the loudest just fits
};

}  // namespace tavrin::tool
