/// @file
/// Changes the rate of a stereo stream.
#pragma once

#include <cstdint>
#include <vector>

#include "audio/ffmpeg.h"

namespace tavrin::tool {

/// Converts a stream of interleaved stereo samples from one rate to another, without shifting it in time: sample k of
/// the one and sample k · to / from of the other are the same moment. With equal rates the samples pass untouched.
///
/// The filter withholds some samples until finish(), so keep what belongs beside them in a queue. For there and back:
///
///     Resampler there(song.rate(), model.rate()), back(model.rate(), song.rate());
///     ...
///     use(there.finish());          // the natural length: round(samples · to / from)
///     use(back.finish(songLength))  // exactly as many samples as the song has, all calls together
class Resampler {
public:
    /// @param from, to samples per second.
    Resampler(int from, int to);

    std::vector<float> process(std::vector<float> samples);

    /// Ends the stream.
    /// @param length samples per channel that all calls together are to have returned: missing ones are silent, too
    /// many are left out; negative for the natural length.
    std::vector<float> finish(std::int64_t length = -1);

private:
    ConverterHandle _converter;  // none for equal rates
    int _from;
    int _to;
    std::int64_t _in = 0;  // samples per channel so far
    std::int64_t _out = 0;
};

}  // namespace tavrin::tool
