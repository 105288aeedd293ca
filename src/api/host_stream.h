/// @file
/// What both separators do with a host's stream.
#pragma once

#include <functional>
#include <vector>

#include "pipeline/stream_cutter.h"
#include "support/audio_view.h"

namespace tavrin {

/// Cuts a host's stream into engine calls, turns failed model runs into exceptions, and refuses calls after the end or
/// after a failure.
class HostStream {
public:
    /// One engine call: samples, end-of-stream flag, whether the call completes a block. Returns whether there was
    /// output, which every completed block has.
    using Engine = std::function<bool(const AudioView& samples, bool eof, bool completesBlock)>;

    explicit HostStream(bool interleaved);

    /// What a call has brought.
    struct Input {
        AudioView samples;
        bool last;        ///< the stream ends behind them
        size_t finished;  ///< output samples per channel that they make final
    };

    /// Begins a call. From here on the stream counts as failed until succeed(): the caller has yet to hand its output
    /// over.
    /// @throws std::invalid_argument for an odd number of samples, nothing has changed; std::logic_error after the end
    ///         or a failure.
    Input open(const std::vector<float>& samples, bool last);

    /// Feeds the engine with what the input completes.
    /// @param engine by std::ref: a function object that has to be allocated could fail before the stream knows.
    /// @throws std::runtime_error with the runtime's message when a model run failed.
    void feed(const Input& input, const Engine& engine);

    /// All output of the last feed() has reached the host.
    void succeed(bool last) { _state = last ? State::finished : State::open; }

    /// The stream cannot go on.
    void fail() { _state = State::failed; }

    /// Starts a new stream.
    void reset();

private:
    enum class State { open, finished, failed };

    bool _interleaved;
    StreamCutter _cutter;
    State _state = State::open;
};

}  // namespace tavrin
