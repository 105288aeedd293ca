#include <gtest/gtest.h>

#include <stdexcept>

#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/message_of.h"
#include "support/runtime_stand_in.h"
#include "tavrin/separator.h"

using Names = std::vector<std::string>;

// Loads a model on a runtime that offers these providers.
static tavrin::ModelInfo load(Names offered, const tavrin::ModelOptions& options, const std::string& failing = "",
                              const std::vector<std::uint8_t>& bytes = modelBytes("small.onnx")) {
    for (std::string& name : offered) name += "ExecutionProvider";
    standIn = {.available = offered, .failing = failing};
    return modelOf(bytes, options).info();
}

TEST(ModelProviders, areTriedInTheOrderThatIsWantedUntilOneServes) {
    using Case = std::tuple<Names, Names, std::string, std::string, std::string>;
    for (const auto& [offered, wanted, failing, calls, provider] :
         {Case{{"CPU", "ROCM", "CUDA"}, {}, "", "append CUDA, session CUDA, ", "CUDA"},
          {{"CPU", "ROCM", "CUDA"}, {}, "append CUDA", "append CUDA, append ROCm, session ROCm, ", "ROCM"},
          {{"CPU", "CUDA"}, {}, "session CUDA", "append CUDA, session CUDA, session, ", "CPU"},
          {{"CPU", "CUDA", "ROCM"}, {"rocm", "cuda"}, "", "append ROCm, session ROCm, ", "ROCM"},
          {{"CPU", "CUDA", "ROCM"}, {"ROCmExecutionProvider"}, "", "append ROCm, session ROCm, ", "ROCM"},
          {{"CPU", "CUDA"}, {"CPUExecutionProvider", "cuda"}, "", "session, ", "CPU"},
          {{"CPU", "QNN"}, {"qnn"}, "", "append QNN, session QNN, ", "QNN"}}) {
        const tavrin::ModelInfo info = load(offered, {wanted, false, 3}, failing);
        EXPECT_TRUE(standIn.calls.starts_with("env, " + calls + "release")) << standIn.calls;
        EXPECT_EQ(info.provider, provider + "ExecutionProvider") << calls;
        EXPECT_EQ(info.notUsed, failing.empty() ? Names{} : Names{"CUDAExecutionProvider: " + failing + " failed"});
        EXPECT_EQ(standIn.arguments["threads"], "3 ");
    }
    const LogCapture hostsOwn;
    const tavrin::ModelInfo info = load({"CPU", "QNN"}, {{"cuda", "qnn", "CUDA"}, false, 3});
    EXPECT_EQ(info.provider, "QNNExecutionProvider");
    EXPECT_EQ(info.notUsed, Names{"cuda: this ONNX Runtime does not offer it"});
    EXPECT_EQ(hostsOwn.listing("WARN") + hostsOwn.listing("INFO"),
              "WARN [INFERENCE_onnx] Not used: cuda: this ONNX Runtime does not offer it\n"
              "INFO [INFERENCE_onnx] The model runs on QNNExecutionProvider\n");
}

TEST(ModelProviders, areAnErrorWhereTheCpuMayNotStandIn) {
    const auto noneServes = [] { load({"CPU", "CUDA"}, {{"cuda", "coreml"}, true, 0}, "append CUDA"); };
    EXPECT_EQ(messageOf<std::runtime_error>(noneServes),
              "none of the wanted execution providers can run the model; CUDAExecutionProvider: append CUDA failed; "
              "coreml: this ONNX Runtime does not offer it");
    EXPECT_EQ(load({"CPU", "CUDA"}, {{"cuda", "cpu"}, true, 0}, "session CUDA").provider, "CPUExecutionProvider");
    const auto isUnknown = [] { load({"CPU", "CUDA", "Dml"}, {{"dml"}, false, 0}); };
    EXPECT_EQ(messageOf<std::invalid_argument>(isUnknown),
              "there is no execution provider 'dml' to choose; this ONNX Runtime has cpu, cuda");
    EXPECT_EQ(messageOf<std::runtime_error>([] { load({"CPU"}, {}, "env"); }), "env failed")
        << "hosts do not know the runtime's own exceptions";
}

TEST(ModelProviders, areNotAskedForAModelWhoseNumbersLieInOtherFiles) {
    // An initializer "W" in the graph, kept in "w": fields 7, 5, and 8 and 13 of the tensor.
    const std::string bytes = "\x3A\x12\x2A\x10\x42\x01W\x6A\x0B\x0A\x08location\x12\x01w";
    EXPECT_THROW(load({"CPU"}, {}, "", {bytes.begin(), bytes.end()}), std::runtime_error);
    EXPECT_EQ(standIn.calls, "");
}
