#include <gtest/gtest.h>

#include <stdexcept>

#include "models/model_bytes.h"
#include "support/log_capture.h"
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

std::string refusal(const Names& offered, const tavrin::ModelOptions& options, const char* failing = "") try {
    return load(offered, options, failing).provider;
} catch (const std::invalid_argument& failure) {
    return std::string("invalid: ") + failure.what();
} catch (const std::runtime_error& failure) {
    return failure.what();
}

}  // namespace

TEST(ModelProviders, areTriedInTheOrderThatIsWantedUntilOneServes) {
    const struct {
        Names offered, wanted;
        const char* failing;
        std::string calls, provider;
        Names notUsed;
    } cases[] = {
        {{"CPU", "ROCM", "CUDA"}, {}, "", "append CUDA, session CUDA, ", "CUDA", {}},
        {{"CPU", "ROCM", "CUDA"},
         {},
         "append CUDA",
         "append CUDA, append ROCm, session ROCm, ",
         "ROCM",
         {"CUDAExecutionProvider: append CUDA failed"}},
        {{"CPU", "CUDA"},
         {},
         "session CUDA",
         "append CUDA, session CUDA, session, ",
         "CPU",
         {"CUDAExecutionProvider: session CUDA failed"}},
        {{"CPU", "CUDA", "ROCM"}, {"rocm", "cuda"}, "", "append ROCm, session ROCm, ", "ROCM", {}},
        {{"CPU", "CUDA", "ROCM"}, {"ROCmExecutionProvider"}, "", "append ROCm, session ROCm, ", "ROCM", {}},
        {{"CPU", "CUDA"}, {"cpu"}, "", "session, ", "CPU", {}},
        {{"CPU", "CUDA"}, {"CPUExecutionProvider", "cuda"}, "", "session, ", "CPU", {}},
        {{"CPU", "QNN"},
         {"cuda", "qnn", "CUDA"},
         "",
         "append QNN, session QNN, ",
         "QNN",
         {"cuda: this ONNX Runtime does not offer it"}},
    };
    for (const auto& test : cases) {
        const tavrin::ModelInfo info =
            load(test.offered, {.providers = test.wanted, .strict = false, .threads = 3}, test.failing);
        EXPECT_TRUE(standIn.calls.starts_with("env, " + test.calls + "release")) << standIn.calls;
        EXPECT_EQ(info.provider, test.provider + "ExecutionProvider") << test.calls;
        EXPECT_EQ(info.notUsed, test.notUsed);
        EXPECT_EQ(standIn.arguments["threads"], "3 ");
    }
}

TEST(ModelProviders, areAnErrorWhereTheCpuMayNotStandIn) {
    const auto strictly = [](Names wanted) { return tavrin::ModelOptions{std::move(wanted), true, 0}; };
    const std::string failed = refusal({"CPU", "CUDA"}, strictly({"cuda", "coreml"}), "append CUDA");
    for (const char* reason : {"CUDAExecutionProvider: append CUDA failed", "coreml: this ONNX Runtime does not offer"})
        EXPECT_NE(failed.find(reason), std::string::npos) << failed;
    EXPECT_EQ(refusal({"CPU", "CUDA"}, strictly({"cuda", "cpu"}), "session CUDA"), "CPUExecutionProvider");
    const std::string unknown = refusal({"CPU", "CUDA", "Dml"}, {{"dml"}, false, 0});
    EXPECT_EQ(unknown, "invalid: there is no execution provider 'dml' to choose; this ONNX Runtime has cpu, cuda");
    EXPECT_EQ(refusal({"CPU"}, {}, "env"), "env failed") << "hosts do not know the runtime's own exceptions";
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
