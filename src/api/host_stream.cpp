#include "api/host_stream.h"

#include <optional>
#include <stdexcept>
#include <string>

#include "api/engine.h"
#include "api/host_exceptions.h"
#include "api/sample_layout.h"
#include "inference/run_failure.h"

namespace tavrin {

HostStream::HostStream(bool interleaved)
    : _interleaved(interleaved), _cutter(Geometry::kFrameLength, Geometry::kHop, Geometry::kFrames) {}

HostStream::Input HostStream::open(const std::vector<float>& samples, bool last) {
    if (_state == State::finished) throw std::logic_error("the stream has ended; reset() starts a new one");
    if (_state == State::failed) throw std::logic_error("the stream has failed; reset() starts a new one");
    const AudioView view = stereoView(samples, _interleaved);
    _state = State::failed;
    return {view, last, _cutter.outputFor(view.samples, last)};
}

void HostStream::feed(const Input& input, const Engine& engine) {
    const auto feedEngine = [&engine](const AudioView& block, bool eof, bool completesBlock) {
        RunFailure::take();  // an earlier call's, which nobody asked for
        const bool hasOutput = withHostExceptions([&] { return engine(block, eof, completesBlock); });
        // The engine takes a run that failed for silence; here silence would be taken for music.
        if (const std::optional<std::string> failure = RunFailure::take())
            throw std::runtime_error("the model run failed: " + *failure);
        if (completesBlock && !hasOutput) throw std::runtime_error("the model run failed");
    };
    _cutter.add(input.samples, feedEngine);
    if (input.last) _cutter.finish(feedEngine);
}

void HostStream::reset() {
    _cutter.reset();
    _state = State::open;
}

}  // namespace tavrin
