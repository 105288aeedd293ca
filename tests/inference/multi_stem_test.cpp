#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "models/model_bytes.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"

constexpr Shape kShape{1, 4, 256, 2048};

const std::vector<std::string> kOutputs = {
    "vocals_output", "drum_output", "bass_output", "piano_output", "acoustic_guitar_output", "electric_guitar_output"};

static std::shared_ptr<IInference> backEnd(const std::vector<std::string>& outputs) {
    const auto bytes = modelBytes("six_stems.onnx");  // halves, quarters … and does not look at its flags
    return InferenceONNX::createMultiStem(bytes.data(), bytes.size(), {}, outputs, "");
}

// The first value of every output buffer after a run on ones, with buffers full of nines.
static std::vector<float> outputsOf(IInference& inference, size_t count) {
    const std::vector<float> input(sizeOf(kShape), 1.0f);
    std::vector<float> buffers(count * input.size(), 9.0f), first;
    std::vector<float*> pointers;
    for (size_t i = 0; i < count; ++i) pointers.push_back(&buffers[i * input.size()]);
    EXPECT_TRUE(inference.run(input.data(), pointers, kShape));
    for (const float* at : pointers) first.push_back(at[0] == at[input.size() - 1] ? at[0] : NAN);
    return first;
}

TEST(MultiStemInference, silencesTheStemsThatAreOffByOutputName) {
    LogCapture log;
    const auto standard = backEnd(kOutputs), unnamed = backEnd({});
    const auto reordered = backEnd({"bass_output", "vocals_output"});
    EXPECT_EQ(outputsOf(*standard, 6), std::vector<float>(6, 0.0f));  // no flags yet
    EXPECT_TRUE(log.lines.back().text.starts_with("WARN [INFERENCE_onnx] Inference finished: "));
    StemFlags flags{true, false, false, true, false, false};
    reinterpret_cast<unsigned char&>(flags.vocals) = 3;
    reinterpret_cast<unsigned char&>(flags.drum) = 2;
    for (const auto& inference : {standard, reordered}) InferenceONNX::setStemFlags(inference, flags);
    EXPECT_EQ(outputsOf(*standard, 6), (std::vector<float>{0.5f, 0.0f, 0.0f, 0.0625f, 0.0f, 0.0f}));
    EXPECT_EQ(outputsOf(*reordered, 2), (std::vector<float>{0.0f, 0.5f}));
    std::vector<float> buffer(sizeOf(kShape));
    EXPECT_THROW(unnamed->run(buffer.data(), std::vector<float*>(5, buffer.data()), kShape), std::out_of_range);
    EXPECT_ANY_THROW(reordered->run(buffer.data(), {buffer.data(), buffer.data()}, {1, 4, 128, 2048}));
    // Without names the first output's stands for all, which the runtime refuses when it runs.
    EXPECT_EQ(outputsOf(*unnamed, 6).size(), 6u);
    EXPECT_THROW(InferenceONNX::setStemFlags(nullptr, flags), std::invalid_argument);
}
