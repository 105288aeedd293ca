/// @file
/// The two layouts of a host's flat stereo vectors: interleaved (left, right, left, right, …) and planar (all left
/// samples, then all right ones).
#pragma once

#include <cstddef>
#include <vector>

/// Two channels anywhere in memory; sample i of a channel lies `step` floats after sample i - 1.
struct StereoSource {
    const float* left;
    const float* right;
    size_t step;
    size_t samples;  ///< per channel
};

/// Looks at a host's vector. @throws std::invalid_argument, naming the length, when that is odd.
StereoSource stereoSource(const std::vector<float>& samples, bool interleaved);

/// Writes two rows of n samples as 2·n floats in the given layout.
void writeStereo(const float* left, const float* right, size_t n, bool interleaved, float* out);
