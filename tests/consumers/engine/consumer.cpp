// A chain of the host's own around the engine's classes, with a model that halves everything.
#include "dsp/window.h"
#include "pipeline/buffer_aggregator.h"
#include "pipeline/post_processor.h"
#include "pipeline/pre_processor.h"

#include <cmath>

struct Halver : IInference {
    bool run(const float* in, std::vector<float*> out, const Shape& shape) override {
        const size_t count = shape.channels * shape.frames * shape.bins;
        for (size_t i = 0; i < count; ++i) out[0][i] = 0.5f * in[i];
        return true;
    }
};

int main() {
    const size_t length = 128, hop = 32, frames = 16, samples = length + (frames - 1) * hop;
    const std::vector<float> hann = getWindow(WindowType::Hann, int(length));
    auto window = xt::xtensor<float, 1>::from_shape({length});
    for (size_t i = 0; i < length; ++i) window(i) = hann[i];
    PreProcessor analysis(2, length, hop, window, std::make_shared<Halver>(), frames, false, 1);
    PostProcessor synthesis(2, length, hop, window);
    BufferAggregator queue(2, samples, 1);
    auto song = xt::xarray<float>::from_shape({2, samples});
    for (size_t i = 0; i < 2 * samples; ++i) song.data()[i] = std::sin(0.1f * float(i));
    queue.add(song);

    // One row per channel: the frames after one another, of which the transform makes rows of its own.
    xt::xarray<float> spectra = analysis.process(queue.get(samples, 0), true);
    PFFFTTransformer transformer(length, false);
    float worst = 0;
    for (size_t f = 0; f < frames; ++f) {
        auto frame = xt::xtensor<float, 2>::from_shape({2, length});
        for (size_t i = 0; i < 2 * length; ++i)
            frame(i / length, i % length) = spectra(0, i / length, f * length + i % length);
        frame = transformer.forward(transformer.backward(frame));
        const xt::xarray<float> out = synthesis.processFrame(frame);
        // Before, not all frames that overlap here have been heard.
        for (size_t i = 0; f * hop >= length && i < hop; ++i)
            worst = std::max(worst, std::abs(out(1, i) - 0.5f * song(1, f * hop + i)));
    }
    return worst < 1e-5f ? 0 : 1;
}
