#include "audio/audio_format.h"

#include <strings.h>

namespace tavrin::tool {

namespace {

constexpr int mp3Rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
constexpr int aacRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000};
constexpr int opusRates[] = {48000};
constexpr AudioFormat::Quality none{0, 0, 0, nullptr};
constexpr AudioFormat::Quality flacLevel{0, 12, 5, "12 is smallest"};

constexpr AudioFormat formats[] = {
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

}  // namespace

int AudioFormat::rateFor(int rate) const {
    for (const int possible : rates) {
        if (possible >= rate) return possible;
    }
    return rates.empty() ? rate : rates.back();
}

std::span<const AudioFormat> audioFormats() { return formats; }

const AudioFormat* findAudioFormat(const std::string& name) {
    for (const AudioFormat& format : formats) {
        if (format.name == name) return &format;
    }
    return nullptr;
}

const AudioFormat* findAudioFormatByExtension(const std::string& extension) {
    for (const AudioFormat& format : formats) {
        if (strcasecmp(format.extension, extension.c_str()) == 0) return &format;
    }
    return nullptr;
}

}  // namespace tavrin::tool
