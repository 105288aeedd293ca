#include <gtest/gtest.h>

#include <future>
#include <locale>

#include "api/logging.h"
#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/log.h"
#include "support/log_capture.h"
#include "tavrin/tavrin_proc.h"

namespace {

bool load(const std::vector<std::uint8_t>& bytes, const std::string& key) {
    return tavrin::initializeModel("tag", {bytes.data(), bytes.size(), &key});
}

std::vector<std::uint8_t> model(const std::string& key) {
    auto bytes = modelBytes("small.onnx");
    for (size_t i = 0; i < bytes.size() && !key.empty(); ++i)
        bytes[i] ^= static_cast<std::uint8_t>(key[i % key.size()]);
    return bytes;
}

}  // namespace

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
    EXPECT_FALSE(load(truncated, ""));
    EXPECT_FALSE(load(model("sevenly"), "sevenlY"));
    EXPECT_FALSE(load({}, "k") || load(modelBytes("no_tensor.onnx"), ""));
    EXPECT_FALSE(tavrin::initializeModel("tag", {truncated.data(), UINT64_MAX, &key}));
    for (const std::string* used : {static_cast<const std::string*>(nullptr), &key}) {
        EXPECT_FALSE(tavrin::initializeModel("tag", {nullptr, 100, used}));
        EXPECT_EQ(log.texts(plog::error).back(),
                  "[INFERENCE_onnx] Failed to initialize ONNX session: model data is null");
    }
    EXPECT_EQ(inferenceInstances.at("tag"), old);

    ASSERT_TRUE(load(model(""), ""));
    EXPECT_EQ(old.use_count(), 1);
}

TEST(Logging, writesNumbersInTheClassicLocale) {
    struct Grouped : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    LogCapture log;
    const std::locale hosts = std::locale::global({std::locale::classic(), new Grouped});
    TAVRIN_LOG(plog::info, "f()") << 1234567;
    std::locale::global(hosts);
    EXPECT_EQ(log.lines.at(0).text, "1234567");
}

TEST(LoggingDeathTest, isInstalledAgainWhenAHostsOwnCameAndWent) {
    const auto comesBack = [] {
        tavrin::setUpLogging();
        { const LogCapture hostsOwn; }
        const bool isGone = !plog::get();
        tavrin::setUpLogging();
        return isGone && plog::get();
    };
    EXPECT_EXIT(std::exit(comesBack() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(ModelRegistryDeathTest, installsOneConsoleLoggerAtInfoWithTheFirstLoadEvenIfItFails) {
    const auto secondLoadPrintsOnce = [] {
        const bool firstFailed = !plog::get() && !load({}, "") && plog::get()->getMaxSeverity() == plog::info;
        testing::internal::CaptureStdout();
        const bool loaded = load(model(""), "");
        const std::string text = testing::internal::GetCapturedStdout(), line = "Create Inference ONNX\n";
        return firstFailed && loaded && text.find(line) < text.size() && text.find(line) == text.rfind(line);
    };
    EXPECT_EXIT(std::exit(secondLoadPrintsOnce() ? 0 : 1), testing::ExitedWithCode(0), "");
}
