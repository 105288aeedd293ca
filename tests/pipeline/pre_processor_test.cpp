#include "pipeline/pre_processor.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "inference/run_failure.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"

namespace {

constexpr size_t kFrame = 64, kHop = 16, kFrames = 8;

// A ramp from sample `from` on: with a window of ones, the DC value of the frame that starts at t is 64·t + 2016.
xt::xarray<float> ramp(size_t samples, size_t from) {
    auto block = xt::xarray<float>::from_shape({2, samples});
    for (size_t i = 0; i < 2 * samples; ++i) block.data()[i] = float(from + i % samples);
    return block;
}

// Writes into bins 0, 1, 2 of every frame the hop it starts at, and those of the frames beside it (-1: none there).
bool markFrames(const float* input, const std::vector<float*>& outputs, const Shape& shape) {
    const auto hopOf = [&](size_t frame) {
        const float dc = frame < shape.frames ? input[frame * shape.bins] : 0.0f;
        return dc == 0.0f ? -1.0f : (dc - 2016.0f) / 64.0f / float(kHop);
    };
    for (size_t f = 0; f < shape.frames; ++f)
        for (const size_t bin : {0U, 1U, 2U}) outputs[0][f * shape.bins + bin] = hopOf(bin == 1 ? f - 1 : f + bin / 2);
    return true;
}

PreProcessor makePreProcessor(FakeInference::Model model = markFrames, bool trimEdges = true, size_t outputs = 1) {
    return {2,
            kFrame,
            kHop,
            xt::xarray<float>(std::vector<size_t>{kFrame}, 1.0f),
            std::make_shared<FakeInference>(std::move(model)),
            kFrames,
            trimEdges,
            outputs};
}

using Marks = std::vector<float>;

// The marks in the given bin of every returned frame.
Marks marks(const xt::xarray<float>& spectra, size_t bin) {
    Marks found;
    for (size_t i = 0; i < spectra.shape(2); i += kFrame) found.push_back(spectra(0, 0, i + 2 * bin));
    return found;
}

TEST(PreProcessor, withholdsTheNewestFrameUntilItsNeighbourIsKnown) {
    PreProcessor pre = makePreProcessor();
    EXPECT_EQ(pre.flush().dimension(), 0u);
    ASSERT_EQ(pre.needData(), kFrame + 7 * kHop);
    auto spectra = pre.process(ramp(pre.needData(), 0), false);
    EXPECT_EQ(marks(spectra, 0), (Marks{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(marks(spectra, 1), (Marks{-1, 0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(marks(spectra, 2), (Marks{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(pre.flush().shape(), (xt::xarray<float>::shape_type{1, 2, 0}));
    ASSERT_EQ(pre.needData(), kFrame + 5 * kHop);
    spectra = pre.process(ramp(pre.needData(), 8 * kHop), false);
    EXPECT_EQ(marks(spectra, 0), (Marks{7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(marks(spectra, 1), (Marks{6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(marks(spectra, 2), (Marks{8, 9, 10, 11, 12, 13}));
    spectra = pre.process(ramp(kFrame + 5, 14 * kHop - 5), true);  // five samples before the first frame
    EXPECT_EQ(marks(spectra, 0), (Marks{13, 14}));
    EXPECT_EQ(marks(spectra, 2), (Marks{14, -1}));
}

TEST(PreProcessor, returnsWhatTheRangeRulesGiveWhenEveryFrameIsNew) {
    PreProcessor pre = makePreProcessor();
    pre.process(ramp(kFrame, 0), false);
    const auto full = ramp(kFrame + 7 * kHop, kHop);
    EXPECT_EQ(pre.process(full, false).shape(2), 0u);  // the start falls before the first frame and wraps to the last
    EXPECT_EQ(marks(pre.process(full, true), 0), Marks{8});
    EXPECT_EQ(marks(makePreProcessor(markFrames, false).process(ramp(kFrame + kHop, 0), false), 0), (Marks{0, 1}));
}

TEST(PreProcessor, keepsRealAndImaginaryPartsInTheirPlanesAndOutputsApart) {
    const auto model = [](const float* input, const std::vector<float*>& outputs, const Shape& shape) {
        EXPECT_EQ(shape.batch * 1000 + shape.channels * 100 + shape.frames * 10 + shape.bins, 1000u + 400 + 80 + 32);
        std::fill_n(outputs[1], 4 * shape.frames * shape.bins, 7.0f);
        return FakeInference::passThrough(input, {outputs[0]}, shape);
    };
    auto signal = ramp(kFrame, 0);
    for (size_t i = 0; i < kFrame; ++i) signal(1, i) = float(i % 4 == 1) - float(i % 4 == 3);  // a sine in bin 16
    const auto spectra = makePreProcessor(model, true, 2).process(signal, true);
    ASSERT_EQ(spectra.shape(), (xt::xarray<float>::shape_type{2, 2, kFrame}));
    EXPECT_FLOAT_EQ(spectra(0, 0, 0), 2016.0f);
    EXPECT_NEAR(spectra(0, 1, 32), 0.0f, 1e-5f);
    EXPECT_NEAR(spectra(0, 1, 33), -32.0f, 1e-5f);
    EXPECT_EQ(std::count(spectra.begin() + 2 * kFrame, spectra.end(), 7.0f), ptrdiff_t{2 * kFrame});
}

TEST(PreProcessor, givesSilenceNotTheLastOutputWhenTheBackEndSwallowsAFailedRun) {
    int run = 0;
    PreProcessor pre = makePreProcessor(
        [&run](const float* in, const std::vector<float*>& out, const Shape& shape) {
            for (float* half : out) std::fill_n(half, 10, 5.0f);
            if (++run == 2) tavrin::RunFailure::leave("broken");
            return run == 2 || FakeInference::passThrough(in, out, shape);
        },
        true, 2);
    const auto block = ramp(kFrame + kHop, kHop);
    tavrin::RunFailure::leave("another stream's");  // which nobody has taken
    EXPECT_GT(pre.process(block, true)(0, 0, 0), 0.0f);
    const auto spectra = pre.process(block, true);
    EXPECT_EQ(std::count(spectra.begin(), spectra.end(), 0.0f), ptrdiff_t(spectra.size()));
    EXPECT_GT(pre.process(block, true)(0, 0, 0), 0.0f);
}

TEST(PreProcessor, reportsAFailedRunAndRefusesBadBlocksBeforeAnythingChanges) {
    LogCapture log(plog::error);
    bool works = false;
    PreProcessor pre =
        makePreProcessor([&](const float* in, auto& out, auto& shape) { return works && markFrames(in, out, shape); });
    EXPECT_EQ(pre.process(ramp(kFrame, 0), false).dimension(), 0u);
    EXPECT_EQ(log.texts(plog::error), std::vector<std::string>{"Inference failed"});
    EXPECT_THROW(pre.process(ramp(kFrame - 1, 0), false), std::invalid_argument);
    EXPECT_THROW(pre.process(ramp(kFrame + 8 * kHop, 0), false), std::invalid_argument);
    EXPECT_THROW(pre.process(xt::xarray<float>::from_shape({1, kFrame}), false), std::invalid_argument);
    works = true;
    EXPECT_EQ(marks(pre.process(ramp(kFrame + kHop, kHop), true), 1), (Marks{0, 1}));
}

}  // namespace
