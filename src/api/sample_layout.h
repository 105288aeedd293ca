/// @file
/// The two layouts of a host's flat stereo vectors: interleaved (left, right, left, right, …) and planar (all left
/// samples, then all right ones).
#pragma once

#include <vector>

#include "support/audio_view.h"

/// Looks at a host's vector. @throws std::invalid_argument, naming the length, when that is odd.
AudioView stereoView(const std::vector<float>& samples, bool interleaved);

/// A vector of 2·n floats as the place of n samples per channel.
AudioTarget stereoTarget(std::vector<float>& samples, bool interleaved);
