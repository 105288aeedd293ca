// tavrin-model, the shipped models and the script that wraps others, as their users run them.
#include <gtest/gtest.h>
#include "command.h"
#include "inference/inference_onnx.h"
#include "support/signals.h"
#include "tavrin/tavrin_proc.h"

namespace {

const std::string models = TAVRIN_TEST_MODELS "/", tool = TAVRIN_MODEL " ", wrapper = TAVRIN_WRAP_MODEL " ";

using ModelTool = Command;

int shell(const std::string& command) { return run(command).code; }

void expectVerdict(int code, const std::string& text, const std::string& model) {
    const Outcome outcome = run(tool + "inspect " + model);
    EXPECT_EQ(outcome.code, code) << outcome;
    EXPECT_NE((outcome.out + outcome.messages).find(text), std::string::npos) << "lacks: " << text << outcome;
}

TEST_F(ModelTool, saysWhatAModelLacksAndTimesOneThatLacksNothing) {
    expectVerdict(0, "5.9 s of music, takes", "centre");
    expectVerdict(3, "frames and bins look swapped", models + "swapped.onnx");
    expectVerdict(3, "float [1, 4, frames, 2048]; needed is", models + "symbolic.onnx");
    expectVerdict(3, "export it as float", models + "half.onnx");
    expectVerdict(3, "'separated' is no tensor", models + "no_tensor.onnx");
    expectVerdict(3, "indices element out of data bounds", models + "failing.onnx");
    expectVerdict(3, "nowhere.onnx", "nowhere.onnx");
    expectVerdict(2, "is a folder", "/");
}

TEST_F(ModelTool, listsWhatIsHereAndWhatCanBeHad) {
    const std::string list = run("XDG_DATA_HOME=/none TAVRIN_MODELS=" + models + " " + tool + "list").out;
    for (const char* name : {"centre ", "percussive ", "six_stems ", "vocals "})
        EXPECT_TRUE(list.starts_with(name) || list.find(std::string("\n") + name) != std::string::npos) << list;
}

TEST_F(ModelTool, scramblesForTheLibraryAndBackAndNeverOverItsInput) {
    const std::string key = "sevenly", scramble = tool + "scramble plain --key-file key -o ";
    ASSERT_EQ(shell("printf 'sevenly\\r\\n' >key; cp " + models + "passthrough.onnx plain; ln plain link"), 0);
    ASSERT_EQ(shell(scramble + "scrambled"), 0);
    const std::string model = contents("scrambled");
    EXPECT_TRUE(tavrin::initializeModel("tag", {reinterpret_cast<const uint8_t*>(model.data()), model.size(), &key}));
    expectVerdict(3, "a scrambled model needs its key", "scrambled");
    expectVerdict(0, "yes", "scrambled --key-file key");
    for (const std::string output : {"plain", "./link", "key", "/dev/null"}) EXPECT_EQ(shell(scramble + output), 1);
    EXPECT_EQ(contents("plain"), contents(models + "passthrough.onnx"));
    // Longer than any buffer: of zeros, the key over and over.
    ASSERT_EQ(shell("head -c 200001 /dev/zero >plain;" + scramble + "a;" + tool + "unscramble a -o b --key-file key"),
              0);
    std::string keys;
    while (keys.size() < 200001) keys += key;
    EXPECT_EQ(contents("a"), keys.substr(0, 200001));
    EXPECT_EQ(contents("b"), contents("plain"));
}

TEST_F(ModelTool, isServedByTheScriptThatWrapsModels) {
    ASSERT_EQ(shell(wrapper + models + "swapped.onnx wrapped --swap --gain 16"), 0);
    const std::string model = contents("wrapped");
    std::vector<float> in = noise(4 * 256 * 2048, 1), out(in.size());
    EXPECT_TRUE(InferenceONNX::create(model.data(), model.size(), "")->run(in.data(), {out.data()}, {1, 4, 256, 2048}));
    // The model inside clips at 8, and drops the upper half of the bins.
    for (size_t i = 0; i < in.size(); ++i) in[i] = i % 2048 < 1024 ? std::clamp(in[i], -0.5f, 0.5f) : 0;
    EXPECT_EQ(out, in);
    EXPECT_EQ(shell(wrapper + models + "six_stems.onnx six --gain 2 && " + tool + "inspect six"), 0);
    EXPECT_EQ(shell(wrapper + models + "symbolic.onnx fixed && " + tool + "inspect fixed"), 0);
    EXPECT_EQ(shell(wrapper + models + "swapped.onnx unswapped"), 1);
}

TEST_F(ModelTool, takesChordsAndClicksApart) {
    constexpr int rate = 44100;
    std::vector<float> clicks = noise(20 * rate, 1), chord(clicks.size()), mix(chord), stem(chord);
    for (size_t i = 0; i < mix.size(); ++i) {
        const double t = double(i / 2) / rate;
        for (const double pitch : {220.0, 277.2, 329.6, 440.0, 880.0, 1319.0})
            chord[i] += float(0.02 * std::sin(2 * M_PI * pitch * t + double(i % 2)) * std::min({1.0, t, 10 - t}));
        clicks[i] *= float(0.5 * std::exp(-std::fmod(t + 0.25, 0.5) / 0.001));
        mix[i] = chord[i] + clicks[i];
    }
    writeSound("mix.wav", mix, rate);
    ASSERT_EQ(shell(TAVRIN_SEPARATE " mix.wav --model percussive"), 0);
    stem = readSound("mix/percussive.wav").samples;
    ASSERT_EQ(stem.size(), mix.size());
    double chordPower = 0, clickPower = 0, error = 0;
    for (size_t i = 0; i < mix.size(); ++i) {
        chordPower += std::pow(chord[i], 2), clickPower += std::pow(clicks[i], 2);
        error += std::pow(stem[i] - clicks[i], 2);  // of the rest against the chord, too: stem + rest = mix
    }
    // By how many decibels what disturbs a part is weaker than in the mix, for the lesser of both.
    EXPECT_GT(10 * std::log10(std::min(chordPower, clickPower) / error), 12);
}

}  // namespace
