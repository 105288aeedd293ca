#include "inference/model_contract.h"

#include <gtest/gtest.h>

using namespace tavrin;
using testing::IsSubstring;

// Protobuf's wire format: seven bits a byte, the lowest first.
static std::string number(size_t value) {
    std::string text;
    for (; value > 0x7F; value >>= 7) text += static_cast<char>(value | 0x80);
    return text + static_cast<char>(value);
}

static std::string field(size_t tag, const std::string& bytes) {
    return number(tag << 3 | 2) + number(bytes.size()) + bytes;
}

static OnnxFile read(const std::string& bytes) { return readOnnxFile(bytes.data(), bytes.size()); }

static ModelTensor tensor(const std::string& name, std::vector<std::int64_t> shape, const std::string& type = "float") {
    std::vector<std::string> dimensions;
    for (const std::int64_t length : shape) dimensions.push_back(length < 0 ? "?" : std::to_string(length));
    return {name, type, std::move(shape), dimensions};
}

static ModelDescription plain(std::vector<std::int64_t> shape = {1, 4, 256, 2048}) {
    ModelDescription model;
    model.file.whole = true;
    model.signature = ModelSignature{{tensor("spectrum", shape)}, {tensor("voice", shape)}};
    return model;
}

static ModelDescription withFlags() {
    ModelDescription model = plain();
    model.signature->inputs = {tensor(kSpectrumName, {1, 4, 256, 2048})};
    model.signature->outputs.clear();
    for (const StemNames& stem : kStemNames) {
        model.signature->inputs.push_back(tensor(stem.flag, {1}, "bool"));
        model.signature->outputs.push_back(tensor(stem.output, {1, 4, 256, 2048}));
    }
    return model;
}

static std::string problemsOf(const ModelDescription& model) {
    std::string text;
    for (const std::string& problem : judge(model).problems) text += problem + '\n';
    return text;
}

TEST(OnnxFile, findsNumbersInOtherFilesWhereverAModelHoldsATensor) {
    // An initializer; a sparse one's values and indices; a Constant, a list of tensors, a sparse one, a list of these;
    // a graph within the graph, a list of graphs; training's two graphs; a function's Constant and list of graphs.
    const std::vector<size_t> places[] = {
        {7, 5},           {7, 15, 1},       {7, 15, 2},      {7, 1, 5, 5},           {7, 1, 5, 10},
        {7, 1, 5, 22, 1}, {7, 1, 5, 23, 1}, {7, 1, 5, 6, 5}, {7, 1, 5, 11, 1, 5, 5}, {20, 1, 5},
        {20, 2, 5},       {25, 7, 5, 5},    {25, 11, 5}};
    for (const std::vector<size_t>& place : places) {
        std::string bytes = field(8, "W") + field(13, field(1, "location") + field(2, "../up/w.bin"));
        for (auto tag = place.rbegin(); tag != place.rend(); ++tag) bytes = field(*tag, bytes);
        const std::string problem = "it keeps 1 of its tensors, 'W' first, in another file, '../up/w.bin'; ";
        EXPECT_PRED_FORMAT2(IsSubstring, problem, problemsOf({read(bytes)})) << testing::PrintToString(place);
    }
    // Said by the tensor's data_location alone, also as 2^32 + 1, which the runtime reads as 1.
    for (const std::string location : {"\x70\x01", "\x70\x81\x80\x80\x80\x10"})
        EXPECT_EQ(read(field(7, field(5, location))).outside.size(), 1U);
    EXPECT_TRUE(read(field(7, field(5, std::string("\x70\x00", 2)))).outside.empty());
}

TEST(OnnxFile, takesDamagedAndHostileBytesForNoModel) {
    std::string nested;
    for (int depth = 0; depth < 50; ++depth) nested = field(1, field(5, field(6, nested)));
    for (const std::string& bytes : {std::string(), field(7, nested), std::string("\x3A\xFF\xFF\xFF\xFF\x0F", 6),
                                     std::string(20, '\xFF'), std::string("\x3B\x3C", 2)})
        EXPECT_FALSE(read(bytes).whole);
}

TEST(ModelContract, namesEverythingThatIsWrong) {
    const auto changed = [](ModelDescription model, void (*change)(ModelSignature&)) {
        change(*model.signature);
        return model;
    };
    const auto says = [](const std::string& key, const std::string& value, ModelDescription model = plain()) {
        model.file.metadata["tavrin." + key] = value;
        return model;
    };
    const auto two = changed(plain(), [](auto& s) { s.outputs.push_back(tensor("b_output", {1, 4, 256, 2048})); });
    const std::pair<ModelDescription, std::string> cases[] = {
        {ModelDescription{}, "no ONNX model"},
        {plain({1, 4, 2048, 256}),
         "float [1, 4, 2048, 256]; needed is float [1, 4, frames, bins] with at least 3 frames and "
         "at most 2048 bins, half a frame's samples; frames and bins look swapped"},
        {plain({1, 4, -1, 2048}), "fix its dimensions"},
        {plain({1, 4, 256, 2049}), "leave out the last bin"},
        {plain({1, 4, 2, 2048}), "needed is float"},
        {plain({1, 4, 1 << 21, 2048}), "needed is float"},
        {plain({1, 2, 256, 2048}), "needed is float"},
        {changed(plain(), [](auto& s) { s.inputs[0].elementType = "float16"; }), "export it as float"},
        {changed(plain(), [](auto& s) { s.inputs[0] = tensor("list", {}, ""); }), "'list' is no tensor"},
        {changed(plain(), [](auto& s) { s.inputs.push_back(tensor("more", {1})); }), "2 inputs ('spectrum', 'more')"},
        {changed(plain(), [](auto& s) { s.outputs[0].name = "spectrum"; }), "is the input itself"},
        {changed(plain(), [](auto& s) { s.outputs.push_back(tensor("b", {1})); }), "'b' is float [1]"},
        {changed(plain(), [](auto& s) { s.outputs[0].elementType = "double"; }), "'voice' is double"},
        {changed(plain(), [](auto& s) { s.outputs.clear(); }), "0 outputs"},
        {changed(plain(), [](auto& s) { s.outputs.resize(65, s.outputs[0]); }), "65 outputs"},
        {changed(plain(), [](auto& s) { s.outputs[0].name = "rest"; }), "'rest' after its output"},
        {changed(plain(), [](auto& s) { s.outputs[0].name = "a/b"; }), "tavrin.stems"},
        {changed(withFlags(), [](auto& s) { s.inputs.erase(s.inputs.begin()); }), "no input 'unified_input'"},
        {changed(withFlags(), [](auto& s) { s.inputs.pop_back(); }), "no input 'electric_guitar_flag'"},
        {changed(withFlags(), [](auto& s) { s.inputs[1].shape = {2}; }), "needed is bool [1]"},
        {changed(withFlags(), [](auto& s) { s.outputs.pop_back(); }), "no output 'electric_guitar_output'"},
        {changed(withFlags(), [](auto& s) { s.inputs.push_back(tensor("more", {1})); }), "8 inputs"},
        {says("stems", "same,same", two), "names of their own"}};
    for (const auto& [model, problem] : cases) EXPECT_PRED_FORMAT2(IsSubstring, problem, problemsOf(model));
    const std::tuple<const char*, const char*, const char*> metadata[] = {
        {"frame_length", "4100", "a multiple of 32"},     {"window", "Hann", "blackman or hann"},
        {"frame_length", "448", "prime factors above 5"}, {"window", "\x1B[2J", "is '?[2J'; "},
        {"frame_length", "1024", "too short for the"},    {"sample_rate", "768001", "768000 Hz"},
        {"hop", "99999999999999999999999", "1 to 2048"},  {"context", "128", "1 to 127 frames"},
        {"hop", "0", "a whole number from 1 to 2048"},    {"hop", "12x", "hop is '12x'; "},
        {"stems", "a,b", "one name for each of its 1"},   {"hop", "", "is ''; allowed is"},
        {"stems", "a\\b", "'a\\b' in its metadata"},      {"stems", "", "'' in its metadata"}};
    for (const auto& [key, value, problem] : metadata)
        EXPECT_PRED_FORMAT2(IsSubstring, problem, problemsOf(says(key, value)));
    for (const auto& model : {plain(), withFlags(), plain({1, 4, 3, 1}), says("context", "127"), says("hop", "2048")})
        EXPECT_EQ(problemsOf(model), "");
    EXPECT_EQ(judge(two).facts.stems, (std::vector<std::string>{"voice", "b"}));
}
