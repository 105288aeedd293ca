// Whichever allocation fails, it ends in std::bad_alloc, what was there before is still as it was or closed until
// reset() makes it as new, and all can be destroyed. That nothing leaks is for the address sanitizer to see.
#include <atomic>
#include <cstdio>

#include "api/model_registry.h"
#include "pipeline/chunk_processor.h"
#include "support/fake_inference.h"
#include "support/fake_spectral_model.h"
#include "support/message_of.h"
#include "support/signals.h"
#include "tavrin/separator.h"

extern std::atomic<size_t> allocations, failing;  // failing_new.cpp

constexpr size_t kFrame = 64, kHop = 16;

static void require(bool holds, const char* claim) {
    if (holds) return;
    std::fprintf(stderr, "allocation_failures: at allocation %zu: not so: %s\n", failing.load(), claim);
    std::exit(1);
}

// Lets the first, the second, … allocation of `action` fail until it gets through; returns how many did.
template <class Action>
static size_t sweep(const Action& action) {
    for (failing = 1;; ++failing) try {
            allocations = 0;
            action();
            require(allocations < failing, "a failed allocation is reported");
            return failing.exchange(0) - 1;
        } catch (const std::bad_alloc&) {
        }
}

// Does `first`, then `second` with what is left; whether memory ran out in the first one.
template <class First, class Second>
static void expectAfter(const First& first, const Second& second) {
    const bool failed = !messageOf<std::bad_alloc>(first).empty();
    second(failed);
    if (failed) throw std::bad_alloc();
}

static size_t sweepSeparator() {
    const tavrin::Model model = fakeModel(passOn(2, 4 * 9 * 32), 2, kFrame, kHop, 9);
    const auto song = noise(2 * 1000, 1);
    const tavrin::SeparatorConfig config{{}, true};
    const auto whole = [&](tavrin::Separator& stream) {  // braces: one after the other
        return std::vector{stream.process(song), stream.finish()};
    };
    tavrin::Separator another(model, config);
    const auto separated = whole(another);
    return sweep([&] {
        tavrin::Separator stream(model, config);
        expectAfter([&] { whole(stream); },
                    [&](bool) {
                        const std::string reason = messageOf<std::logic_error>([&] { stream.process({}); });
                        require(!reason.empty(), "a stream that memory was missing for is closed");
                        stream.reset();
                        require(whole(stream) == separated, "reset() starts a stream of the same bits");
                        stream.reset();
                    });
        stream.select({"a"});
        const auto stem = whole(stream)[1][1];
        require(stem == std::vector<float>(stem.size()), "a stem that is off is silent");
    });
}

static size_t sweepStages() {
    const size_t first = sweep([] {
        PreProcessor pre(2, kFrame, kHop, xt::xarray<float>({kFrame}, 1.0f), std::make_shared<FakeInference>(), 8, true,
                         1);
        const xt::xarray<float> block({2, kFrame + kHop}, 1.0f);  // two frames
        const auto frames = [&] { return pre.process(block, false).shape(2) / kFrame; };
        expectAfter(frames,
                    [&](bool failed) { require(frames() == (failed ? 1 : 2), "a failed call withholds no frame"); });
    });
    const size_t second = sweep([] {
        ChunkProcessor processor(std::make_shared<FakeInference>(), 2, kFrame, kHop, 0, 16, false);
        const auto hops = [&] {
            const xt::xarray<float> block({2, processor.maxInputSize()}, 1.0f);
            return processor.process(block, false).shape(1) / kHop;
        };
        // The first output of a stream lacks four hops of padding, or none when the padding was lost before; a
        // later one lacks the hop that the calls share.
        expectAfter(hops, [&](bool failed) {
            const size_t next = hops();
            require(failed ? next == 7 || next == 11 || next == 10 : next == 9,
                    "the next output is the stream's first one still");
        });
    });
    return first + second;
}

int main() {
    inferenceInstances["model"] = std::make_shared<FakeInference>();
    const size_t facade = sweep([] {
        tavrin::TavrinProc proc({.modelTag = "model", .subtractFromInput = true});
        proc.process(std::vector<float>(2 * 1000), true);
    });
    std::printf("allocation_failures: %zu of a separator's, %zu of the stages', %zu of the facade's\n",
                sweepSeparator(), sweepStages(), facade);
}
