/// @file
/// From song samples to stems and rest.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "resampler.h"
#include "stem_stream.h"

namespace tavrin::tool {

/// Separates one song in its own samples: whatever its rate, every part is exactly as long as the song, and at every
/// sample rest = song − all stems. The song waits in memory only until its stems are known, about six seconds.
class Separation {
public:
    /// @param songRate samples per second. @throws as Resampler.
    Separation(std::unique_ptr<StemStream> stems, double songRate);

    /// Takes any number of samples and returns the parts that have become final, possibly none: the stems, and last of
    /// all the rest. @throws as StemStream.
    Parts process(const std::vector<float>& song);

    /// Ends the song and returns the remaining parts.
    Parts finish();

    std::int64_t framesDone() const { return _framesDone; }

private:
    Parts withRest(Parts stems);

    std::unique_ptr<StemStream> _stems;
    Resampler _toModelRate;
    std::vector<Resampler> _toSongRate;  // one per stem
    std::vector<float> _waiting;         // the song's samples from the first one whose stems are not known yet
    std::int64_t _framesDone = 0;
};

}  // namespace tavrin::tool
