/// @file
/// The file formats that results can have.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tavrin::tool {

struct AudioFormat {
    const char* name;       ///< as on the command line
    const char* extension;  ///< without a dot
    const char* muxer;      ///< FFmpeg's names
    const char* encoder;
    int bits;      ///< of an integer format; 0 for floating point and for lossy ones
    bool isLossy;  ///< decoding does not give the same samples

    struct Quality {
        double least, most, normal;
        const char* unit;  ///< "kbit/s", "10 is best", ...; null: the format has no such choice
    } quality;

    std::span<const int> rates;  ///< ascending; empty: any

    /// Whether samples beyond full scale survive in it.
    bool hasHeadroom() const { return bits == 0; }
    bool isOgg() const { return muxer == std::string_view("ogg") || muxer == std::string_view("opus"); }
    /// Whether its first bytes are written last.
    bool needsSeeking() const { return muxer == std::string_view("mp3") || muxer == std::string_view("ipod"); }
    /// The rate that a song of `rate` gets: its own, or the next higher one, or the highest.
    int rateFor(int rate) const;
};

/// wav (32-bit float, the default), wav16, wav24, flac, flac24, mp3, m4a, opus, ogg; raw-float32 and raw-int16 for
/// pipes.
std::span<const AudioFormat> audioFormats();

/// @return null when there is none of that name.
const AudioFormat* findAudioFormat(const std::string& name);

/// The first format with that ending (without a dot, any case); null when there is none.
const AudioFormat* findAudioFormatByExtension(const std::string& extension);

}  // namespace tavrin::tool
