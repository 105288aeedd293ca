#include <gtest/gtest.h>

#include <stdexcept>

#include "inference/inference_onnx.h"
#include "inference/runtime.h"
#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/signals.h"
#include "tavrin/multi_stem_separator.h"

namespace {

using tavrin::MultiStemModel;
using tavrin::MultiStemSeparator;
using tavrin::Stem;

constexpr size_t kStems = tavrin::kStemCount;
constexpr Shape kShape{1, 4, 256, 2048};
constexpr size_t kSize = 4 * 256 * 2048;

const std::vector<std::string> kOutputs = {
    "vocals_output", "drum_output", "bass_output", "piano_output", "acoustic_guitar_output", "electric_guitar_output"};

std::shared_ptr<IInference> backEnd(const std::vector<std::string>& outputs) {
    const auto bytes = modelBytes("six_stems.onnx");  // halves, quarters … and does not look at its flags
    return InferenceONNX::createMultiStem(bytes.data(), bytes.size(), {}, outputs, "");
}

MultiStemModel model(const char* name = "six_stems.onnx") {
    const auto bytes = modelBytes(name);
    return MultiStemModel({bytes.data(), bytes.size(), nullptr});
}

// The first value of every output buffer after a run on ones, with buffers full of nines.
std::vector<float> outputsOf(IInference& inference, size_t count) {
    const std::vector<float> input(kSize, 1.0f);
    std::vector<std::vector<float>> buffers(count, std::vector<float>(kSize, 9.0f));
    std::vector<float*> pointers;
    for (auto& buffer : buffers) pointers.push_back(buffer.data());
    EXPECT_TRUE(inference.run(input.data(), pointers, kShape));
    std::vector<float> first;
    for (auto& buffer : buffers) first.push_back(buffer.front() == buffer.back() ? buffer.front() : NAN);
    return first;
}

TEST(MultiStemInference, silencesTheStemsThatAreOffByOutputName) {
    LogCapture log;
    const auto quietRuntime = holdQuietRuntime();
    const auto standard = backEnd(kOutputs), reordered = backEnd({"bass_output", "vocals_output"}),
               unnamed = backEnd({});
    EXPECT_EQ(outputsOf(*standard, 6), std::vector<float>(6, 0.0f));  // no flags yet
    EXPECT_TRUE(log.texts(plog::warning).back().starts_with("[INFERENCE_onnx] Inference finished: "));
    StemFlags flags{true, false, false, true, false, false};
    reinterpret_cast<unsigned char&>(flags.vocals) = 3;
    reinterpret_cast<unsigned char&>(flags.drum) = 2;
    for (const auto& inference : {standard, reordered}) InferenceONNX::setStemFlags(inference, flags);
    EXPECT_EQ(outputsOf(*standard, 6), (std::vector<float>{0.5f, 0.0f, 0.0f, 0.0625f, 0.0f, 0.0f}));
    EXPECT_EQ(outputsOf(*reordered, 2), (std::vector<float>{0.0f, 0.5f}));
    std::vector<float> buffer(kSize);
    EXPECT_THROW(unnamed->run(buffer.data(), std::vector<float*>(5, buffer.data()), kShape), std::out_of_range);
    EXPECT_ANY_THROW(reordered->run(buffer.data(), {buffer.data(), buffer.data()}, {1, 4, 128, 2048}));
    // Without names the first output's stands for all, which the runtime refuses when it runs.
    EXPECT_EQ(outputsOf(*unnamed, 6).size(), 6u);
    EXPECT_THROW(InferenceONNX::setStemFlags(nullptr, flags), std::invalid_argument);
}

TEST(MultiStemSeparator, givesEveryWantedStemInPlaceAndTheRest) {
    const LogCapture quiet;
    const MultiStemModel shared = model();
    const auto song = tones(600000, 20000);
    MultiStemSeparator separator(shared, {{Stem::vocals, Stem::bass}, true, false});
    auto out = separator.process(song);  // planar, so the parts cannot simply be joined: compare what came first
    const size_t done = out.rest.size() / 2;
    for (size_t s = 0; s < kStems; ++s) ASSERT_EQ(out.stems[s].size(), s == 0 || s == 2 ? 2 * done : 0) << s;
    for (size_t i = 0; i < 2 * done; ++i) {
        const float in = song[i < done ? i : 600000 - done + i];
        ASSERT_NEAR(out[Stem::vocals][i], 0.5f * in, 1e-6) << i;
        ASSERT_NEAR(out[Stem::bass][i], 0.125f * in, 1e-6) << i;
        ASSERT_NEAR(out.rest[i] + out[Stem::vocals][i] + out[Stem::bass][i], in, 2e-7) << i;
    }
    EXPECT_EQ(separator.finish()[Stem::bass].size(), 2 * (600000 - done));
    EXPECT_THROW(separator.finish(), std::logic_error);
    separator.reset();
    EXPECT_EQ(separator.process(song).rest, out.rest);
    EXPECT_THROW(separator.selectStems({static_cast<Stem>(6)}), std::invalid_argument);
    EXPECT_THROW(model("passthrough.onnx"), std::runtime_error);
}

TEST(MultiStemSeparator, fadesWithoutAClickWhenAStemIsSwitched) {
    const LogCapture quiet;
    constexpr size_t kBlock = 261120, kLater = 259072;
    MultiStemSeparator separator(model(), {{Stem::vocals}, false, true});
    const std::vector<float> first(2 * kBlock, 0.8f), later(2 * kLater, 0.8f);
    separator.process(first);
    separator.selectStems({Stem::drums});
    const auto changing = separator.process(later);
    const auto& falling = changing[Stem::vocals];
    const auto& rising = changing[Stem::drums];
    ASSERT_TRUE(falling.size() == 2 * kLater && rising.size() == 2 * kLater && changing.samples == kLater);
    float slope = 0.0f;
    for (size_t i = 2; i < falling.size(); ++i) {
        ASSERT_TRUE(falling[i] >= -1e-6f && falling[i] <= 0.4f + 1e-6f && rising[i] <= 0.2f + 1e-6f) << i;
        slope = std::max({slope, falling[i - 2] - falling[i], rising[i] - rising[i - 2]});
    }
    EXPECT_LT(slope, 6e-4f);  // a step of 0.4 over 3072 samples, a few times steeper at its middle
    EXPECT_EQ(std::count(falling.begin() + 2 * 3072, falling.end(), 0.0f), std::ssize(falling) - 2 * 3072);
    EXPECT_NEAR(rising[2 * 3072], 0.2f, 1e-6);
    EXPECT_TRUE(separator.process(later)[Stem::vocals].empty());
}

}  // namespace
