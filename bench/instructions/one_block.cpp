// Does one steady-state block, or the bare transforms of one, inside functions that callgrind can count.
#include "bare_transforms.h"
#include "models.h"
#include "signals.h"
#include "tavrin/separator.h"

extern "C" {

__attribute__((noinline)) void countedTransforms(BareTransforms& transforms) { transforms.block(); }

__attribute__((noinline)) void countedPipeline(tavrin::Separator& stream, const float* input, float* output) {
    const float* const inputs[] = {input};
    float* const outputs[] = {output};
    stream.process(inputs, kBlockSamples, outputs, 2 * kBlockSamples);
}
}

int main() {
    BareTransforms transforms;
    countedTransforms(transforms);
    tavrin::Separator stream(idleModel(), {});
    const std::vector<float> block = noise(2 * kBlockSamples);
    std::vector<float> out(4 * kBlockSamples);
    const float* const input[] = {block.data()};
    float* const outputs[] = {out.data()};
    // Each call after these brings a model call and all but one hop of a block's output.
    for (int i = 0; i < 3; ++i) stream.process(input, kBlockSamples, outputs, 2 * kBlockSamples);
    countedPipeline(stream, block.data(), out.data());
}
