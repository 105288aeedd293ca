/// @file
/// What both separators do with a host's stream.
#pragma once

#include <functional>
#include <vector>

#include "pipeline/stream_cutter.h"
#include "support/tensor.h"

namespace tavrin {

/// Cuts a host's stream into engine calls, turns failed model runs into exceptions, and refuses calls after the end or
/// after a failure.
class HostStream {
public:
    /// One engine call: samples, end-of-stream flag, whether the call completes a block. Returns whether there was
    /// output, which every completed block has.
    using Engine = std::function<bool(xt::xarray<float> samples, bool eof, bool completesBlock)>;

    explicit HostStream(bool interleaved);

    /// Feeds the engine with what `samples`, and the end of the stream if this is the `last` call, complete. The stream
    /// counts as failed until succeed(): the caller has yet to hand its output over.
    /// @param engine by std::ref: a function object that has to be allocated could fail before the stream knows.
    /// @throws std::invalid_argument for an odd number of samples, nothing has changed; std::logic_error after the end
    ///         or a failure; std::runtime_error with the runtime's message when a model run failed.
    void process(const std::vector<float>& samples, bool last, const Engine& engine);

    /// All that the last process() brought has reached the host.
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
