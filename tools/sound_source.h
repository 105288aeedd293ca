/// @file
/// Where the samples of a song come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "options.h"
#include "tags.h"

namespace tavrin::tool {

/// What SoundSource::frames() says when the source does not know its length.
inline constexpr std::int64_t unknownLength = std::numeric_limits<std::int64_t>::max();

/// A stream of interleaved samples of any number of channels.
class SoundSource {
public:
    virtual ~SoundSource() = default;

    virtual int rate() const = 0;  ///< samples per second
    virtual int channels() const = 0;
    virtual std::int64_t frames() const = 0;  ///< samples per channel, as announced; or unknownLength
    virtual Tags tags() const { return {}; }

    /// @return how many frames it read, at most `frames`; 0 at the end only.
    /// @throws Failure with ExitCode::inputUnreadable when the sound is damaged.
    virtual std::size_t read(float* samples, std::size_t frames) = 0;

    /// Leaves out up to so many frames. @return how many there were.
    virtual std::int64_t skip(std::int64_t frames) = 0;
};

/// A file, of any kind that libsndfile reads. @throws Failure with ExitCode::inputUnreadable.
std::unique_ptr<SoundSource> openSoundFile(const std::filesystem::path& file);

/// Standard input: a WAV stream of any length, or raw samples when options.raw says so. A read returns what has
/// arrived. @throws Failure with ExitCode::inputUnreadable, or when the user interrupts the wait.
std::unique_ptr<SoundSource> openStandardInput(const Options& options);

}  // namespace tavrin::tool
