#include "pipeline/multi_stem_processor.h"

#include <algorithm>
#include <utility>

#include "dsp/window.h"
#include "pipeline/block_forming.h"
#include "support/audio_view.h"

namespace {

constexpr size_t kChannels = 2;

std::vector<float> makeWindow(size_t frame) { return getWindow(WindowType::Blackman, static_cast<int>(frame)); }

xt::xarray<float> asTensor(const std::vector<float>& row) {
    auto tensor = xt::xarray<float>::from_shape({row.size()});
    std::copy(row.begin(), row.end(), tensor.begin());
    return tensor;
}

void subtract(xt::xarray<float>& from, const xt::xarray<float>& what) {
    float* values = from.data();
    for (size_t i = 0; i < from.size(); ++i) values[i] -= what.data()[i];
}

}  // namespace

MultiStemProcessor::MultiStemProcessor(const std::shared_ptr<IInference>& inference, size_t stems, size_t frame,
                                       size_t hop, size_t frames, bool wantRest)
    : _frame(frame),
      _hop(hop),
      _frames(frames),
      _wantRest(wantRest),
      _preproc(kChannels, frame, hop, asTensor(makeWindow(frame)), inference, frames, true, stems),
      _synthesiser(stems, frame, hop, makeWindow(frame)),
      _queue(kChannels, _preproc.needData(), 1) {}

std::optional<MultiStemProcessor::Output> MultiStemProcessor::process(xt::xarray<float> input, bool eof,
                                                                      bool completesBlock,
                                                                      const std::vector<bool>& wanted) {
    _queue.add(std::move(input));
    if (!completesBlock) return std::nullopt;
    xt::xarray<float> block = eof ? _queue.flush() : takeFullBlock(_queue, _preproc.needData(), _frame, _first);
    const BlockEdges edges = BlockEdges::of(block.shape(1), _frame, _hop, _first, eof);
    block = padBlock(std::move(block), edges);
    // After the first, a block's first frame was a new frame of the previous call.
    const std::optional<IndexRange> frames = _preproc.analyse(viewOf(block).dropFirst(_first ? 0 : _hop), eof);
    if (!frames) return std::nullopt;
    _first = false;

    Output output = synthesise(*frames, wanted);
    if (_wantRest) {
        const size_t columns = frames->count() * _hop;
        output.rest = trimBlock(block, 0, 0, block.shape(1) - columns);
        for (const xt::xarray<float>& stem : output.stems)
            if (stem.dimension() == 2) subtract(output.rest, stem);
    }
    // As ChunkProcessor trims: the unfinished tail at the end of the stream lies in the padding.
    const size_t tail = eof ? _frame - _hop : 0;
    const size_t padding = edges.left + edges.right();
    output.samples = frames->count() * _hop + tail - padding;
    const auto trim = [&](xt::xarray<float>& audio) {
        if (audio.dimension() == 2) audio = trimBlock(std::move(audio), edges.left, tail, edges.right());
    };
    for (xt::xarray<float>& stem : output.stems) trim(stem);
    trim(output.rest);
    return output;
}

// Overlap-adds the given frames of every stem that is on or fading out: [2, frames · hop] each.
MultiStemProcessor::Output MultiStemProcessor::synthesise(const IndexRange& frames, const std::vector<bool>& wanted) {
    const size_t bins = _frame / 2;
    const size_t columns = frames.count() * _hop;
    Output output;
    std::vector<StemSynthesiser::Track> tracks;
    for (size_t s = 0; s < wanted.size(); ++s) {
        const bool sounds = wanted[s] || _synthesiser.isSounding(s);
        output.stems.push_back(sounds ? xt::xarray<float>::from_shape({kChannels, columns}) : xt::xarray<float>());
        tracks.push_back({wanted[s] ? _preproc.modelOutput(s).data() + frames.begin * bins : nullptr,
                          sounds ? output.stems[s].data() : nullptr});
    }
    for (size_t i = 0; i < frames.count(); ++i) {
        _synthesiser.advance(tracks, _frames * bins, columns);
        for (StemSynthesiser::Track& track : tracks) {
            if (track.planes) track.planes += bins;
            if (track.out) track.out += _hop;
        }
    }
    return output;
}
