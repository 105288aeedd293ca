// However a stream is cut, whatever is switched when and wherever an earlier one broke off: what is promised comes, no
// more than the latency is held back, the bits are those of the same stream in one piece.
#include <fuzzer/FuzzedDataProvider.h>

#include <map>

#include "dsp/window.h"
#include "support/fake_spectral_model.h"
#include "support/message_of.h"
#include "support/signals.h"
#include "support/stream_in_pieces.h"

static void require(bool holds) { holds ? void() : std::abort(); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    constexpr size_t frame = 32;
    FuzzedDataProvider fuzz(data, size);
    const auto upTo = [&fuzz](size_t most) { return fuzz.ConsumeIntegralInRange<size_t>(0, most); };
    const size_t hop = 1 + upTo(frame / 2 - 1), frames = 3 + upTo(13), bins = 1 + upTo(frame / 2 - 1);
    const size_t context = 1 + upTo((frames - 1) / 2 - 1), step = 1 + upTo(frames - 2 * context - 1);
    const auto window = getWindow(WindowType::Blackman, int(frame));
    tavrin::StreamPlan plan{hop, frames, bins, context, step, window, 1 + upTo(2), {}, false, 1000};
    for (size_t s = 0; s < plan.modelOutputs; ++s)
        if (fuzz.ConsumeBool()) plan.stems.push_back({std::string(1, char('a' + s)), s});
    plan.rest = fuzz.ConsumeBool();
    FakeSpectralModel model(passOn(plan.modelOutputs, 4 * plan.frames * plan.bins));
    tavrin::StreamEngine engine(model, plan);

    // The selection that holds for a model call is that of the samples which complete it: select() between the same two
    // samples gives the same bits however the rest is cut.
    const size_t length = upTo(700);
    const auto song = noise(2 * length, 1);
    std::map<size_t, std::vector<bool>> selections;
    for (size_t n = upTo(4); n > 0; --n) {
        std::vector<bool>& wanted = selections[upTo(length)];
        for (wanted.clear(); wanted.size() < plan.stems.size();) wanted.push_back(fuzz.ConsumeBool());
    }
    const auto stream = [&](auto cut) {
        engine.reset();
        engine.select(std::vector<bool>(plan.stems.size(), true));
        return streamInPieces(engine, plan, song, [&](size_t from) {
            if (const auto here = selections.find(from); here != selections.end()) engine.select(here->second);
            const auto next = selections.upper_bound(from);
            return std::min(cut(from), (next == selections.end() ? length : next->first) - from);
        });
    };
    const auto whole = stream([&](size_t) { return length; });
    messageOf([&] {  // a stream that breaks off leaves nothing behind
        stream([&](size_t from) { return from == 0 ? length / 2 + 1 : throw std::runtime_error(""); });
    });
    require(stream([&](size_t) { return fuzz.remaining_bytes() > 0 ? upTo(60) : 60; }) == whole);
    return 0;
}
