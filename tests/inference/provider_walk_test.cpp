#include <dlfcn.h>
#include <gtest/gtest.h>

#include "inference/inference_onnx.h"
#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "support/runtime_stand_in.h"

// Makes a back-end on a runtime that offers these providers, and drops it; returns what the runtime saw. The session
// that is released last is the one that would have served.
static std::string walk(std::vector<std::string> available, const std::string& requested = "",
                        const std::string& failing = "", bool hasSixStems = false) {
    for (std::string& name : available) name += "ExecutionProvider";
    standIn = {.available = available, .failing = failing};
    const auto model = modelBytes(hasSixStems ? "six_stems.onnx" : "small.onnx");
    if (hasSixStems)
        InferenceONNX::createMultiStem(model.data(), model.size(), {}, {}, requested);
    else
        InferenceONNX::create(model.data(), model.size(), requested);
    EXPECT_TRUE(standIn.providers.empty()) << "options or a session were not released";
    return standIn.calls;
}

TEST(ProviderWalk, goesThroughWhatTheRuntimeOffersAndTheLastSessionServes) {
    EXPECT_EQ(walk({"CPU", "ROCm", "CUDA", "QNN"}),
              "env, append QNN, session QNN, append CUDA, session CUDA, release QNN, append ROCm, session ROCm, "
              "release CUDA, release ROCm, ");
    EXPECT_EQ(walk({"CPU", "CUDA", "ROCm"}, "ROCmExecutionProvider"),
              "env, append ROCm, session ROCm, append CUDA, session CUDA, release ROCm, release CUDA, ");
    EXPECT_EQ(walk({"CPU", "CUDA"}, "CPUExecutionProvider"), "env, session, release, ");
}

TEST(ProviderWalk, saysWhatItTriesAndWarnsOfWhatItCannotAppend) {
    LogCapture log;
    EXPECT_EQ(walk({"CUDA", "Dml"}), "env, append CUDA, session CUDA, release CUDA, ");
    EXPECT_EQ(log.listing(plog::util::processFuncName("(anonymous namespace)::InferenceONNXImpl")),
              "INFO [INFERENCE_onnx] Create Inference ONNX\n"
              "INFO [INFERENCE_onnx] Available Provider: CUDAExecutionProvider\n"
              "INFO [INFERENCE_onnx] Available Provider: DmlExecutionProvider\n"
              "INFO [INFERENCE_onnx] Append execution provider: DmlExecutionProvider\n"
              "WARN [INFERENCE_onnx] Unknown EP: DmlExecutionProvider\n"
              "INFO [INFERENCE_onnx] Append execution provider: CUDAExecutionProvider\n");
}

TEST(ProviderWalk, keepsTheEarlierSessionWhenAnAttemptFails) {
    for (const std::string call : {"append ROCm", "session ROCm"}) {
        LogCapture log;
        EXPECT_TRUE(walk({"CUDA", "ROCm"}, "", call).ends_with(call + ", release CUDA, ")) << standIn.calls;
        EXPECT_EQ(log.listing("ERROR"), "ERROR [INFERENCE_onnx] Failed to init backend: " + call + " failed\n");
    }
    EXPECT_EQ(walk({"ROCm"}, "", "append ROCm"), "env, append ROCm, session, release, ");
}

TEST(ProviderWalk, passesEveryCallItsOptions) {
    const std::string folder = "/data/data/" TAVRIN_QNN_APPLICATION_ID "/cache/qnnLibs/";
    setenv("LD_LIBRARY_PATH", "/elsewhere", 1);
    walk({"QNN", "CUDA", "ROCm"});
    EXPECT_EQ(standIn.arguments["env"], "2 \"\" ");
    EXPECT_EQ(standIn.arguments["append QNN"], folder + ' ' + folder + " backend_path " + folder + "/libQnnHtp.so ");
    for (const char* call : {"append CUDA", "append ROCm"})
        EXPECT_EQ(standIn.arguments[call], "0 18446744073709551615 1 ") << call;
}

TEST(ProviderWalk, appendsCoreMlByItsOwnFunctionWhereThereIsOne) {
    LogCapture log;
    const std::string complaint = "ERROR [INFERENCE_onnx] Failed to append CoreML EP: ";
    EXPECT_EQ(walk({"CoreML"}), "env, session, release, ");
    EXPECT_TRUE(log.lines.back().text.starts_with(complaint)) << log.lines.back().text;

    void* const library = dlopen(TAVRIN_COREML_PROVIDER, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_TRUE(library) << dlerror();
    EXPECT_EQ(walk({"CoreML", "ROCm"}),
              "env, append ROCm, session ROCm, append CoreML, session CoreML, release ROCm, release CoreML, ");
    EXPECT_EQ(standIn.arguments["append CoreML"], "0 ");
    EXPECT_EQ(walk({"CoreML"}, "", "append CoreML"), "env, append CoreML, session, release, ");
    EXPECT_EQ(log.lines.back().text, complaint + "append CoreML failed");
    dlclose(library);
}

TEST(ProviderWalk, appendsCoreMlWithACacheForModelsOfSeveralStems) {
    for (const char* name : {"LD_LIBRARY_PATH", "ADSP_LIBRARY_PATH"}) setenv(name, "-", 0);  // the stand-in notes them
    setenv("HOME", "/home/me", 1);
    EXPECT_EQ(walk({"CoreML"}, "", "", true), "env, append CoreML, session CoreML, release CoreML, ");
    for (const char* option : {" ModelFormat MLProgram ", " MLComputeUnits ALL ", " EnableOnSubgraphs 1 ",
                               " ModelCacheDirectory /home/me/Library/Caches/TavrinModelCache "})
        EXPECT_PRED_FORMAT2(testing::IsSubstring, option, standIn.arguments["append CoreML"]);
    EXPECT_EQ(walk({"CUDA", "ROCm"}, "ROCmExecutionProvider", "", true),
              walk({"CUDA", "ROCm"}, "ROCmExecutionProvider"));
}
