// Eight streams on eight threads that share a model give the bits of the same streams one after another.
//     eight_threads            on a fake, for the thread sanitizer, which cannot see into the runtime
//     eight_threads runtime    on real models, every other stream on one of six stems
#include <thread>

#include "stress/stress.h"
#include "support/fake_spectral_model.h"

static std::vector<std::vector<float>> separated(unsigned i, const tavrin::Model& model) {
    tavrin::SeparatorConfig config{{}, i > 3};
    config.latency = i % 3 == 0 ? 0.0 : 0.3 * i;
    if (model.info().stems.size() > 1) config.stems = {model.info().stems[i % model.info().stems.size()]};
    return separate(model, noise(2 * 300001, i), config);
}

int main(int argc, char**) {
    const bool isReal = argc > 1;
    const tavrin::Model one =
        isReal ? load(modelBytes("../../models/centre.onnx")) : fakeModel(passOn(1, 4 * 64 * 512), 1, 1024, 256, 64);
    const tavrin::Model many =
        isReal ? load(modelBytes("six_stems.onnx")) : fakeModel(passOn(6, 4 * 64 * 512), 6, 1024, 256, 64);
    std::vector<std::vector<std::vector<float>>> together(8);
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 8; ++i)
        threads.emplace_back([&, i] { together[i] = separated(i, i % 2 == 0 ? one : many); });
    threads.clear();  // joins them
    int equal = 0;
    for (unsigned i = 0; i < 8; ++i) equal += together[i] == separated(i, i % 2 == 0 ? one : many);
    std::printf("eight_threads%s: %d of 8 streams bit-equal\n", isReal ? " (runtime)" : "", equal);
    return equal == 8 ? 0 : 1;
}
