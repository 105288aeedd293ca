/// @file
/// From song samples to stem and rest.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resampler.h"
#include "tavrin/stream_separator.h"

namespace tavrin::tool {

/// The same stretch of a song twice, in interleaved stereo samples: what the model takes out, and what is left.
struct Parts {
    std::vector<float> stem;
    std::vector<float> rest;
};

/// Separates one song in its own samples: whatever its rate, stem and rest are exactly as long as the song, and at
/// every sample rest = song − stem. The song waits in memory only until its stem is known, about six seconds.
class Separation {
public:
    /// @param songRate samples per second. @throws as StreamSeparator and Resampler.
    Separation(const std::string& modelTag, double songRate);

    /// Takes any number of samples and returns the parts that have become final, possibly none.
    Parts process(const std::vector<float>& song);

    /// Ends the song and returns the remaining parts.
    Parts finish();

    std::int64_t framesDone() const { return _framesDone; }

private:
    Parts split(std::vector<float> stem);

    StreamSeparator _separator;
    Resampler _toModelRate;
    Resampler _toSongRate;
    std::vector<float> _waiting;  // the song's samples from the first one whose stem is not known yet
    std::int64_t _framesDone = 0;
};

}  // namespace tavrin::tool
