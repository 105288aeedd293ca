/// @file
/// The model of this run, at work on its song.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "options.h"

namespace tavrin::tool {

/// Stretches of sound of one length, in interleaved stereo samples: a vector per part of the song.
using Parts = std::vector<std::vector<float>>;

/// Takes the stems out of a stream at the model's rate, whatever kind of model does it. The output as a whole is as
/// long as the input.
class StemStream {
public:
    virtual ~StemStream() = default;

    /// The number of parts that the other members return, in the order of Options::stems.
    virtual std::size_t stems() const = 0;

    /// Takes any number of interleaved stereo samples and returns the stems' that have become final, possibly none.
    /// @throws std::runtime_error when a model run fails.
    virtual Parts process(const std::vector<float>& samples) = 0;

    /// Ends the stream. @return the remaining samples. @throws as process().
    virtual Parts finish() = 0;
};

/// Loads the model: a multi-stem one when stems are named, otherwise one with a single output.
/// @throws Failure with ExitCode::modelUnusable.
std::unique_ptr<StemStream> openStemStream(const Options& options);

}  // namespace tavrin::tool
