/// @file
/// Model and Separator: the way into the library for hosts. A model from memory, a stream of any block size, any
/// number of stems, on the caller's memory.
///
///     const tavrin::Model model({bytes.data(), bytes.size()});
///     tavrin::Separator separator(model, {});            // every stem of the model
///     while (read(block)) write(separator.process(block)[0]);
///     write(separator.finish()[0]);
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tavrin/export.h"
#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// How a model is to be run.
struct ModelOptions {
    /// Execution providers in order of preference, as ONNX Runtime spells them ("CUDAExecutionProvider") or short
    /// ("cpu", "cuda", "rocm", "coreml", "qnn"). The first one that can run the model does; the CPU stands behind
    /// them all. Empty: the accelerators that the runtime offers, then the CPU.
    std::vector<std::string> providers;
    bool strict = false;      ///< true: an error unless one of `providers` runs the model
    std::size_t threads = 0;  ///< threads of one model call; 0: the runtime's choice, one per core
};

/// What a model says of itself, and how it is run.
struct ModelInfo {
    std::vector<std::string> stems;  ///< names of the outputs, in the model's order
    std::uint32_t sampleRate = 0;    ///< Hz that the model was made for; audio of other rates is the host's to resample
    std::size_t frameLength = 0;     ///< samples of a frame
    std::size_t hop = 0;             ///< samples between the starts of consecutive frames
    std::string window;              ///< "blackman" or "hann"
    std::size_t frames = 0;          ///< frames of one model call
    std::size_t bins = 0;            ///< frequency bins that the model sees, from DC up
    std::size_t context = 0;         ///< frames that the model wants to see on both sides of a frame
    std::string title;               ///< for people; may be empty, as the next two
    std::string licence;
    std::string source;
    std::string provider;              ///< the execution provider that runs the model, as the runtime spells it
    std::vector<std::string> notUsed;  ///< why preferred providers do not: "CUDAExecutionProvider: …", one line each
};

/// The execution providers that the runtime offers, as it spells them. @throws std::runtime_error when the process has
/// a runtime older than the library needs.
TAVRIN_EXPORT std::vector<std::string> availableProviders();

/// A loaded model. A handle: copies share the model, and any number of separators on any threads may use it.
///
/// The model's first input is float [1, 4, frames, bins]: real and imaginary plane of the left and of the right
/// channel. Its outputs are shaped like it, one per stem. It describes itself in its ONNX metadata;
/// docs/model-contract.md has the keys and their defaults. Models with the six stem flags of the block engine's
/// multi-stem contract are taken, too.
///
/// Nothing is read from disk and nothing is printed; a host that has a default plog logger gets records.
class TAVRIN_EXPORT Model {
public:
    /// @param model read during the call only. @throws std::runtime_error that says what is wrong with the model, which
    /// of the wanted providers failed and why (`strict`), or that the process has a runtime that is too old;
    ///         std::invalid_argument for null data or an option out of range.
    explicit Model(const ModelData& model, const ModelOptions& options = {});
    ~Model();
    Model(const Model&);
    Model& operator=(const Model&);

    /// Lasts as long as a copy of the model.
    const ModelInfo& info() const noexcept;

private:
    friend class Separator;
    friend struct ModelAccess;
    class Impl;
    struct Made {};  // keeps the next constructor apart from Model(ModelData)
    Model(std::shared_ptr<Impl> impl, Made);
    std::shared_ptr<Impl> _impl;
};

/// How samples lie in memory.
enum class Layout {
    interleaved,  ///< left, right, left, right, …
    planar        ///< the channels apart
};

/// What one stream is to do.
struct SeparatorConfig {
    std::vector<std::string> stems;       ///< stems to give out, in this order; empty: all, in the model's order
    bool rest = false;                    ///< true: the input minus all these stems, too, as the last output
    Layout layout = Layout::interleaved;  ///< of input and outputs
    double latency = 0.0;                 ///< longest allowed latency in seconds; 0: the cheapest, which is the longest
    std::size_t context = 0;              ///< frames to see on both sides of a frame; 0: as many as the model wants
};

/// Separates one stereo stream that arrives in blocks of any size.
///
/// Each output as a whole has exactly as many samples as the input, sample k of the one belongs to sample k of the
/// other, and the bits are the same however the stream was cut. Input samples that are not finite count as silence.
///
/// Latency: at most latency() samples per channel are held back. A short latency costs model calls: one per
/// step() · hop samples.
/// Memory: 20 MiB for one stem at the usual geometry, beside the model's own, and 8 MiB for each further stem; the same
/// after ten seconds and after ten hours.
/// Threads: one stream, one thread at a time; separators on different threads may share a model.
/// Not for an audio callback: a call that completes a step runs the model, which takes as long as the model takes. See
/// examples/realtime_host.cpp for the worker thread that it needs.
///
/// Samples are counted per channel. With Layout::interleaved an input is one pointer to 2 · n floats, and so is each
/// output; with Layout::planar an input is two pointers to n floats each, left and right, and so is each output:
/// output k lies at outputs[2k] and outputs[2k + 1].
class TAVRIN_EXPORT Separator {
public:
    /// @throws std::invalid_argument for a stem that the model does not have, a stem named twice, a context that leaves
    ///         no frame of a model call, or a latency below the least possible one (the message names the values and
    ///         what there is).
    Separator(const Model& model, const SeparatorConfig& config);
    ~Separator();
    /// What has been moved from can only be destroyed or assigned to.
    Separator(Separator&&) noexcept;
    Separator& operator=(Separator&&) noexcept;
    Separator(const Separator&) = delete;
    Separator& operator=(const Separator&) = delete;

    /// The names of the outputs: the configured stems, then "rest" if it is wanted.
    const std::vector<std::string>& outputs() const noexcept;

    /// The most samples that are ever held back: a bound on the samples taken but not yet returned, not a shift.
    std::size_t latency() const noexcept;

    /// Frames from one model call to the next.
    std::size_t step() const noexcept;

    /// How many samples process() will return for `samples` more; 0 when the stream has ended or failed.
    std::size_t outputFor(std::size_t samples) const noexcept;

    /// Samples taken and not yet returned: what finish() will return; 0 when the stream has ended or failed.
    std::size_t pending() const noexcept;

    /// Takes any number of samples, also none, and writes those that have become final.
    ///
    /// Allocates nothing beside what the runtime does in a model call.
    /// @param input one pointer (interleaved) or two (planar); not read when `samples` is 0.
    /// @param outputs one pointer (interleaved) or two (planar) per output; a null pointer: not written. Not read
    ///        when nothing becomes final. Outputs and input may not overlap.
    /// @param capacity room of each output, in samples: at least outputFor(samples).
    /// @return the samples written to each output, outputFor(samples).
    /// @throws std::invalid_argument for too little room (nothing has changed, the stream can go on);
    ///         std::runtime_error when a model call fails, or gives what is not finite: the stream is closed and the
    ///         outputs hold silence; std::logic_error after finish() or after another exception.
    std::size_t process(const float* const* input, std::size_t samples, float* const* outputs, std::size_t capacity);

    /// Ends the stream and writes the rest of the output, pending() samples. @throws as process().
    std::size_t finish(float* const* outputs, std::size_t capacity);

    /// process() with vectors of 2 · n floats; in planar ones the right channel stands behind the left one.
    /// @return a vector per output. @throws also std::invalid_argument for an odd length; nothing has changed.
    std::vector<std::vector<float>> process(const std::vector<float>& samples);
    /// finish() with vectors.
    std::vector<std::vector<float>> finish();

    /// Switches to a choice of the configured stems, from the next model call on. A stem that is switched off fades
    /// out, one that is switched on fades in, both over frameLength - hop samples; a stem that is off is silent, and
    /// stays in the rest. @throws std::invalid_argument for a stem that is not configured; nothing has changed.
    void select(const std::vector<std::string>& stems);

    /// Forgets the stream and starts a new one with the same bits as a new object of the present selection.
    void reset();

private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

/// Separates a whole recording in one call.
/// @param samples as for Separator::process(). @return a vector per output, each as long as `samples`.
/// @throws as Separator.
TAVRIN_EXPORT std::vector<std::vector<float>> separate(const Model& model, const std::vector<float>& samples,
                                                       const SeparatorConfig& config = {});

}  // namespace tavrin
