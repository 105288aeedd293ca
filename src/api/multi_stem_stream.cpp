#include "api/multi_stem_stream.h"

#include <array>
#include <functional>
#include <utility>

#include "api/engine.h"
#include "api/sample_layout.h"

namespace tavrin {

MultiStemStream::MultiStemStream(std::shared_ptr<IInference> model, bool wantRest, bool interleaved)
    : _model(std::move(model)), _wantRest(wantRest), _interleaved(interleaved), _stream(interleaved) {
    reset();
}

SeparatedStems MultiStemStream::process(const std::vector<float>& samples, bool last, const std::vector<bool>& wanted) {
    const HostStream::Input input = _stream.open(samples, last);
    SeparatedStems result;
    result.samples = input.finished;
    std::array<AudioTarget, kStemCount + 1> unwritten;
    const auto allocate = [&](size_t track, std::vector<float>& out) {
        out.resize(2 * input.finished);  // a stem that has faded out leaves silence to the end
        unwritten[track] = stereoTarget(out, _interleaved);
    };
    for (size_t s = 0; s < kStemCount; ++s)
        if (_engine->sounds(s, wanted)) allocate(s, result.stems[s]);
    if (_wantRest) allocate(kStemCount, result.rest);

    const auto place = [&unwritten](size_t track, size_t n) { return takeFirst(unwritten[track], n); };
    const auto engine = [&](const AudioView& block, bool eof, bool completesBlock) {
        return _engine->process(block, eof, completesBlock, wanted, std::ref(place));
    };
    _stream.feed(input, std::ref(engine));
    if (_wantRest) requireAllTaken(unwritten[kStemCount]);
    for (size_t s = 0; s < kStemCount; ++s)
        if (wanted[s]) requireAllTaken(unwritten[s]);
    _stream.succeed(last);
    return result;
}

void MultiStemStream::reset() {
    _stream.fail();
    _engine.reset();  // first, so that there are never two
    _engine = std::make_unique<MultiStemProcessor>(_model, kStemCount, Geometry::kFrameLength, Geometry::kHop,
                                                   Geometry::kFrames, _wantRest);
    _stream.reset();
}

}  // namespace tavrin
