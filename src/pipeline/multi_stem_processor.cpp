#include "pipeline/multi_stem_processor.h"

#include <algorithm>
#include <optional>

#include "dsp/window.h"

namespace {

constexpr size_t kChannels = 2;

std::vector<float> makeWindow(size_t frame) { return getWindow(WindowType::Blackman, static_cast<int>(frame)); }

xt::xarray<float> asTensor(const std::vector<float>& row) {
    auto tensor = xt::xarray<float>::from_shape({row.size()});
    std::copy(row.begin(), row.end(), tensor.begin());
    return tensor;
}

}  // namespace

MultiStemProcessor::MultiStemProcessor(const std::shared_ptr<IInference>& inference, size_t stems, size_t frame,
                                       size_t hop, size_t frames, bool wantRest)
    : _frame(frame),
      _hop(hop),
      _frames(frames),
      _stems(stems),
      _wantRest(wantRest),
      _preproc(kChannels, frame, hop, asTensor(makeWindow(frame)), inference, frames, true, stems),
      _synthesiser(stems, frame, hop, makeWindow(frame)),
      _queue(kChannels, _preproc.needData(), 1),
      _hops((stems + 1) * kChannels * hop) {
    _tracks.reserve(stems);
    _outputs.reserve(stems + 1);
}

bool MultiStemProcessor::process(const AudioView& input, bool eof, bool completesBlock, const std::vector<bool>& wanted,
                                 const Output& output) {
    _queue.append(input);
    if (!completesBlock) return false;
    const size_t needed = _preproc.needData() - (_first ? _frame : 0);
    const std::optional<SplitAudio> queued =
        eof ? _queue.takeAll() : _queue.take(std::min(needed, _queue.length()), _frame);
    if (!queued) return false;
    const BlockEdges edges = BlockEdges::of(queued->samples(), _frame, _hop, _first, eof);
    const PaddedBlock padded(*queued, edges);
    // After the first, a block's first frame was a new frame of the previous call.
    const std::optional<IndexRange> frames = _preproc.analyse(padded.audio().dropFirst(_first ? 0 : _hop), eof, wanted);
    if (!frames) return false;
    _first = false;

    // As ChunkProcessor trims: the unfinished tail at the end of the stream lies in the padding.
    const size_t tail = eof ? _frame - _hop : 0;
    const size_t samples = BlockOutput::trimmed(frames->count() * _hop, edges, tail);
    _tracks.clear();
    _outputs.clear();
    for (size_t s = 0; s < _stems; ++s) {
        const bool isOn = sounds(s, wanted);
        _tracks.push_back({nullptr, isOn ? _hops.data() + s * kChannels * _hop : nullptr});
        _outputs.emplace_back(isOn ? output(s, samples) : AudioTarget{}, edges.left);
    }
    _outputs.emplace_back(_wantRest ? output(_stems, samples) : AudioTarget{}, edges.left);
    synthesise(*frames, wanted, padded.audio());
    for (BlockOutput& track : _outputs) track.finish();
    _outputs.clear();
    return true;
}

// Overlap-adds the given frames of every stem that is on or fading out.
void MultiStemProcessor::synthesise(const IndexRange& frames, const std::vector<bool>& wanted,
                                    const SplitAudio& block) {
    const size_t planeStride = _frames * (_frame / 2);
    const auto write = [&](size_t track, const float* rows) { _outputs[track].write(rows, rows + _hop, _hop); };
    for (size_t i = 0; i < frames.count(); ++i) {
        const size_t frame = frames.begin + i;
        for (size_t s = 0; s < _stems; ++s)
            if (wanted[s]) _tracks[s].planes = _preproc.modelOutput(s).frame(frame);
        _synthesiser.advance(_tracks, planeStride);
        for (size_t s = 0; s < _stems; ++s) {
            if (_tracks[s].out) write(s, _tracks[s].out);
        }
        if (_wantRest) write(_stems, restOf(block, i * _hop));
    }
}

// A hop of the block's samples minus the same hop of all stems that sound, [2, hop].
const float* MultiStemProcessor::restOf(const SplitAudio& block, size_t first) {
    float* rest = _hops.data() + _stems * kChannels * _hop;
    for (size_t c = 0; c < kChannels; ++c) block.copy(c, first, _hop, rest + c * _hop);
    for (const StemSynthesiser::Track& track : _tracks)
        for (size_t i = 0; track.out && i < kChannels * _hop; ++i) rest[i] -= track.out[i];
    return rest;
}
