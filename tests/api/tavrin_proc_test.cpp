#include <gtest/gtest.h>

#include <stdexcept>

#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/message_of.h"
#include "support/signals.h"
#include "tavrin/tavrin_proc.h"

namespace {

using tavrin::TavrinProc;

// Registers a fake under the tag "fake".
std::shared_ptr<FakeInference> registered(FakeInference::Model does) {
    const auto model = std::make_shared<FakeInference>(std::move(does));
    inferenceInstances["fake"] = model;
    return model;
}

bool swapAndHalve(const float* in, const std::vector<float*>& out, const Shape& shape) {
    const size_t channel = 2 * shape.frames * shape.bins;
    for (size_t i = 0; i < 2 * channel; ++i) out[0][i] = i < channel ? 0.5f * in[channel + i] : in[i - channel];
    return true;
}

TEST(TavrinProc, speaksBothLayoutsAndKeepsItsModel) {
    const auto model = registered(swapAndHalve);
    const auto planar = tones(100000, 20000);
    TavrinProc flat({.modelTag = "fake", .interleaved = false}), woven({.modelTag = "fake"});
    TavrinProc rest({.modelTag = "fake", .subtractFromInput = true});
    inferenceInstances["fake"] = std::make_shared<FakeInference>([](auto&&...) { return false; });  // replaced
    EXPECT_THROW(flat.process(std::vector<float>(4097), true), std::invalid_argument);              // nothing is queued
    EXPECT_TRUE(flat.process({}, false).empty());
    const auto out = flat.process(planar, true);
    for (size_t i = 0; i < 100000; ++i) {  // -120 dB of full scale
        ASSERT_NEAR(out[i], 0.5f * planar[100000 + i], 1e-6f) << i;
        ASSERT_NEAR(out[100000 + i], planar[i], 1e-6f) << i;
    }
    EXPECT_EQ(woven.process(interleaved(planar), true), interleaved(out));
    EXPECT_EQ(rest.process(interleaved(planar), true)[2000], planar[1000] - out[1000]);
    EXPECT_EQ(model->calls, 3);
}

TEST(TavrinProc, refusesWhatItCannotServe) {
    registered(FakeInference::passThrough);
    LogCapture log(plog::error);
    EXPECT_EQ(messageOf<std::runtime_error>([] { TavrinProc({.modelTag = "none", .channels = 1}); }),
              "Specified model is not initialized");
    EXPECT_EQ(log.lines,
              std::vector({LogCapture::Line{
                  plog::error, plog::util::processFuncName("tavrin::TavrinProcImpl::TavrinProcImpl(TavrinProcConfig)"),
                  "Model is not initialized! Model tag: none"}}));
    EXPECT_NE(messageOf<std::runtime_error>([] { TavrinProc({.modelTag = "fake", .channels = 6}); }).find("6 channels"),
              std::string::npos);
}

TEST(TavrinProc, givesSilenceWhereARunFails) {
    const auto bytes = modelBytes("failing.onnx");
    ASSERT_TRUE(tavrin::initializeModel("failing", {bytes.data(), bytes.size(), nullptr}));
    TavrinProc failing({.modelTag = "failing"});
    EXPECT_EQ(failing.process(std::vector<float>(2 * 3000, 1.0f), true), std::vector<float>(2 * 3000));
}

}  // namespace
