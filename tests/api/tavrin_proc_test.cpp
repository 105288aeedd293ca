#include <gtest/gtest.h>

#include <stdexcept>

#include "api/model_registry.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/message_of.h"
#include "support/signals.h"
#include "tavrin/tavrin_proc.h"

using tavrin::TavrinProc;

static bool swapAndHalve(const float* in, const std::vector<float*>& out, const Shape& shape) {
    const size_t channel = 2 * shape.frames * shape.bins;
    for (size_t i = 0; i < 2 * channel; ++i) out[0][i] = i < channel ? 0.5f * in[channel + i] : in[i - channel];
    return true;
}

TEST(TavrinProc, speaksBothLayoutsAndKeepsItsModel) {
    inferenceInstances["fake"] = std::make_shared<FakeInference>(swapAndHalve);
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
}

TEST(TavrinProc, refusesWhatItCannotServe) {
    inferenceInstances["fake"] = std::make_shared<FakeInference>();
    LogCapture log(plog::error);
    EXPECT_EQ(messageOf<std::runtime_error>([] { TavrinProc({.modelTag = "none", .channels = 1}); }),
              "Specified model is not initialized");
    EXPECT_EQ(log.listing(plog::util::processFuncName("tavrin::TavrinProcImpl::TavrinProcImpl(TavrinProcConfig)")),
              "ERROR Model is not initialized! Model tag: none\n");
    EXPECT_EQ(messageOf<std::runtime_error>([] { TavrinProc({.modelTag = "fake", .channels = 6}); }),
              "Only stereo can be separated, not 6 channels");
}
