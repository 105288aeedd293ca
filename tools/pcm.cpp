#include "pcm.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace tavrin::tool {

namespace {

float decodeSample(const PcmFormat& format, const char* bytes) {
    const unsigned long long number = readNumber(bytes, format.sampleBytes());
    if (format.isFloat && format.bits == 64) return static_cast<float>(std::bit_cast<double>(std::uint64_t{number}));
    const auto low = static_cast<std::uint32_t>(number);
    if (format.isFloat) return std::bit_cast<float>(low);
    // Bytes are unsigned, larger samples signed. With its sign in the highest bit every size has the same full scale.
    const std::uint32_t high = low << (32 - format.bits);
    const auto sample = static_cast<std::int32_t>(format.bits == 8 ? high ^ 0x80000000U : high);
    return static_cast<float>(std::ldexp(sample, -31));
}

}  // namespace

void decode(const PcmFormat& format, const char* bytes, std::size_t count, float* samples) {
    for (std::size_t i = 0; i < count; ++i) samples[i] = decodeSample(format, bytes + i * format.sampleBytes());
}

void encode(const PcmFormat& format, const std::vector<float>& samples, std::vector<char>& bytes) {
    const double fullScale = std::ldexp(1.0, format.bits - 1);
    for (const float sample : samples) {
        if (format.isFloat) {
            appendNumber(bytes, std::bit_cast<std::uint32_t>(sample), 4);
        } else {
            const double scaled = std::clamp(sample * fullScale, -fullScale, fullScale - 1);
            appendNumber(bytes, static_cast<unsigned long long>(std::llrint(scaled)), format.sampleBytes());
        }
    }
}

void appendNumber(std::vector<char>& bytes, unsigned long long number, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) bytes.push_back(static_cast<char>(number >> (8 * i)));
}

unsigned long long readNumber(const char* bytes, std::size_t size) {
    unsigned long long number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number |= static_cast<unsigned long long>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    }
    return number;
}

}  // namespace tavrin::tool
