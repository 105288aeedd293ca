/// @file
/// The file formats that results can have.
#pragma once

#include <strings.h>

#include <algorithm>
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
    int rateFor(int rate) const {
        if (rates.empty()) return rate;
        const auto possible = std::ranges::lower_bound(rates, rate);
        return possible == rates.end() ? rates.back() : *possible;
    }
};

/// wav is the default; raw samples are for pipes.
inline std::span<const AudioFormat> audioFormats() {
    static constexpr int rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000};
    constexpr std::span<const int> aacRates = rates, mp3Rates = aacRates.first(9), opusRates = mp3Rates.last(1);
    static constexpr AudioFormat::Quality none{0, 0, 0, nullptr}, flacLevel{0, 12, 5, "12 is smallest"};
    static constexpr AudioFormat formats[] = {
        {"wav", "wav", "wav", "pcm_f32le", 0, false, none, {}},
        {"wav16", "wav", "wav", "pcm_s16le", 16, false, none, {}},
        {"wav24", "wav", "wav", "pcm_s24le", 24, false, none, {}},
        {"flac", "flac", "flac", "flac", 16, false, flacLevel, {}},
        {"flac24", "flac", "flac", "flac", 24, false, flacLevel, {}},
        {"mp3", "mp3", "mp3", "libmp3lame", 0, true, {0, 9, 0, "0 is best"}, mp3Rates},
        {"m4a", "m4a", "ipod", "aac", 0, true, {32, 512, 256, "kbit/s"}, aacRates},
        {"opus", "opus", "opus", "libopus", 0, true, {16, 510, 192, "kbit/s"}, opusRates},
        {"ogg", "ogg", "ogg", "libvorbis", 0, true, {-1, 10, 8, "10 is best"}, {}},
        {"raw-float32", "raw", "f32le", "pcm_f32le", 0, false, none, {}},
        {"raw-int16", "raw", "s16le", "pcm_s16le", 16, false, none, {}},
    };
    return formats;
}

/// @return null when there is none of that name.
inline const AudioFormat* findAudioFormat(const std::string& name) {
    const auto found = std::ranges::find(audioFormats(), name, &AudioFormat::name);
    return found == audioFormats().end() ? nullptr : &*found;
}

/// The first format with that ending (without a dot, any case); null when there is none.
inline const AudioFormat* findAudioFormatByExtension(const std::string& extension) {
    const auto fits = [&](const AudioFormat& format) { return strcasecmp(format.extension, extension.c_str()) == 0; };
    const auto found = std::ranges::find_if(audioFormats(), fits);
    return found == audioFormats().end() ? nullptr : &*found;
}

}  // namespace tavrin::tool
