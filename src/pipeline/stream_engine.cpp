#include "pipeline/stream_engine.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "dsp/row_loops.h"

namespace tavrin {

namespace {

constexpr size_t kChannels = 2;

// A window that moves by less than half of itself slides through some slack, so that it is not copied at every call.
size_t slackFor(const StreamPlan& plan) { return plan.step < plan.frames / 2 ? plan.frames : 0; }

// Frames that are analysed, and synthesised, one row after the other when there are as many: what belongs to the row
// stays in the cache meanwhile.
constexpr size_t kFramesAtOnce = 8;

// Mirroring a start reaches over two frames, mirroring an end over as many and two hops. With a rest, the samples of
// the frames that a model call makes final are needed once more.
size_t ringFor(const StreamPlan& plan) {
    const size_t mirrored = 2 * (plan.frameLength() + plan.hop) + 2;
    const size_t held = plan.rest ? plan.latency() + 1 : plan.frameLength();
    return std::max(mirrored, held + kFramesAtOnce * plan.hop);
}

}  // namespace

StreamEngine::StreamEngine(ISpectralModel& model, StreamPlan plan)
    : _model(model),
      _plan(std::move(plan)),
      _ring(ringFor(_plan)),
      _window(kChannels, _plan.frames, _plan.bins, _plan.window, slackFor(_plan)),
      _synthesis(_plan.stems.size() * kChannels, _plan.hop, _plan.window, _plan.bins),
      _spectra(_plan.stems.size()),
      _modelOutputs(_plan.modelOutputs),
      _hops(_plan.outputs() * kChannels * kFramesAtOnce * _plan.hop),
      _wanted(_plan.stems.size(), true),
      _fadesFor(_plan.stems.size()) {
    for (std::vector<float>& spectrum : _spectra) spectrum.resize(2 * kChannels * _plan.frames * _plan.bins);
    reset();
}

void StreamEngine::reset() {
    _ring.restart(_plan.frameLength());
    _window.clear();
    _synthesis.clear();
    std::fill(_fadesFor.begin(), _fadesFor.end(), 0);
    _received = _emitted = _frames = 0;
    _framesUntilRun = _plan.step + _plan.context;
    _isStarted = false;
}

// A frame is complete when its last sample is there, the first ones when they can be mirrored; then runs of the model
// follow one another by whole steps, and each leaves all but the context and a frame finished.
size_t StreamEngine::finishedAt(size_t received) const {
    if (received <= _plan.frameLength()) return 0;
    const size_t frames = received / _plan.hop + 1;
    const size_t used = (frames - std::min(frames, _plan.context)) / _plan.step * _plan.step;
    return used * _plan.hop - std::min(used * _plan.hop, _plan.frameLength());
}

void StreamEngine::process(const Input& input, size_t n, const Output* outputs) {
    _target = 0;
    Input rest = input;
    while (n > 0) {
        // Some frames ahead, and before the stream has started as far as its start can be mirrored.
        const size_t wanted = _isStarted ? _frames * _plan.hop + _plan.frameLength() + (kFramesAtOnce - 1) * _plan.hop
                                         : 2 * _plan.frameLength() + 1;
        const size_t count = std::min(n, wanted - _ring.end());
        _ring.append(rest.left, rest.right, rest.step, count);
        rest.left += count * rest.step;
        rest.right += count * rest.step;
        n -= count;
        _received += count;
        takeFrames(outputs);
    }
}

void StreamEngine::finish(const Output* outputs) {
    _target = 0;
    if (_received == 0) return;
    mirrorEnd(outputs);
    while (_emitted < _received) {
        _window.silence(_plan.frames - _framesUntilRun);
        addFrames(1, outputs);
    }
}

// Analyses the frames that are complete; none before the stream can be mirrored at its start.
void StreamEngine::takeFrames(const Output* outputs) {
    if (!_isStarted) {
        if (_ring.end() <= 2 * _plan.frameLength()) return;
        mirrorStart();
        _isStarted = true;
    }
    while (_ring.end() >= _frames * _plan.hop + _plan.frameLength()) {
        const size_t complete = (_ring.end() - _plan.frameLength()) / _plan.hop + 1 - _frames;
        const size_t taken = std::min(complete, _framesUntilRun);
        for (size_t c = 0; c < kChannels; ++c)
            for (size_t i = 0; i < taken; ++i)
                _window.analyse(c, _plan.frames - _framesUntilRun + i,
                                _ring.span(c, (_frames + i) * _plan.hop, _plan.frameLength()));
        addFrames(taken, outputs);
    }
}

void StreamEngine::mirrorStart() {
    const size_t first = _plan.frameLength();
    for (size_t c = 0; c < kChannels; ++c)
        for (size_t i = 1; i <= first; ++i) _ring.at(c, first - i) = _ring.at(c, first + i);
}

// Continues the stream by a frame, and by what it lacks to a whole number of hops.
void StreamEngine::mirrorEnd(const Output* outputs) {
    const size_t last = _ring.end() - 1;
    const size_t wanted = _plan.frameLength() + (_plan.hop - _received % _plan.hop) % _plan.hop;
    for (size_t i = 1; i <= wanted; ++i) {
        if (i < _received)
            _ring.appendCopyOf(last - i);
        else
            _ring.appendSilence();
        takeFrames(outputs);
    }
}

// Counts frames that the window has got, and runs the model when they complete a step.
void StreamEngine::addFrames(size_t n, const Output* outputs) {
    _frames += n;
    _framesUntilRun -= n;
    if (_framesUntilRun > 0) return;
    runModel();
    emit(outputs);
    _window.advance(_plan.step);
    _framesUntilRun = _plan.step;
}

void StreamEngine::runModel() {
    std::fill(_modelOutputs.begin(), _modelOutputs.end(), nullptr);
    bool isNeeded = false;
    for (size_t s = 0; s < _plan.stems.size(); ++s) {
        if (_wanted[s]) _modelOutputs[_plan.stems[s].modelOutput] = _spectra[s].data();
        isNeeded = isNeeded || _wanted[s];
    }
    if (isNeeded) _model.run(_window.data(), _modelOutputs.data());
}

// Overlap-adds the frames that the newest model call has made final, and writes the samples that they finish.
void StreamEngine::emit(const Output* outputs) {
    const size_t firstSlot = _plan.frames - _plan.context - _plan.step;
    const size_t firstFrame = _frames - _plan.context - _plan.step;
    for (size_t done = 0; done < _plan.step && _emitted < _received;) {
        const size_t n = _synthesis.repeats() ? std::min(kFramesAtOnce, _plan.step - done) : 1;
        synthesise(firstSlot + done, n);
        for (size_t i = 0; i < n && _emitted < _received; ++i) {
            // The frames of the mirrored start finish nothing of the host's, or not all of a hop.
            const size_t position = (firstFrame + done + i) * _plan.hop;
            const size_t mirrored = _plan.frameLength() - std::min(position, _plan.frameLength());
            if (mirrored >= _plan.hop) continue;
            for (size_t s = 0; s < _plan.stems.size(); ++s) requireFinite(s, i);
            if (_plan.rest) subtractStems(position, i);
            write(outputs, i, mirrored, std::min(_plan.hop - mirrored, _received - _emitted));
        }
        done += n;
    }
}

// Finishes a hop of every stem for each of n frames. A stem that is switched off is followed by frames of zeros in
// which it fades out.
void StreamEngine::synthesise(size_t slot, size_t n) {
    _synthesis.advance();
    const size_t plane = _plan.frames * _plan.bins;
    for (size_t s = 0; s < _plan.stems.size(); ++s) {
        for (size_t c = 0; c < kChannels; ++c) {
            const size_t row = s * kChannels + c;
            for (size_t i = 0; i < n; ++i) {
                float* out = hopOf(s, c, i);
                float* real = _spectra[s].data() + 2 * c * plane + (slot + i) * _plan.bins;
                real[plane] = 0.0f;  // DC has no imaginary part; what a model makes of it would sound as a Nyquist tone
                if (_wanted[s])
                    _synthesis.addPlanes(row, real, real + plane, out);
                else if (i < _fadesFor[s])
                    _synthesis.addNothing(row, out);
                else
                    std::fill_n(out, _plan.hop, 0.0f);
            }
        }
        _fadesFor[s] = _wanted[s] ? _synthesis.fadeFrames() : _fadesFor[s] - std::min(n, _fadesFor[s]);
    }
}

float* StreamEngine::hopOf(size_t output, size_t channel, size_t frame) {
    return _hops.data() + ((output * kChannels + channel) * kFramesAtOnce + frame) * _plan.hop;
}

void StreamEngine::requireFinite(size_t stem, size_t frame) {
    bool isFinite = true;
    for (size_t c = 0; c < kChannels; ++c) isFinite = isFinite && areFinite(hopOf(stem, c, frame), _plan.hop);
    if (isFinite) return;
    char time[48];
    std::snprintf(time, sizeof time, "%zu.%03zu", _emitted / _plan.sampleRate,
                  _emitted % _plan.sampleRate * 1000 / _plan.sampleRate);
    throw std::runtime_error("the model gave values that are not finite for '" + _plan.stems[stem].name + "' at " +
                             time + " s; a division by zero in digital silence is the usual reason");
}

// The hop of the input from `position` on minus the same hop of all stems.
void StreamEngine::subtractStems(size_t position, size_t frame) {
    const size_t rest = _plan.stems.size();
    for (size_t c = 0; c < kChannels; ++c) {
        float* out = hopOf(rest, c, frame);
        const RingSpan input = _ring.span(c, position, _plan.hop);
        std::copy_n(input.tail, input.tailLength, std::copy_n(input.head, input.headLength, out));
        for (size_t s = 0; s < rest; ++s) subtract(out, hopOf(s, c, frame), _plan.hop);
    }
}

// Hands out `count` samples of a finished hop, from `skipped` on.
void StreamEngine::write(const Output* outputs, size_t frame, size_t skipped, size_t count) {
    for (size_t o = 0; o < _plan.outputs(); ++o) {
        const Output& to = outputs[o];
        if (!to.left) continue;
        const float* left = hopOf(o, 0, frame) + skipped;
        const float* right = hopOf(o, 1, frame) + skipped;
        float* toLeft = to.left + _target * to.step;
        float* toRight = to.right + _target * to.step;
        if (to.step == 1) {
            std::copy_n(left, count, toLeft);
            std::copy_n(right, count, toRight);
        } else {
            interleave(left, right, count, toLeft);
        }
    }
    _target += count;
    _emitted += count;
}

}  // namespace tavrin
