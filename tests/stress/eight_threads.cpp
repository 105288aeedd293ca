// Eight streams on eight threads that share a model give the bits of the same streams one after another.
//     eight_threads            on a fake, for the thread sanitizer, which cannot see into the runtime
//     eight_threads runtime    on real models, every other stream on a multi-stem one
#include <thread>

#include "stress/stress.h"

struct Stateless : IInference {
    bool run(const float* in, std::vector<float*> out, const Shape& shape) override {
        return FakeInference::passThrough(in, out, shape);
    }
};

static std::vector<float> separated(unsigned i, const tavrin::MultiStemModel* stems) {
    const auto song = noise(2 * 600001, i);
    if (!stems || i % 2 == 0) return tavrin::separate({.modelTag = "shared", .subtractFromInput = i > 3}, song);
    tavrin::MultiStemSeparator separator(*stems, {.stems = {tavrin::Stem(i % 6)}, .rest = true});
    auto out = separator.process(song)[tavrin::Stem(i % 6)], rest = separator.finish().rest;
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

int main(int argc, char**) {
    const auto six = modelBytes("six_stems.onnx"), centre = modelBytes("../../models/centre.onnx");
    const auto stems = argc > 1 ? std::make_unique<tavrin::MultiStemModel>(dataOf(six)) : nullptr;
    inferenceInstances["shared"] = std::make_shared<Stateless>();
    if (stems && !tavrin::initializeModel("shared", dataOf(centre))) return 1;
    std::vector<std::vector<float>> together(8);
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 8; ++i) threads.emplace_back([&, i] { together[i] = separated(i, stems.get()); });
    threads.clear();  // joins them
    int equal = 0;
    for (unsigned i = 0; i < 8; ++i) equal += together[i] == separated(i, stems.get());
    std::printf("eight_threads%s: %d of 8 streams bit-equal\n", stems ? " (runtime)" : "", equal);
    return equal == 8 ? 0 : 1;
}
