/// @file
/// Separation of a stream into several stems at once, with a model that has one output per stem.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tavrin/export.h"
#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// The stems of a multi-stem model, in the model's order.
enum class Stem { vocals, drums, bass, piano, acousticGuitar, electricGuitar };

/// Number of Stem values.
constexpr std::size_t kStemCount = 6;

/// A loaded multi-stem model. A handle: copies share the model, and any number of separators on any threads may use it
/// (their model calls take turns).
///
/// The model's inputs are "unified_input", float [1, 4, 256, 2048] (batch, then real and imaginary plane of the left
/// and of the right channel, frames, bins), and one bool [1] flag per stem: "vocals_flag", "drum_flag", "bass_flag",
/// "piano_flag", "acoustic_guitar_flag", "electric_guitar_flag". Its outputs are "vocals_output" and so on, float and
/// shaped like the spectrum.
class TAVRIN_EXPORT MultiStemModel {
public:
    /// Sets up the log as initializeModel() does; each model call then writes its time at warning. When the runtime
    /// offers QNN, changes the process environment.
    /// @param model read during the call only.
    /// @param provider an execution provider's name as ONNX Runtime reports it, tried before the others; or empty.
    /// @throws std::runtime_error when the bytes are no model that the runtime can load, or a model with other inputs
    /// and
    ///         outputs (the message says what it has and what is needed).
    explicit MultiStemModel(const ModelData& model, const std::string& provider = {});
    ~MultiStemModel();
    MultiStemModel(const MultiStemModel&);
    MultiStemModel& operator=(const MultiStemModel&);

private:
    friend class MultiStemSeparator;
    class Impl;
    std::shared_ptr<Impl> _impl;
};

/// What one stream is to do.
struct MultiStemConfig {
    std::vector<Stem> stems;  ///< the stems wanted at first; an empty list is allowed
    bool rest = false;        ///< true: return the input minus all wanted stems, too
    bool interleaved = true;  ///< true: left, right, left, right, …; false: all left samples, then all right
};

/// Samples that have become final: a vector per stem, and the rest. A stem that is off has an empty one; all others are
/// equally long.
struct SeparatedStems {
    std::array<std::vector<float>, kStemCount> stems;  ///< indexed by Stem
    std::vector<float> rest;                           ///< empty unless asked for
    std::size_t samples = 0;                           ///< per channel; counts also when no stem is on

    /// The samples of one stem.
    const std::vector<float>& operator[](Stem stem) const { return stems[static_cast<std::size_t>(stem)]; }
};

/// Separates one stereo stream, in blocks of any size, into several stems: StreamSeparator for multi-stem models.
///
/// One model call per block serves all stems; a stem that is off costs no synthesis. Output, latency and thread rules
/// are those of StreamSeparator.
/// Memory: 61 MiB per separator beside the model's own, 63 MiB during a stream's first and last block, the same after
/// ten seconds and after ten hours, most of it for the model's six outputs; plus what process() is given and returns.
///
///     tavrin::MultiStemSeparator separator(model, {.stems = {tavrin::Stem::vocals, tavrin::Stem::drums}});
///     while (read(block)) write(separator.process(block)[tavrin::Stem::vocals]);
///     write(separator.finish()[tavrin::Stem::vocals]);
class TAVRIN_EXPORT MultiStemSeparator {
public:
    /// @throws std::invalid_argument for a value that is no Stem.
    MultiStemSeparator(const MultiStemModel& model, MultiStemConfig config);
    ~MultiStemSeparator();
    /// What has been moved from can only be destroyed or assigned to.
    MultiStemSeparator(MultiStemSeparator&&) noexcept;
    MultiStemSeparator& operator=(MultiStemSeparator&&) noexcept;
    MultiStemSeparator(const MultiStemSeparator&) = delete;
    MultiStemSeparator& operator=(const MultiStemSeparator&) = delete;

    /// Chooses other stems from the next model call on. A stem that is switched on fades in, one that is switched off
    /// fades out (and still has output in the block in which it does), both over 3072 samples: no click.
    /// @throws std::invalid_argument for a value that is no Stem; nothing has changed.
    void selectStems(const std::vector<Stem>& stems);

    /// Takes any number of samples, also none, and returns those that have become final.
    /// @param samples stereo float samples in the configured layout, 2 · n floats for n samples per channel.
    /// @throws std::invalid_argument for a vector of odd length (nothing has changed, the stream can go on);
    ///         std::runtime_error when a model run fails; std::logic_error after finish() or after another exception.
    SeparatedStems process(const std::vector<float>& samples);

    /// Ends the stream and returns the rest of the output. @throws as process().
    SeparatedStems finish();

    /// Forgets the stream and starts a new one, with the same bits as a new object of the present selection.
    void reset();

    /// As StreamSeparator::latency().
    static std::size_t latency() noexcept;

private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace tavrin
