#include <gtest/gtest.h>

#include <stdexcept>

#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"
#include "tavrin/tavrin_proc.h"

namespace {

using tavrin::TavrinProc;

// Registers a fake under the tag "fake".
struct Registered {
    explicit Registered(FakeInference::Model does) : model(std::make_shared<FakeInference>(std::move(does))) {
        inferenceInstances["fake"] = model;
    }
    ~Registered() { tavrin::deinitializeAllModels(); }
    std::shared_ptr<FakeInference> model;
};

bool swapAndHalve(const float* in, const std::vector<float*>& out, const Shape& shape) {
    const size_t channel = 2 * shape.frames * shape.bins;
    for (size_t i = 0; i < 2 * channel; ++i) out[0][i] = i < channel ? 0.5f * in[channel + i] : in[i - channel];
    return true;
}

std::vector<float> interleaved(const std::vector<float>& planar) {
    std::vector<float> out(planar.size());
    for (size_t i = 0; i < planar.size(); ++i) out[i] = planar[i / 2 + (i % 2) * planar.size() / 2];
    return out;
}

template <class Action>
std::string messageOf(Action action) try {
    return action(), "";
} catch (const std::runtime_error& refused) {
    return refused.what();
}

TEST(TavrinProc, speaksBothLayoutsAndKeepsItsModel) {
    Registered registered(swapAndHalve);
    const auto planar = tones(100000, 20000);
    TavrinProc flat({.modelTag = "fake", .interleaved = false}), woven({.modelTag = "fake"});
    TavrinProc rest({.modelTag = "fake", .subtractFromInput = true});
    inferenceInstances["fake"] = std::make_shared<FakeInference>([](auto&&...) { return false; });  // replaced
    EXPECT_THROW(flat.process(std::vector<float>(4097), true), std::invalid_argument);              // nothing is queued
    EXPECT_TRUE(flat.process({}, false).empty());
    const auto out = flat.process(planar, true);
    std::vector<float> expected(planar.size());
    for (size_t i = 0; i < 200000; ++i) expected[i] = i < 100000 ? 0.5f * planar[100000 + i] : planar[i - 100000];
    EXPECT_LT(deviation(out, expected), 1e-6f);  // -120 dB of full scale
    EXPECT_EQ(woven.process(interleaved(planar), true), interleaved(out));
    EXPECT_EQ(rest.process(interleaved(planar), true)[2000], planar[1000] - out[1000]);
    EXPECT_EQ(registered.model->calls, 3);
}

TEST(TavrinProc, refusesWhatItCannotServe) {
    Registered registered(FakeInference::passThrough);
    LogCapture log(plog::error);
    EXPECT_EQ(messageOf([] { TavrinProc({.modelTag = "none", .channels = 1}); }), "Specified model is not initialized");
    EXPECT_EQ(log.lines,
              std::vector({LogCapture::Line{
                  plog::error, plog::util::processFuncName("tavrin::TavrinProcImpl::TavrinProcImpl(TavrinProcConfig)"),
                  "Model is not initialized! Model tag: none"}}));
    EXPECT_NE(messageOf([] { TavrinProc({.modelTag = "fake", .channels = 6}); }).find("6 channels"), std::string::npos);
}

TEST(TavrinProc, givesSilenceWhereARunFailsAndReturnsEveryHopOfAStreamInBlocks) {
    const auto bytes = modelBytes("failing.onnx");
    ASSERT_TRUE(tavrin::initializeModel("failing", {bytes.data(), bytes.size(), nullptr}));
    TavrinProc failing({.modelTag = "failing"});
    EXPECT_EQ(failing.process(std::vector<float>(2 * 3000, 1.0f), true), std::vector<float>(2 * 3000));

    Registered registered(FakeInference::passThrough);
    TavrinProc blocks({.modelTag = "fake", .interleaved = false});
    const auto song = tones(600001, 20000);
    std::vector<float> left;
    for (size_t from = 0; from < 600001;) {
        const size_t n = std::min(blocks.maxInputSize(), 600001 - from);
        const auto block = part(song, from, n);
        from += n;
        const auto out = blocks.process({block.begin(), block.end()}, from == 600001);
        left.insert(left.end(), out.begin(), out.begin() + ptrdiff_t(out.size() / 2));
    }
    EXPECT_LT(deviation(left, {song.begin(), song.begin() + 600001}), 1e-6f);  // -120 dB of full scale
}

}  // namespace
