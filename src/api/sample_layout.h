/// @file
/// The two layouts of a host's flat stereo vectors: interleaved (left, right, left, right, …) and planar (all left
/// samples, then all right ones).
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "support/tensor.h"

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

/// Output of both channels, gathered over several blocks.
class StereoRows {
public:
    /// Appends a block [2, m].
    void append(const xt::xarray<float>& block);

    /// Appends zeros until there are n samples per channel.
    void extend(size_t n);

    size_t samples() const { return _rows[0].size(); }

    /// 2 · samples() floats in the given layout.
    std::vector<float> flatten(bool interleaved) const;

private:
    std::array<std::vector<float>, 2> _rows;
};
