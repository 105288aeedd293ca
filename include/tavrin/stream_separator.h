/// @file
/// Separation of a stream that arrives in blocks of any size: the class that most hosts want.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tavrin/export.h"
#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// Separates one stereo stream that arrives in blocks of any size.
///
/// Use this unless you build your own chain from the engine classes: it takes care of the block sizes that the engine
/// insists on. The output as a whole has exactly as many samples as the input, sample k of the one belongs to sample k
/// of the other, and the bits are the same however the stream was cut.
///
/// Latency: up to latency() samples per channel are held back until the model has heard enough.
/// Memory: 23 MiB per separator beside the model's own, 25 MiB during a stream's first and last block, the same after
/// ten seconds and after ten hours; plus what process() is given and returns.
/// Threads: one stream, one thread at a time; separators on different threads may share a model. Construction reads
/// the model registry, so serialise it with initializeModel() and its kin.
/// Not for an audio callback: a call that completes a block runs the model, which takes as long as the model takes. See
/// examples/realtime_host.cpp for the worker thread that it needs.
///
///     tavrin::StreamSeparator separator({.modelTag = "vocals", .interleaved = true});
///     while (read(block)) write(separator.process(block));
///     write(separator.finish());
class TAVRIN_EXPORT StreamSeparator {
public:
    /// @param config as for TavrinProc; with `interleaved` false every vector is all left samples, then all right.
    /// @throws std::runtime_error when no model is registered under the tag, when `channels` is not 2, or when the
    ///         model does not take and give float [1, 4, 256, 2048] (the message says what it has).
    explicit StreamSeparator(TavrinProcConfig config);
    ~StreamSeparator();
    /// What has been moved from can only be destroyed or assigned to.
    StreamSeparator(StreamSeparator&&) noexcept;
    StreamSeparator& operator=(StreamSeparator&&) noexcept;
    StreamSeparator(const StreamSeparator&) = delete;
    StreamSeparator& operator=(const StreamSeparator&) = delete;

    /// Takes any number of samples, also none, and returns those that have become final, possibly none.
    /// @param samples stereo float samples in the configured layout, 2 · n floats for n samples per channel.
    /// @throws std::invalid_argument for a vector of odd length (nothing has changed, the stream can go on);
    ///         std::runtime_error when a model run fails; std::logic_error after finish() or after another exception.
    std::vector<float> process(const std::vector<float>& samples);

    /// Ends the stream and returns the rest of the output.
    /// @throws as process().
    std::vector<float> finish();

    /// Forgets the stream and starts a new one, with the same bits as a new object.
    void reset();

    /// The most samples per channel that are ever held back: 263 167, which is 5.97 s at 44.1 kHz. It is a bound on
    /// the samples taken but not yet returned, not a shift: the output is aligned with the input.
    static std::size_t latency() noexcept;

private:
    friend TAVRIN_EXPORT std::vector<float> separate(const TavrinProcConfig& config, const std::vector<float>& samples);
    class Impl;
    std::unique_ptr<Impl> _impl;
};

/// Separates a whole recording in one call.
/// @return as many samples as given, in the same layout. @throws as StreamSeparator.
TAVRIN_EXPORT std::vector<float> separate(const TavrinProcConfig& config, const std::vector<float>& samples);

}  // namespace tavrin
