#include "inference/inference_onnx.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "inference/run_failure.h"
#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/message_of.h"

static std::shared_ptr<IInference> create(const std::vector<std::uint8_t>& bytes) {
    return InferenceONNX::create(bytes.data(), bytes.size(), "");
}

TEST(InferenceOnnx, refusesCallsThatDoNotFitTheModelAndServesThoseThatDo) {
    const auto small = create(modelBytes("small.onnx")), symbolic = create(modelBytes("symbolic.onnx"));
    constexpr Shape fit{1, 4, 8, 16};
    const std::vector<float> in(4 * 8 * 16, 0.5f);
    std::vector<float> separated(in.size());
    float* const out = separated.data();
    const auto runTwo = [&] { small->run(in.data(), std::vector(2, out), fit); };
    EXPECT_EQ(messageOf(runTwo), "Use multistem inference for multiple outputs");
    EXPECT_THROW(small->run(in.data(), {}, fit), std::out_of_range);
    EXPECT_ANY_THROW(small->run(in.data(), {out}, {1, 4, 8, 15}));
    EXPECT_ANY_THROW(symbolic->run(in.data(), {out}, fit));
    EXPECT_TRUE(small->run(in.data(), {out}, fit));
    EXPECT_EQ(separated, in);
}

TEST(InferenceOnnx, logsAFailedRunAfterItsTimeAndReportsSuccess) {
    const auto failing = create(modelBytes("failing.onnx"));
    std::vector<float> spectrum(4 * 256 * 2048), separated(spectrum.size());
    LogCapture log;
    EXPECT_TRUE(failing->run(spectrum.data(), {separated.data()}, {1, 4, 256, 2048}));
    EXPECT_TRUE(tavrin::RunFailure::take());
    ASSERT_EQ(log.lines.size(), 2u);
    const std::string time = log.lines[0].text, before = "INFO [Profiler] Inference ONNX run took: ";
    EXPECT_EQ(time, before + std::to_string(std::stol(time.substr(before.size()))) + " \u00b5s");
    const auto run = plog::util::processFuncName("virtual bool (anonymous namespace)::InferenceONNXImpl");
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "\nERROR [INFERENCE_onnx] Exception during inference", log.listing(run));
}
