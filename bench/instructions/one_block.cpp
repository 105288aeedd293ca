// Does one steady-state block, or the bare transforms of one, inside functions that callgrind can count.
#include <cstdio>
#include <cstring>

#include "bare_transforms.h"
#include "models.h"
#include "signals.h"
#include "tavrin/stream_separator.h"

extern "C" {

__attribute__((noinline)) void countedTransforms(BareTransforms& transforms) { transforms.block(); }

__attribute__((noinline)) void countedPipeline(tavrin::StreamSeparator& stream, const std::vector<float>& block) {
    stream.process(block);
}
}

int main() {
    BareTransforms transforms;
    countedTransforms(transforms);
    tavrin::StreamSeparator stream(idleConfig());
    stream.process(std::vector<float>(2 * kFirstBlockSamples));
    const std::vector<float> block = noise(2 * kBlockSamples);
    stream.process(block);  // the last one that finds output of the model's first run
    countedPipeline(stream, block);
}
