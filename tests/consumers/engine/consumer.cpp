// A host with the engine's classes, containers handed to and fro, and a model of its own that halves everything.
#include "pipeline/chunk_processor.h"

#include <cmath>

struct Halver : IInference {
    bool run(const float* in, std::vector<float*> out, const Shape& shape) override {
        const size_t count = shape.channels * shape.frames * shape.bins;
        for (size_t i = 0; i < count; ++i) out[0][i] = 0.5f * in[i];
        return true;
    }
};

int main() {
    const size_t length = 128;
    auto song = xt::xtensor<float, 2>::from_shape({2, length});
    for (size_t i = 0; i < 2 * length; ++i) song.data()[i] = std::sin(0.1f * float(i));
    PFFFTTransformer transformer(length, false);
    BufferAggregator queue(2, length, 1);
    queue.add(transformer.backward(transformer.forward(song)));
    ChunkProcessor processor(std::make_shared<Halver>(), 2, length, length / 4, 0, 16, false);
    const xt::xarray<float> stem = processor.process(queue.flush(), true);
    if (stem.size() != song.size()) return 1;
    for (size_t i = 0; i < song.size(); ++i)  // but for the Nyquist bin, which the analysis drops
        if (!(std::abs(stem.data()[i] - 0.5f * song.data()[i]) < 1e-3f)) return 2;
}
