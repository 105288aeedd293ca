/// @file
/// Samples as bytes, little-endian, as they travel through pipes.
#pragma once

#include <cstddef>
#include <vector>

namespace tavrin::tool {

struct PcmFormat {
    int rate = 0;  ///< samples per second; 0: not known
    int channels = 2;
    int bits = 32;  ///< per sample: 8, 16, 24 or 32; 32 or 64 when isFloat
    bool isFloat = true;

    std::size_t sampleBytes() const { return static_cast<std::size_t>(bits) / 8; }
    std::size_t frameBytes() const { return sampleBytes() * static_cast<std::size_t>(channels); }
};

/// @param count number of samples of all channels together.
void decode(const PcmFormat& format, const char* bytes, std::size_t count, float* samples);

/// Appends the samples to `bytes`. What an integer cannot hold is set to full scale.
void encode(const PcmFormat& format, const std::vector<float>& samples, std::vector<char>& bytes);

/// The bytes of a number that has so many of them.
void appendNumber(std::vector<char>& bytes, unsigned long long number, std::size_t size);

unsigned long long readNumber(const char* bytes, std::size_t size);

}  // namespace tavrin::tool
