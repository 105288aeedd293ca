// Eight streams on eight threads that share a model give the bits of the same streams one after another.
// On fakes, for the thread sanitizer, which cannot see into the runtime; the Python package's tests share a real model.
#include <thread>

#include "stress/stress.h"
#include "support/fake_spectral_model.h"

static std::vector<std::vector<float>> separated(unsigned i, const tavrin::Model& model) {
    const double latency = i % 3 == 0 ? 0.0 : 0.3 * i;
    return separate(model, noise(2 * 300001, i), {{model.info().stems[i % 6]}, i > 3, tavrin::Layout::planar, latency});
}

int main() {
    const tavrin::Model model = fakeModel(passOn(6, 4 * 64 * 512), 6, 1024, 256, 64);
    std::vector<std::vector<float>> together[8];
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 8; ++i) threads.emplace_back([&, i] { together[i] = separated(i, model); });
    threads.clear();  // joins them
    int equal = 0;
    for (unsigned i = 0; i < 8; ++i) equal += together[i] == separated(i, model);
    std::printf("eight_threads: %d of 8 streams bit-equal\n", equal);
    return equal == 8 ? 0 : 1;
}
