#include <gtest/gtest.h>

#include <stdexcept>

#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"
#include "tavrin/stream_separator.h"
#include "tavrin/tavrin_proc.h"

namespace {

using tavrin::StreamSeparator;
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

TEST(StreamSeparator, givesTheSameBitsHoweverTheStreamIsCut) {
    Registered registered(swapAndHalve);
    std::mt19937 random(7);
    for (const size_t length : {0U, 1U, 257024U, 257025U, 261120U, 900000U}) {
        const auto song = noise(2 * length, 5), whole = tavrin::separate({.modelTag = "fake"}, song);
        ASSERT_EQ(whole.size(), song.size());
        StreamSeparator separator({.modelTag = "fake"});
        for (int round = 0; round < 2; ++round, separator.reset()) {  // the second round from reset()
            std::vector<float> out;
            for (size_t from = 0, n = 0; from < song.size(); from += n) {
                n = std::min<size_t>(2 * (random() % (random() % 4 ? 5000 : 300000)), song.size() - from);
                const auto some = separator.process({&song[from], &song[from] + n});
                out.insert(out.end(), some.begin(), some.end());
                ASSERT_LE(from + n - out.size(), 2 * StreamSeparator::latency());
            }
            const auto end = separator.finish();
            out.insert(out.end(), end.begin(), end.end());
            ASSERT_EQ(out, whole) << length;
            EXPECT_THROW(separator.process({}), std::logic_error);
        }
    }
    registered.model->calls = 0;
    tavrin::separate({.modelTag = "fake"}, std::vector<float>(2 * 600 * 44100));
    EXPECT_EQ(registered.model->calls, 103);
    EXPECT_EQ(StreamSeparator::latency(), 263167u);
}

TEST(StreamSeparator, givesTheSongBackInPlaceAndStemAndRestMakeIt) {
    Registered registered(FakeInference::passThrough);
    const auto song = tones(600001, 20000);
    const auto stem = tavrin::separate({.modelTag = "fake", .interleaved = false}, song);
    EXPECT_LT(deviation(stem, song), 1e-6f);  // -120 dB of full scale
    auto sum = tavrin::separate({.modelTag = "fake", .subtractFromInput = true}, interleaved(song));
    std::transform(sum.begin(), sum.end(), interleaved(stem).begin(), sum.begin(), std::plus());
    EXPECT_LT(deviation(sum, interleaved(song)), 1.2e-7f);  // one rounding
}

TEST(StreamSeparator, keepsWhatIsNotANumberInTheFramesThatItTouches) {
    Registered registered(FakeInference::passThrough);
    auto song = noise(2 * 600000, 9);
    song[2 * 400000] = NAN;
    song[2 * 410000 + 1] = INFINITY;
    const auto out = tavrin::separate({.modelTag = "fake"}, song);
    const auto isNumber = [](float sample) { return std::isfinite(sample); };
    EXPECT_TRUE(std::all_of(out.begin(), out.begin() + 2 * (400000 - 4096), isNumber));
    EXPECT_TRUE(std::all_of(out.begin() + 2 * (410000 + 4096), out.end(), isNumber));
}

TEST(StreamSeparator, refusesWrongModelsAndTurnsAFailedRunIntoAnException) {
    for (const std::string name : {"failing.onnx", "small.onnx", "half.onnx", "symbolic.onnx"}) {
        const auto bytes = modelBytes(name);
        ASSERT_TRUE(tavrin::initializeModel(name, {bytes.data(), bytes.size(), nullptr})) << name;
    }
    const auto refusal = [](const char* tag) { return messageOf([&] { StreamSeparator({.modelTag = tag}); }); };
    EXPECT_EQ(refusal("small.onnx"),
              "the model's 'spectrum' is float [1, 4, 8, 16]; this library needs float [1, 4, 256, 2048]");
    EXPECT_NE(refusal("half.onnx").find("float16"), std::string::npos);
    EXPECT_NE(refusal("symbolic.onnx").find("[1, 4, ?, 2048]"), std::string::npos);
    StreamSeparator separator({.modelTag = "failing.onnx"});
    EXPECT_THROW(separator.process({1.0f}), std::invalid_argument);
    EXPECT_TRUE(separator.process({1.0f, 1.0f}).empty());
    EXPECT_NE(messageOf([&] { separator.finish(); }).find("out of data bounds"), std::string::npos);
    EXPECT_THROW(separator.finish(), std::logic_error);
    TavrinProc engine({.modelTag = "failing.onnx"});
    EXPECT_EQ(engine.process({1.0f, 1.0f}, true), std::vector<float>(2));  // silence, never stale memory
    tavrin::deinitializeAllModels();
}

}  // namespace
