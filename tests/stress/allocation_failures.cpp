// Whichever allocation fails, it ends in std::bad_alloc, the stream is closed until reset() makes it as new, and all
// can be destroyed. That nothing leaks is for the address sanitizer to see.
#include <atomic>

#include "stress/stress.h"

extern std::atomic<size_t> allocations, failing;  // failing_new.cpp

// Lets the first, the second, … allocation of `action` fail until it gets through; returns how many did.
template <class Action>
static size_t sweep(const Action& action) {
    for (failing = 1;; ++failing) try {
            allocations = 0;
            action();
            if (allocations >= failing) std::abort();
            return failing.exchange(0) - 1;
        } catch (const std::bad_alloc&) {
        }
}

int main() {
    inferenceInstances["model"] = std::make_shared<FakeInference>();
    const auto song = noise(2 * 300000, 1), separated = tavrin::StreamSeparator({.modelTag = "model"}).process(song);
    const size_t engine = sweep([] {
        tavrin::TavrinProc proc({.modelTag = "model", .subtractFromInput = true});
        proc.process(std::vector<float>(2 * 257024), false);
        proc.process(std::vector<float>(2 * 1000), true);
    });
    const size_t separator = sweep([&] {
        tavrin::StreamSeparator stream({.modelTag = "model"});
        try {
            stream.process(song), stream.finish();
        } catch (const std::bad_alloc&) {
            try {
                stream.process({}), std::abort();
            } catch (const std::logic_error&) {
                stream.reset();
            }
            if (stream.process(song) != separated) std::abort();
            throw;
        }
    });
    std::printf("allocation_failures: %zu of an engine's, %zu of a separator's\n", engine, separator);
}
