#include <gtest/gtest.h>

#include <future>

#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/log_capture.h"
#include "tavrin/tavrin_proc.h"

static bool load(const std::vector<std::uint8_t>& bytes, const std::string& key) {
    return tavrin::initializeModel("tag", {bytes.data(), bytes.size(), &key});
}

static std::vector<std::uint8_t> model(const std::string& key) {
    auto bytes = modelBytes("small.onnx");
    for (size_t i = 0; i < bytes.size() && !key.empty(); ++i)
        bytes[i] ^= static_cast<std::uint8_t>(key[i % key.size()]);
    return bytes;
}

TEST(ModelRegistry, loadsPlainAndScrambledModelsAndForgetsThem) {
    LogCapture hostsOwn;
    for (const std::string key : {"", "k", "sevenly"}) {
        EXPECT_TRUE(load(model(key), key) && tavrin::isModelInitialized("tag"));
        EXPECT_TRUE(tavrin::deinitializeModel("tag") && !tavrin::isModelInitialized("tag"));
    }
    EXPECT_FALSE(hostsOwn.lines.empty()) << "another logger has taken its place";
    const auto bytes = model("");
    // One function, which can be passed on as it is.
    const tavrin::ModelData nullKey{bytes.data(), bytes.size(), nullptr};
    EXPECT_TRUE(std::async(tavrin::initializeModel, "null key", nullKey).get());
    EXPECT_TRUE(tavrin::deinitializeAllModels() && inferenceInstances.empty());
}

TEST(ModelRegistry, keepsTheOldModelWhenALoadFailsAndLeavesItToItsUsersWhenOneSucceeds) {
    const LogCapture log;
    ASSERT_TRUE(load(model(""), ""));
    const std::shared_ptr<IInference> old = inferenceInstances.at("tag");
    const std::string key = "k";
    auto truncated = model("");
    truncated.resize(truncated.size() / 2);
    EXPECT_FALSE(load(truncated, "") || load(model("sevenly"), "sevenlY"));
    EXPECT_FALSE(load({}, "k") || load(modelBytes("no_tensor.onnx"), ""));
    EXPECT_FALSE(tavrin::initializeModel("tag", {truncated.data(), UINT64_MAX, &key}));
    for (const std::string* used : {static_cast<const std::string*>(nullptr), &key}) {
        EXPECT_FALSE(tavrin::initializeModel("tag", {nullptr, 100, used}));
        EXPECT_EQ(log.lines.back().text,
                  "ERROR [INFERENCE_onnx] Failed to initialize ONNX session: model data is null");
    }
    EXPECT_EQ(inferenceInstances.at("tag"), old);

    ASSERT_TRUE(load(model(""), ""));
    EXPECT_EQ(old.use_count(), 1);
}

TEST(ModelRegistryDeathTest, installsOneConsoleLoggerAtInfoUntilAndAfterAHostsOwn) {
    const auto printsOnce = [] {
        testing::internal::CaptureStdout();
        const bool loaded = load(model(""), "");
        const std::string text = testing::internal::GetCapturedStdout(), line = "Create Inference ONNX\n";
        return loaded && text.find(line) < text.size() && text.find(line) == text.rfind(line);
    };
    const auto comesWithTheFirstLoadAndComesBack = [&] {
        if (plog::get() || load({}, "") || plog::get()->getMaxSeverity() != plog::info || !printsOnce()) return false;
        { const LogCapture hostsOwn; }
        return !plog::get() && printsOnce();
    };
    EXPECT_EXIT(std::exit(comesWithTheFirstLoadAndComesBack() ? 0 : 1), testing::ExitedWithCode(0), "");
}
