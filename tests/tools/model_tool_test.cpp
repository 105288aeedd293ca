// tavrin-model, the shipped models and the script that wraps others, as their users run them.
#include <gtest/gtest.h>
#include "command.h"
#include "inference/inference_onnx.h"
#include "support/signals.h"

namespace {

const std::string models = TAVRIN_TEST_MODELS "/", tool = TAVRIN_MODEL " ", wrapper = TAVRIN_WRAP_MODEL " ";

using ModelTool = Command;

const std::string inspect = "exec >&2; " + tool + "inspect ";

TEST_F(ModelTool, saysWhatAModelLacksAndTimesOneThatLacksNothing) {
    expect(0, inspect + "centre", "5.9 s of music, takes");
    expect(3, inspect + models + "swapped.onnx", "frames and bins look swapped");
    expect(3, inspect + models + "symbolic.onnx", "float [1, 4, frames, 2048]; needed is");
    expect(3, inspect + models + "half.onnx", "export it as float");
    expect(3, inspect + models + "no_tensor.onnx", "'separated' is no tensor");
    expect(3, inspect + models + "failing.onnx", "indices element out of data bounds");
    expect(3, inspect + "nowhere.onnx", "nowhere.onnx");
    expect(2, inspect + "/", "Is a directory");
    const std::string list = "XDG_DATA_HOME=/none TAVRIN_MODELS=" + models + " " + tool + "list";
    for (const std::string name : {"centre", "percussive", "six_stems", "vocals"})
        expect(0, list + " | grep '^" + name + " '");
}

TEST_F(ModelTool, scramblesForTheLibraryAndBackAndNeverOverItsInput) {
    const std::string scramble = tool + "scramble plain --key-file key -o ";
    expect(0, "printf 'sevenly\\r\\n' >key; cp " + models + "passthrough.onnx plain; ln plain link; " + scramble + "s");
    expect(3, inspect + "s", "a scrambled model needs its key");
    expect(0, inspect + "s --key-file key", "yes");
    for (const std::string file : {"plain", "./link", "key", "/dev/null"}) expect(1, scramble + file);
    expect(0, "cmp plain " + models + "passthrough.onnx");
    // Longer than any buffer: of zeros, the key over and over.
    expect(0, "head -c 200001 /dev/zero >plain;" + scramble + "a;" + tool +
                  "unscramble a -o b --key-file key; cmp b plain");
    expect(0, "yes sevenly | tr -d '\\n' | head -c 200001 | cmp - a");
}

TEST_F(ModelTool, isServedByTheScriptThatWrapsModels) {
    expect(0, wrapper + models + "swapped.onnx wrapped --swap --gain 16");
    const std::string model = contents("wrapped");
    std::vector<float> in = noise(4 * 256 * 2048, 1), out(in.size());
    EXPECT_TRUE(InferenceONNX::create(model.data(), model.size(), "")->run(in.data(), {out.data()}, {1, 4, 256, 2048}));
    // The model inside clips at 8, and drops the upper half of the bins.
    for (size_t i = 0; i < in.size(); ++i) in[i] = i % 2048 < 1024 ? std::clamp(in[i], -0.5f, 0.5f) : 0;
    EXPECT_EQ(out, in);
    expect(1, wrapper + models + "swapped.onnx unswapped");
}

}  // namespace
