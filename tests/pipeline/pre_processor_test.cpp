#include "pipeline/pre_processor.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "inference/run_failure.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"

constexpr size_t kFrame = 64, kHop = 16, kFrames = 8;

using Marks = std::vector<float>;

// Writes the hop that every frame of a ramp starts at into its bin 0, and that of the next frame into bin 1 (-1: none
// there). With a window of ones, the DC value of the frame that starts at t is 64·t + 2016.
static bool markFrames(const float* input, const std::vector<float*>& outputs, const Shape& shape) {
    const auto hopOf = [&](size_t frame) {
        const float dc = frame < shape.frames ? input[frame * shape.bins] : 0.0f;
        return dc == 0.0f ? -1.0f : (dc - 2016.0f) / 64.0f / float(kHop);
    };
    for (size_t f = 0; f < shape.frames; ++f)
        for (const size_t bin : {0U, 1U}) outputs[0][f * shape.bins + bin] = hopOf(f + bin);
    return true;
}

static PreProcessor makePreProcessor(FakeInference::Model model = markFrames, bool trimEdges = true) {
    const auto fake = std::make_shared<FakeInference>(std::move(model));
    return {2, kFrame, kHop, xt::xarray<float>({kFrame}, 1.0f), fake, kFrames, trimEdges, 1};
}

// The hops of the returned frames, then that behind the last one.
static Marks marks(const xt::xarray<float>& spectra) {
    Marks found;
    for (size_t i = 0; i < spectra.shape(2); i += kFrame) found.push_back(spectra(0, 0, i));
    found.push_back(spectra(0, 0, spectra.shape(2) - kFrame + 2));
    return found;
}

TEST(PreProcessor, withholdsTheNewestFrameUntilItsNeighbourIsKnown) {
    PreProcessor pre = makePreProcessor();
    EXPECT_EQ(pre.flush().dimension(), 0u);
    ASSERT_EQ(pre.needData(), kFrame + 7 * kHop);
    EXPECT_EQ(marks(pre.process(ramp(pre.needData(), 0), false)), (Marks{0, 1, 2, 3, 4, 5, 6, 7}));
    ASSERT_EQ(pre.needData(), kFrame + 5 * kHop);
    EXPECT_EQ(marks(pre.process(ramp(pre.needData(), 8 * kHop), false)), (Marks{7, 8, 9, 10, 11, 12, 13}));
    // Five samples before the first frame.
    EXPECT_EQ(marks(pre.process(ramp(kFrame + 5, 14 * kHop - 5), true)), (Marks{13, 14, -1}));
}

TEST(PreProcessor, returnsWhatTheRangeRulesGiveWhenEveryFrameIsNew) {
    PreProcessor pre = makePreProcessor();
    pre.process(ramp(kFrame, 0), false);
    const auto full = ramp(kFrame + 7 * kHop, kHop);
    EXPECT_EQ(pre.process(full, false).shape(2), 0u);  // the start falls before the first frame and wraps to the last
    EXPECT_EQ(marks(pre.process(full, true)), (Marks{8, -1}));
    EXPECT_EQ(marks(makePreProcessor(markFrames, false).process(ramp(kFrame + kHop, 0), false)), (Marks{0, 1, -1}));
}

TEST(PreProcessor, givesSilenceNotTheLastOutputWhenTheBackEndSwallowsAFailedRun) {
    int run = 0;
    PreProcessor pre = makePreProcessor([&run](auto&&... arguments) {
        if (++run == 2) tavrin::RunFailure::leave("broken");
        return FakeInference::passThrough(arguments...);
    });
    const auto block = ramp(kFrame + kHop, kHop);
    tavrin::RunFailure::leave("another stream's");  // which nobody has taken
    EXPECT_GT(pre.process(block, true)(0, 0, 0), 0.0f);
    EXPECT_EQ(xt::amax(xt::abs(pre.process(block, true)))(), 0.0f);
    EXPECT_GT(pre.process(block, true)(0, 0, 0), 0.0f);
}

TEST(PreProcessor, reportsAFailedRunAndRefusesBadBlocksBeforeAnythingChanges) {
    LogCapture log(plog::error);
    bool works = false;
    PreProcessor pre =
        makePreProcessor([&](const float* in, auto& out, auto& shape) { return works && markFrames(in, out, shape); });
    EXPECT_EQ(pre.process(ramp(kFrame, 0), false).dimension(), 0u);
    EXPECT_EQ(log.listing("ERROR"), "ERROR Inference failed\n");
    for (const size_t length : {kFrame - 1, kFrame + 8 * kHop})
        EXPECT_THROW(pre.process(ramp(length, 0), false), std::invalid_argument);
    EXPECT_THROW(pre.process(xt::xarray<float>::from_shape({1, kFrame}), false), std::invalid_argument);
    works = true;
    EXPECT_EQ(marks(pre.process(ramp(kFrame + kHop, kHop), true)), (Marks{1, 2, -1}));
}
