/// @file
/// The model of this run, at work on its songs.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
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

/// A loaded model: a multi-stem one when stems are named, otherwise one with a single output.
class Model {
public:
    /// @throws Failure with ExitCode::modelUnusable; with ExitCode::wrongUsage when the runtime does not offer the
    /// provider that the user wants.
    explicit Model(const Options& options);

    /// A new stream on the model; streams may run on several threads. Any thread.
    std::unique_ptr<StemStream> openStream() const;

    /// The provider that runs it.
    const std::string& provider() const { return _provider; }

private:
    void load(const Options& options);

    std::vector<Stem> _stems;
    std::optional<MultiStemModel> _multiStem;  // empty: the library's registry has it
    std::string _provider;
    mutable std::mutex _turn;  // streams are made one at a time
};

}  // namespace tavrin::tool
