// However a stream is cut, whatever is switched when and whichever model calls fail: what is promised comes, no more
// than the latency is held back, the bits are those of the same stream in one piece, stems and rest make the input.
#include <fuzzer/FuzzedDataProvider.h>

#include <map>

#include "dsp/window.h"
#include "pipeline/stream_engine.h"
#include "support/fake_spectral_model.h"
#include "support/signals.h"

using namespace tavrin;

static void require(bool holds) { holds ? void() : std::abort(); }

namespace {

constexpr size_t kFrame = 32;

/// A stream and what is to happen to it.
struct Run {
    StreamEngine& engine;
    const StreamPlan& plan;
    const std::vector<float>& song;  // interleaved
    std::vector<std::vector<float>> outputs;

    // Sends the samples up to `end` through, and finishes the stream after the last ones.
    void feed(size_t from, size_t n, bool isPlanar, bool last) {
        const size_t finished = last ? engine.pending() : engine.outputFor(n);
        std::vector<float> planar[2];
        for (size_t i = 0; i < 2 * n; ++i) planar[i % 2].push_back(song[2 * from + i]);
        const StreamEngine::Input input = isPlanar ? StreamEngine::Input{planar[0].data(), planar[1].data(), 1}
                                                   : StreamEngine::Input{&song[2 * from], &song[2 * from] + 1, 2};
        std::vector<std::vector<float>> room(plan.outputs(), std::vector<float>(2 * finished + 2, 9.0f));
        std::vector<StreamEngine::Output> targets;
        for (std::vector<float>& output : room)
            targets.push_back(isPlanar ? StreamEngine::Output{output.data(), output.data() + finished, 1}
                                       : StreamEngine::Output{output.data(), output.data() + 1, 2});
        last ? engine.finish(targets.data()) : engine.process(input, n, targets.data());
        require(last || engine.pending() <= plan.latency());
        for (size_t o = 0; o < room.size(); ++o) {
            require(room[o][2 * finished] == 9.0f && room[o][2 * finished + 1] == 9.0f);
            for (size_t i = 0; i < 2 * finished; ++i)
                outputs[o].push_back(room[o][isPlanar ? i / 2 + i % 2 * finished : i]);
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    FuzzedDataProvider fuzz(data, size);
    const auto from1 = [&fuzz](size_t most) { return fuzz.ConsumeIntegralInRange<size_t>(1, most); };
    StreamPlan plan{};
    plan.hop = from1(kFrame / 2);
    plan.frames = 2 + from1(14);
    plan.bins = from1(kFrame / 2);
    plan.context = from1((plan.frames - 1) / 2);
    plan.step = from1(plan.frames - 2 * plan.context);
    plan.window = getWindow(WindowType::Blackman, int(kFrame));
    plan.modelOutputs = from1(3);
    for (size_t s = 0; s < plan.modelOutputs; ++s)
        if (fuzz.ConsumeBool()) plan.stems.push_back({std::string(1, char('a' + s)), s});
    plan.rest = fuzz.ConsumeBool();
    plan.sampleRate = 1000;
    bool fails = false;
    const auto pass = passOn(plan.modelOutputs, 4 * plan.frames * plan.bins);
    FakeSpectralModel model([&](const float* in, float* const* out) {
        if (fails) throw std::runtime_error("");
        pass(in, out);
    });
    StreamEngine engine(model, plan);

    // The selection that holds for a model call is that of the samples which complete it: select() between the same two
    // samples gives the same bits however the rest is cut.
    const size_t length = fuzz.ConsumeIntegralInRange<size_t>(0, 700);
    auto song = noise(2 * length, 1);
    song.resize(2 * length + 2);
    std::map<size_t, std::vector<bool>> selections;
    for (size_t n = fuzz.ConsumeIntegralInRange<size_t>(0, 4); n > 0; --n) {
        std::vector<bool>& wanted = selections[fuzz.ConsumeIntegralInRange<size_t>(0, length)];
        for (wanted.clear(); wanted.size() < plan.stems.size();) wanted.push_back(fuzz.ConsumeBool());
    }
    const std::vector<bool> all(plan.stems.size(), true);
    const auto stream = [&](auto&& cut) {
        engine.select(all);
        Run run{engine, plan, song, std::vector<std::vector<float>>(plan.outputs())};
        for (size_t from = 0; from < length;) {
            if (const auto here = selections.find(from); here != selections.end()) engine.select(here->second);
            const auto next = selections.upper_bound(from);
            const size_t most = (next == selections.end() ? length : next->first) - from;
            const size_t n = std::min(most, size_t{cut()});
            run.feed(from, n, n % 2 == 1, false);
            from += n;
        }
        if (const auto end = selections.find(length); end != selections.end()) engine.select(end->second);
        run.feed(0, 0, false, true);
        engine.reset();
        return run.outputs;
    };
    const auto whole = stream([&] { return length; });
    for (const auto& output : whole) require(output.size() == 2 * length);
    for (size_t i = 0; plan.rest && i < 2 * length; ++i) {
        float sum = 0.0f;
        for (const auto& output : whole) sum += output[i];
        require(std::abs(sum - song[i]) < 2e-5f);
    }
    if (fuzz.ConsumeBool()) {  // a stream that breaks off leaves nothing behind
        fails = fuzz.ConsumeBool();
        try {
            Run{engine, plan, song, std::vector<std::vector<float>>(plan.outputs())}.feed(0, length / 2, false, false);
        } catch (const std::runtime_error&) {
        }
        fails = false;
        engine.reset();
    }
    require(stream([&] { return fuzz.remaining_bytes() > 0 ? fuzz.ConsumeIntegralInRange<size_t>(0, 60) : 60; }) ==
            whole);
    return 0;
}
