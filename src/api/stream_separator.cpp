#include "tavrin/stream_separator.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "api/engine.h"
#include "api/sample_layout.h"
#include "inference/model_contract.h"
#include "inference/run_failure.h"
#include "pipeline/stream_cutter.h"

namespace tavrin {

class StreamSeparator::Impl {
public:
    explicit Impl(TavrinProcConfig config) : _config(std::move(config)), _model(findModel(_config)) {
        requireSingleOutputContract(*_model);
        reset();
    }

    // The separated samples that `samples`, and the end of the stream if it is `last`, make final.
    std::vector<float> process(const std::vector<float>& samples, bool last) {
        if (_state != State::open)
            throw std::logic_error(_state == State::finished ? "the stream has ended; reset() starts a new one"
                                                             : "the stream has failed; reset() starts a new one");
        const StereoSource source = stereoSource(samples, _config.interleaved);
        std::array<std::vector<float>, 2> finished;
        const auto feed = [&](xt::xarray<float> block, bool eof, bool completesBlock) {
            const xt::xarray<float> result = runEngine(std::move(block), eof, completesBlock);
            if (result.dimension() != 2) return;
            const size_t columns = result.shape(1);
            for (size_t c = 0; c < finished.size(); ++c)
                finished[c].insert(finished[c].end(), result.data() + c * columns, result.data() + (c + 1) * columns);
        };

        _state = State::failed;  // until all has gone well
        _cutter.add(source.left, source.right, source.step, source.samples, feed);
        if (last) _cutter.finish(feed);
        _state = last ? State::finished : State::open;

        std::vector<float> out(2 * finished[0].size());
        writeStereo(finished[0].data(), finished[1].data(), finished[0].size(), _config.interleaved, out.data());
        return out;
    }

    void reset() {
        _engine = makeEngine(_model, _config);
        _cutter.reset();
        _state = State::open;
    }

private:
    enum class State { open, finished, failed };

    xt::xarray<float> runEngine(xt::xarray<float> block, bool eof, bool completesBlock) {
        RunFailure::take();  // an earlier call's, which nobody asked for
        xt::xarray<float> result = _engine->process(std::move(block), eof);
        // The engine takes a run that failed for silence; here silence would be taken for music.
        if (const std::optional<std::string> failure = RunFailure::take())
            throw std::runtime_error("the model run failed: " + *failure);
        if (completesBlock && result.dimension() != 2) throw std::runtime_error("the model run failed");
        return result;
    }

    TavrinProcConfig _config;
    std::shared_ptr<IInference> _model;
    std::unique_ptr<ChunkProcessor> _engine;
    StreamCutter _cutter{Geometry::kFrameLength, Geometry::kHop, Geometry::kFrames};
    State _state = State::open;
};

StreamSeparator::StreamSeparator(TavrinProcConfig config) : _impl(std::make_unique<Impl>(std::move(config))) {}
StreamSeparator::~StreamSeparator() = default;
StreamSeparator::StreamSeparator(StreamSeparator&&) noexcept = default;
StreamSeparator& StreamSeparator::operator=(StreamSeparator&&) noexcept = default;

std::vector<float> StreamSeparator::process(const std::vector<float>& samples) {
    return _impl->process(samples, false);
}

std::vector<float> StreamSeparator::finish() { return _impl->process({}, true); }

void StreamSeparator::reset() { _impl->reset(); }

std::size_t StreamSeparator::latency() noexcept {
    return StreamCutter::latency(Geometry::kFrameLength, Geometry::kHop, Geometry::kFrames);
}

std::vector<float> separate(const TavrinProcConfig& config, const std::vector<float>& samples) {
    return StreamSeparator::Impl(config).process(samples, true);
}

}  // namespace tavrin
