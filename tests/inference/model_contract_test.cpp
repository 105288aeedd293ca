#include "inference/model_contract.h"

#include <gtest/gtest.h>

#include <array>

#include "models/model_bytes.h"

namespace {

using namespace tavrin;

// Protobuf's wire format: seven bits a byte, the lowest first.
std::string number(size_t value) {
    std::string text;
    for (; value > 0x7F; value >>= 7) text += static_cast<char>(value | 0x80);
    return text + static_cast<char>(value);
}

std::string field(size_t tag, const std::string& bytes) { return number(tag << 3 | 2) + number(bytes.size()) + bytes; }

OnnxFile read(const std::string& bytes) { return readOnnxFile(bytes.data(), bytes.size()); }

ModelTensor tensor(const std::string& name, std::vector<std::int64_t> shape, const std::string& type = "float") {
    std::vector<std::string> dimensions;
    for (const std::int64_t length : shape) dimensions.push_back(length < 0 ? "?" : std::to_string(length));
    return {name, type, std::move(shape), dimensions};
}

ModelDescription plain(std::vector<std::int64_t> shape = {1, 4, 256, 2048}) {
    ModelDescription model;
    model.file.whole = true;
    model.signature = ModelSignature{{tensor("spectrum", shape)}, {tensor("voice", shape)}};
    return model;
}

ModelDescription withFlags() {
    ModelDescription model = plain();
    model.signature->inputs = {tensor(kSpectrumName, {1, 4, 256, 2048})};
    model.signature->outputs.clear();
    for (const StemNames& stem : kStemNames) {
        model.signature->inputs.push_back(tensor(stem.flag, {1}, "bool"));
        model.signature->outputs.push_back(tensor(stem.output, {1, 4, 256, 2048}));
    }
    return model;
}

std::string problemsOf(const ModelDescription& model) {
    std::string text;
    for (const std::string& problem : judge(model).problems) text += problem + '\n';
    return text;
}

}  // namespace

TEST(OnnxFile, findsNumbersInOtherFilesWhereverAModelHoldsATensor) {
    // An initializer; a sparse one's values and indices; a Constant, a list of tensors, a sparse one, a list of these;
    // a graph within the graph, a list of graphs; training's two graphs; a function's Constant and list of graphs.
    const std::vector<size_t> places[] = {
        {7, 5},           {7, 15, 1},       {7, 15, 2},      {7, 1, 5, 5},           {7, 1, 5, 10},
        {7, 1, 5, 22, 1}, {7, 1, 5, 23, 1}, {7, 1, 5, 6, 5}, {7, 1, 5, 11, 1, 5, 5}, {20, 1, 5},
        {20, 2, 5},       {25, 7, 5, 5},    {25, 11, 5}};
    for (const std::string file : {"weights.bin", "../up/weights.bin", "/abs/weights.bin"}) {
        for (const std::vector<size_t>& place : places) {
            std::string bytes = field(8, "W") + field(13, field(1, "location") + field(2, file));
            for (auto tag = place.rbegin(); tag != place.rend(); ++tag) bytes = field(*tag, bytes);
            const OnnxFile found = read(bytes);
            ASSERT_TRUE(found.whole && found.outside.contains(file)) << testing::PrintToString(place);
            EXPECT_EQ(found.outside.at(file).first, "W");
            EXPECT_NE(problemsOf({found}).find('\'' + file + '\''), std::string::npos);
        }
    }
    // Said by the tensor's data_location alone, also as 2^32 + 1, which the runtime reads as 1.
    for (const std::string location : {"\x70\x01", "\x70\x81\x80\x80\x80\x10"})
        EXPECT_EQ(read(field(7, field(5, location))).outside.size(), 1U);
    EXPECT_TRUE(read(field(7, field(5, std::string("\x70\x00", 2)))).outside.empty());
}

TEST(OnnxFile, takesDamagedAndHostileBytesForNoModel) {
    const std::vector<std::uint8_t> model = modelBytes("described.onnx");
    const OnnxFile whole = readOnnxFile(model.data(), model.size());
    EXPECT_TRUE(whole.whole);
    EXPECT_EQ(whole.irVersion, 8);
    EXPECT_EQ(whole.opsets.at(""), 13);
    EXPECT_EQ(whole.metadata.at("tavrin.title"), "Halves");
    for (size_t size = 0; size < model.size(); ++size) {
        const std::vector<std::uint8_t> part(model.begin(), model.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(readOnnxFile(part.data(), size).metadata.size(), whole.metadata.size());
    }
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
    const struct {
        ModelDescription model;
        std::string problem;
    } models[] = {
        {ModelDescription{}, "no ONNX model"},
        {plain({1, 4, 2048, 256}), "float [1, 4, 2048, 256]; needed is float [1, 4, frames, bins]"},
        {plain({1, 4, 2048, 256}), "look swapped"},
        {plain({1, 4, -1, 2048}), "fix its dimensions"},
        {plain({1, 4, 256, 2049}), "leave out the last bin"},
        {plain({1, 4, 2, 2048}), "at least 3 frames"},
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
        {changed(withFlags(), [](auto& s) { s.inputs.push_back(tensor("more", {1})); }), "8 inputs"}};
    for (const auto& [model, problem] : models)
        EXPECT_NE(problemsOf(model).find(problem), std::string::npos) << problem;

    const auto withMetadata = [](const std::string& key, const std::string& value) {
        ModelDescription model = plain();
        model.file.metadata["tavrin." + key] = value;
        return model;
    };
    const std::array<const char*, 3> metadata[] = {
        {"frame_length", "4100", "tavrin.frame_length is '4100'; allowed is a multiple of 32"},
        {"hop", "0", "tavrin.hop is '0'; allowed is a whole number from 1 to 2048"},
        {"frame_length", "448", "without prime factors above 5"},
        {"frame_length", "1024", "too short for the usual hop"},
        {"hop", "99999999999999999999999", "from 1 to 2048"},
        {"hop", "12x", "'12x'"},
        {"hop", "", "''"},
        {"sample_rate", "768001", "768000 Hz"},
        {"window", "Hann", "blackman or hann"},
        {"window", "\x1B[2J", "'?[2J'"},
        {"context", "128", "1 to 127 frames"},
        {"context", "0", "tavrin.context"},
        {"stems", "a,b", "one name for each of its 1 outputs"},
        {"stems", "", "'' in its metadata"},
        {"stems", "a\\b", "'a\\b' in its"}};
    for (const auto& [key, value, problem] : metadata)
        EXPECT_NE(problemsOf(withMetadata(key, value)).find(problem), std::string::npos) << problem;
    EXPECT_EQ(problemsOf(plain()) + problemsOf(withFlags()) + problemsOf(plain({1, 4, 3, 1})), "");
    EXPECT_EQ(problemsOf(withMetadata("context", "127")) + problemsOf(withMetadata("hop", "2048")), "");

    ModelDescription two = plain();
    two.signature->outputs.push_back(tensor("two_output", {1, 4, 256, 2048}));
    EXPECT_EQ(judge(two).facts.stems, (std::vector<std::string>{"voice", "two"}));
    two.file.metadata["tavrin.stems"] = "same,same";
    EXPECT_NE(problemsOf(two).find("names of their own"), std::string::npos);
    EXPECT_EQ(judge(withFlags()).facts.stems[1], "drums");
}
