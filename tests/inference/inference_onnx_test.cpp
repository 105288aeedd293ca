#include "inference/inference_onnx.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/message_of.h"

namespace {

std::shared_ptr<IInference> create(const std::vector<std::uint8_t>& bytes) {
    return InferenceONNX::create(bytes.data(), bytes.size(), "");
}

}  // namespace

TEST(InferenceOnnx, refusesCallsThatDoNotFitTheModelAndServesThoseThatDo) {
    const auto small = create(modelBytes("small.onnx")), symbolic = create(modelBytes("symbolic.onnx"));
    constexpr Shape fit{1, 4, 8, 16};
    const std::vector<float> in(4 * 8 * 16, 0.5f);
    std::vector<float> separated(in.size());
    float* const out = separated.data();
    EXPECT_EQ(messageOf([&] {
                  small->run(in.data(), {out, out}, fit);
              }),
              "Use multistem inference for multiple outputs");
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
    ASSERT_EQ(log.lines.size(), 2u);
    const std::string time = log.lines[0].text, before = "[Profiler] Inference ONNX run took: ";
    EXPECT_EQ(time, before + std::to_string(std::stol(time.substr(before.size()))) + " \u00b5s");
    EXPECT_EQ(log.lines[0].severity, plog::info);
    EXPECT_TRUE(log.lines[1].text.starts_with("[INFERENCE_onnx] Exception during inference: ")) << log.lines[1].text;
    EXPECT_EQ(log.lines[1].severity, plog::error);
    EXPECT_EQ(log.lines[1].function,
              plog::util::processFuncName("virtual bool (anonymous namespace)::InferenceONNXImpl"));
}
