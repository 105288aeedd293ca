#include "tavrin/stream_separator.h"

#include <functional>
#include <utility>

#include "api/engine.h"
#include "api/host_exceptions.h"
#include "api/host_stream.h"
#include "api/sample_layout.h"
#include "pipeline/stream_cutter.h"

namespace tavrin {

class StreamSeparator::Impl {
public:
    explicit Impl(TavrinProcConfig config)
        : _config(std::move(config)), _model(findModel(_config)), _stream(_config.interleaved) {
        reset();
    }

    // The separated samples that `samples`, and the end of the stream if this is the `last` call, make final.
    std::vector<float> process(const std::vector<float>& samples, bool last) {
        const HostStream::Input input = _stream.open(samples, last);
        std::vector<float> out(2 * input.finished);
        AudioTarget unwritten = stereoTarget(out, _config.interleaved);
        const auto place = [&unwritten](size_t n) { return takeFirst(unwritten, n); };
        const auto engine = [&](const AudioView& block, bool eof, bool /*completesBlock*/) {
            return _engine->process(block, eof, std::ref(place));
        };
        _stream.feed(input, std::ref(engine));
        requireAllTaken(unwritten);
        _stream.succeed(last);
        return out;
    }

    void reset() {
        _stream.fail();
        _engine.reset();  // first, so that there are never two
        _engine = makeEngine(_model, _config);
        _stream.reset();
    }

private:
    TavrinProcConfig _config;
    std::shared_ptr<IInference> _model;
    std::unique_ptr<ChunkProcessor> _engine;
    HostStream _stream;
};

StreamSeparator::StreamSeparator(TavrinProcConfig config)
    : _impl(withHostExceptions([&] { return std::make_unique<Impl>(std::move(config)); })) {}
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
    return withHostExceptions([&] { return StreamSeparator::Impl(config).process(samples, true); });
}

}  // namespace tavrin
