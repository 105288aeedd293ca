#include <gtest/gtest.h>

#include <stdexcept>

#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/message_of.h"
#include "support/runtime_stand_in.h"
#include "tavrin/separator.h"

namespace {

using Names = std::vector<std::string>;

// Loads a model on a runtime that offers these providers.
tavrin::ModelInfo load(Names offered, const tavrin::ModelOptions& options, const char* failing = "",
                       std::vector<std::uint8_t> bytes = modelBytes("small.onnx")) {
    for (std::string& name : offered) name += "ExecutionProvider";
    standIn = {.available = offered, .failing = failing};
    return tavrin::Model({bytes.data(), bytes.size()}, options).info();
}

}  // namespace

TEST(ModelProviders, areTriedInTheOrderThatIsWantedUntilOneServes) {
    const struct {
        Names offered, wanted;
        std::string failing, calls, provider;
    } cases[] = {{{"CPU", "ROCM", "CUDA"}, {}, "", "append CUDA, session CUDA, ", "CUDA"},
                 {{"CPU", "ROCM", "CUDA"}, {}, "append CUDA", "append CUDA, append ROCm, session ROCm, ", "ROCM"},
                 {{"CPU", "CUDA"}, {}, "session CUDA", "append CUDA, session CUDA, session, ", "CPU"},
                 {{"CPU", "CUDA", "ROCM"}, {"rocm", "cuda"}, "", "append ROCm, session ROCm, ", "ROCM"},
                 {{"CPU", "CUDA", "ROCM"}, {"ROCmExecutionProvider"}, "", "append ROCm, session ROCm, ", "ROCM"},
                 {{"CPU", "CUDA"}, {"CPUExecutionProvider", "cuda"}, "", "session, ", "CPU"},
                 {{"CPU", "QNN"}, {"qnn"}, "", "append QNN, session QNN, ", "QNN"}};
    for (const auto& [offered, wanted, failing, calls, provider] : cases) {
        const tavrin::ModelInfo info = load(offered, {wanted, false, 3}, failing.c_str());
        EXPECT_TRUE(standIn.calls.starts_with("env, " + calls + "release")) << standIn.calls;
        EXPECT_EQ(info.provider, provider + "ExecutionProvider") << calls;
        EXPECT_EQ(info.notUsed, failing.empty() ? Names{} : Names{"CUDAExecutionProvider: " + failing + " failed"});
        EXPECT_EQ(standIn.arguments["threads"], "3 ");
    }
    const tavrin::ModelInfo info = load({"CPU", "QNN"}, {{"cuda", "qnn", "CUDA"}, false, 3});
    EXPECT_EQ(info.provider + info.notUsed.at(0), "QNNExecutionProvidercuda: this ONNX Runtime does not offer it");
    EXPECT_EQ(info.notUsed.size(), 1u);
}

TEST(ModelProviders, areAnErrorWhereTheCpuMayNotStandIn) {
    const std::string failed = messageOf<std::runtime_error>([] {
        load({"CPU", "CUDA"}, {{"cuda", "coreml"}, true, 0}, "append CUDA");
    });
    for (const char* reason : {"CUDAExecutionProvider: append CUDA failed", "coreml: this ONNX Runtime does not offer"})
        EXPECT_NE(failed.find(reason), std::string::npos) << failed;
    EXPECT_EQ(load({"CPU", "CUDA"}, {{"cuda", "cpu"}, true, 0}, "session CUDA").provider, "CPUExecutionProvider");
    EXPECT_EQ(messageOf<std::invalid_argument>([] {
                  load({"CPU", "CUDA", "Dml"}, {{"dml"}, false, 0});
              }),
              "there is no execution provider 'dml' to choose; this ONNX Runtime has cpu, cuda");
    EXPECT_EQ(messageOf<std::runtime_error>([] { load({"CPU"}, {}, "env"); }), "env failed")
        << "hosts do not know the runtime's own exceptions";
}

TEST(ModelProviders, areWrittenToTheHostsLog) {
    const LogCapture log;
    load({"CPU", "CUDA"}, {}, "append CUDA");
    EXPECT_EQ(log.texts(plog::warning), Names{"[INFERENCE_onnx] Not used: CUDAExecutionProvider: append CUDA failed"});
    EXPECT_EQ(log.texts(plog::info), Names{"[INFERENCE_onnx] The model runs on CPUExecutionProvider"});
}

TEST(ModelProviders, areNotAskedForAModelWhoseNumbersLieInOtherFiles) {
    // An initializer "W" in the graph, kept in "w": fields 7, 5, and 8 and 13 of the tensor.
    const std::string bytes = "\x3A\x12\x2A\x10\x42\x01W\x6A\x0B\x0A\x08location\x12\x01w";
    EXPECT_THROW(load({"CPU"}, {}, "", {bytes.begin(), bytes.end()}), std::runtime_error);
    EXPECT_EQ(standIn.calls, "");
}
