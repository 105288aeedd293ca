#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "inference/onnx_model.h"
#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/message_of.h"
#include "tavrin/separator.h"

using Bytes = std::vector<std::uint8_t>;

static tavrin::OnnxModel engineModel(const Bytes& bytes) { return {bytes.data(), bytes.size(), {}}; }

// The same bytes with one name in place of another of the same length.
static Bytes renamed(Bytes bytes, const std::string& from, const std::string& to) {
    for (auto at = bytes.begin(); (at = std::search(at, bytes.end(), from.begin(), from.end())) != bytes.end();)
        at = std::copy(to.begin(), to.end(), at);
    return bytes;
}

TEST(Model, saysWhatItsFileSaysAndServesTheOutputsThatAreWanted) {
    const Bytes bytes = modelBytes("eight_stems.onnx");
    const tavrin::ModelInfo info = modelOf(bytes).info();
    EXPECT_EQ(info.stems,
              (std::vector<std::string>{"voice", "choir", "drums", "bass", "piano", "guitar", "strings", "wind"}));
    EXPECT_EQ(std::vector({info.sampleRate + 0UL, info.frameLength, info.hop, info.frames, info.bins, info.context}),
              (std::vector<size_t>{48000, 2048, 512, 40, 700, 3}));
    EXPECT_EQ(info.window + info.title + info.licence + info.source, "hannEightMITmade here");
    EXPECT_EQ(info.provider, "CPUExecutionProvider");

    tavrin::OnnxModel model = engineModel(bytes);
    const std::vector<float> in(4 * 40 * 700, 1.0f);
    model.run(nullptr, std::array<float*, 8>{}.data());  // nothing is wanted, nothing is done
    for (const size_t wanted : {0U, 7U}) {
        std::vector<float> stem(in.size());
        float* outputs[8] = {};
        outputs[wanted] = stem.data();
        model.run(in.data(), outputs);
        EXPECT_EQ(stem, std::vector(in.size(), wanted == 0 ? 0.5f : 0x1p-8f));
    }
}

TEST(Model, tellsASixStemModelWhichStemsAreWanted) {
    tavrin::OnnxModel model = engineModel(modelBytes("flags.onnx"));
    EXPECT_EQ(model.facts().stems,
              (std::vector<std::string>{"electric_guitar", "acoustic_guitar", "piano", "bass", "drums", "vocals"}));
    const std::vector<float> in(4 * 3 * 8);
    for (unsigned wanted = 1; wanted < 64; ++wanted) {
        std::vector<float> stems[6];
        float* outputs[6] = {};
        unsigned set = 0;  // the model's first flag counts 1, and goes with its last output
        for (unsigned stem = 0; stem < 6; ++stem)
            if (wanted >> stem & 1)
                stems[stem].resize(in.size()), outputs[stem] = stems[stem].data(), set += 32U >> stem;
        model.run(in.data(), outputs);
        for (const std::vector<float>& stem : stems) EXPECT_EQ(stem, std::vector(stem.size(), static_cast<float>(set)));
    }
}

TEST(Model, throwsWhatHostsKnow) {
    tavrin::OnnxModel failing = engineModel(modelBytes("failing.onnx"));
    std::vector<float> spectrum(4 * 256 * 2048);
    float* output = spectrum.data();
    EXPECT_THROW(failing.run(spectrum.data(), &output), std::runtime_error);

    const Bytes bytes = modelBytes("small.onnx");
    Bytes future = bytes;
    future.at(1) = 99;  // the IR version
    for (const auto& [model, reason] : {std::pair{renamed(bytes, "Identity", "NoSuchOp"), "NoSuchOp"},
                                        {future, "IR version 99 and operator set 13"},
                                        {renamed(bytes, "separated", "spectrum\x01"), "cannot be"},
                                        {Bytes(9), "no ONNX model"}}) {
        const std::string refusal = messageOf<std::runtime_error>([&given = model] { modelOf(given); });
        EXPECT_PRED_FORMAT2(testing::IsSubstring, reason, refusal);
    }
    EXPECT_THROW(tavrin::Model(tavrin::ModelData{nullptr, 7}), std::invalid_argument);
    EXPECT_THROW(modelOf(bytes, {{}, true, 0}), std::invalid_argument);
    EXPECT_THROW(modelOf(bytes, {{}, false, 1025}), std::invalid_argument);
}

// In a process of its own: alone at first, then beside a back-end whose environment lets warnings out.
TEST(ModelDeathTest, printsNothingWhetherItRunsOrFails) {
    // What the runtime prints can be captured in a process of its own only, which an emulator cannot start.
    if (GTEST_FLAG_GET(death_test_style) == "fast") GTEST_SKIP();
    const auto output = [] {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        std::shared_ptr<IInference> other;
        for (const std::string file : {"passthrough.onnx", "failing.onnx", "half.onnx", "", "failing.onnx"}) {
            const Bytes bytes = modelBytes(file.empty() ? "small.onnx" : file);
            if (file.empty()) other = InferenceONNX::create(bytes.data(), bytes.size(), "");
            std::vector<float> in(4 * 256 * 2048), out(in.size());
            float* const outputs[] = {out.data()};
            messageOf([&] { engineModel(bytes).run(in.data(), outputs); });
        }
        return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    };
    EXPECT_EXIT(std::exit(output().empty() && !plog::get() ? 0 : 1), testing::ExitedWithCode(0), "");
}
