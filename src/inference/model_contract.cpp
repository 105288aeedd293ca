#include "inference/model_contract.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <system_error>

#include "support/transform_length.h"

namespace tavrin {

namespace {

// Far beyond any use, and far below what could overflow a size.
constexpr std::size_t kLongest = std::size_t{1} << 20;
constexpr std::size_t kFewestFrames = 3;  // one with a neighbour on each side

// What the runtime that the library is made for reads; a newer one reads more.
constexpr std::int64_t kSupportedIr = 10;
constexpr std::int64_t kSupportedOpset = 22;

// Model files may come from anywhere: what is printed of them may not steer a terminal.
std::string quoted(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return "'" + text + "'";
}

std::string shapeText(const std::vector<std::int64_t>& shape) {
    std::string text = "[";
    for (std::size_t i = 0; i < shape.size(); ++i) text += (i ? ", " : "") + std::to_string(shape[i]);
    return text + "]";
}

std::string names(const std::vector<ModelTensor>& tensors) {
    std::string list;
    for (const ModelTensor& tensor : tensors) list += (list.empty() ? "" : ", ") + quoted(tensor.name);
    return list;
}

const ModelTensor* named(const std::vector<ModelTensor>& tensors, const std::string& name) {
    const auto found =
        std::find_if(tensors.begin(), tensors.end(), [&](const ModelTensor& tensor) { return tensor.name == name; });
    return found == tensors.end() ? nullptr : &*found;
}

bool isFixed(const std::vector<std::int64_t>& shape) {
    return std::all_of(shape.begin(), shape.end(), [](std::int64_t length) { return length >= 0; });
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

class Judge {
public:
    explicit Judge(const ModelDescription& model) : _model(model) {}

    Verdict judge() {
        judgeFile();
        readMetadata();
        if (_model.signature) {
            judgeInputs();
            judgeOutputs();
            nameStems();
        }
        return std::move(_verdict);
    }

private:
    void complain(std::string problem) { _verdict.problems.push_back(std::move(problem)); }

    void judgeFile() {
        if (!_model.file.whole) complain("it is no ONNX model, or only a part of one; a scrambled model needs its key");
        for (const auto& [file, outside] : _model.file.outside)
            complain("it keeps " + std::to_string(outside.tensors) + " of its tensors, " + quoted(outside.first) +
                     " first, in another file, " + quoted(file) +
                     "; a model is one file: docs/model-contract.md names a script that brings them in");
    }

    const std::string* metadata(const std::string& key) const {
        const auto entry = _model.file.metadata.find(key);
        return entry == _model.file.metadata.end() ? nullptr : &entry->second;
    }

    void complainOf(const std::string& key, const std::string& allowed) {
        complain("its metadata " + key + " is " + quoted(*metadata(key)) + "; allowed is " + allowed);
    }

    // Reads a whole number; leaves `result` alone where there is none. True when it is one that is allowed.
    template <class Number>
    bool readNumber(const std::string& key, std::size_t most, const std::string& unit, Number& result) {
        const std::string* const text = metadata(key);
        if (!text) return true;
        std::size_t number = 0;
        const char* const end = text->data() + text->size();
        const auto [stop, error] = std::from_chars(text->data(), end, number);
        if (error != std::errc() || stop != end || number < 1 || number > most) {
            complainOf(key, "a whole number from 1 to " + std::to_string(most) + unit);
            return false;
        }
        result = static_cast<Number>(number);
        return true;
    }

    void readMetadata() {
        ModelFacts& facts = _verdict.facts;
        if (readNumber("tavrin.frame_length", kLongest, " samples", facts.frameLength) &&
            !isTransformLength(facts.frameLength)) {
            complainOf("tavrin.frame_length", "a multiple of 32 without prime factors above 5");
            facts.frameLength = ModelFacts().frameLength;
        }
        if (metadata("tavrin.hop"))
            readNumber("tavrin.hop", facts.frameLength / 2, " samples, half a frame", facts.hop);
        else if (facts.hop > facts.frameLength / 2)
            complain("its metadata tavrin.frame_length is " + quoted(*metadata("tavrin.frame_length")) +
                     ", too short for the usual hop of 1024 samples; give tavrin.hop, too: at most half a frame");
        readNumber("tavrin.sample_rate", 768000, " Hz", facts.sampleRate);
        readNumber("tavrin.context", kLongest, " frames", facts.context);
        if (const std::string* const window = metadata("tavrin.window")) {
            if (*window != "blackman" && *window != "hann") complainOf("tavrin.window", "blackman or hann");
            facts.window = *window;
        }
        if (const std::string* const text = metadata("tavrin.title")) facts.title = *text;
        if (const std::string* const text = metadata("tavrin.licence")) facts.licence = *text;
        if (const std::string* const text = metadata("tavrin.source")) facts.source = *text;
    }

    void judgeInputs() {
        const std::vector<ModelTensor>& inputs = _model.signature->inputs;
        if (!hasStemFlags(*_model.signature)) {
            if (inputs.size() == 1) return judgeSpectrum(inputs.front());
            return complain("it has " + std::to_string(inputs.size()) + " inputs (" + names(inputs) +
                            "); needed is one, or " + quoted(kSpectrumName) + " and the six stem flags");
        }
        if (const ModelTensor* const spectrum = named(inputs, kSpectrumName))
            judgeSpectrum(*spectrum);
        else
            complain("it has no input " + quoted(kSpectrumName) + ", which goes with stem flags");
        for (const StemNames& stem : kStemNames) {
            const ModelTensor* const flag = named(inputs, stem.flag);
            if (!flag)
                complain("it has no input " + quoted(stem.flag) + "; a model with stem flags has all six");
            else if (flag->elementType != "bool" || flag->shape != std::vector<std::int64_t>{1})
                complain("input " + quoted(flag->name) + " is " + describe(*flag) + "; needed is bool [1]");
            if (!named(_model.signature->outputs, stem.output))
                complain("it has no output " + quoted(stem.output) + "; a model with stem flags has all six");
        }
        if (inputs.size() > 1 + kStemNames.size())
            complain("it has " + std::to_string(inputs.size()) + " inputs (" + names(inputs) +
                     "); the library feeds the spectrum and six stem flags");
    }

    void judgeSpectrum(const ModelTensor& input) {
        const std::vector<std::int64_t>& shape = input.shape;
        const auto mostBins = static_cast<std::int64_t>(_verdict.facts.frameLength / 2);
        const bool fits = input.elementType == "float" && shape.size() == 4 && shape[0] == 1 && shape[1] == 4 &&
                          shape[2] >= std::int64_t{kFewestFrames} && shape[2] <= std::int64_t{kLongest} &&
                          shape[3] >= 1 && shape[3] <= mostBins && !looksSwapped(shape);
        if (!fits)
            return complain("input " + quoted(input.name) + " is " + describe(input) +
                            "; needed is float [1, 4, frames, bins] with at least " + std::to_string(kFewestFrames) +
                            " frames and at most " + std::to_string(mostBins) + " bins, half a frame's samples; " +
                            adviceFor(input));
        _verdict.facts.frames = static_cast<std::size_t>(shape[2]);
        _verdict.facts.bins = static_cast<std::size_t>(shape[3]);
        _spectrum = &input;
        if (_verdict.facts.context > (_verdict.facts.frames - 1) / 2)
            complainOf("tavrin.context", "what leaves a frame of a call of " + std::to_string(_verdict.facts.frames) +
                                             ": 1 to " + std::to_string((_verdict.facts.frames - 1) / 2) + " frames");
    }

    // Bins where the frames belong. A model that gives its frame length is believed.
    bool looksSwapped(const std::vector<std::int64_t>& shape) const {
        const auto usualBins = static_cast<std::int64_t>(_verdict.facts.frameLength / 2);
        return shape.size() == 4 && shape[2] == usualBins && shape[3] != usualBins && !metadata("tavrin.frame_length");
    }

    std::string adviceFor(const ModelTensor& input) const {
        if (!input.elementType.empty() && input.elementType != "float") return "export it as float";
        if (looksSwapped(input.shape))
            return "frames and bins look swapped: docs/model-contract.md shows how to wrap it";
        if (!isFixed(input.shape)) return "fix its dimensions: docs/model-contract.md shows how to wrap it";
        if (input.shape.size() == 4 && input.shape[3] == static_cast<std::int64_t>(_verdict.facts.frameLength / 2 + 1))
            return "leave out the last bin, at half the sample rate";
        return "docs/model-contract.md shows how to export it";
    }

    void judgeOutputs() {
        const std::vector<ModelTensor>& outputs = _model.signature->outputs;
        if (outputs.empty() || outputs.size() > kMostStems)
            complain("it has " + std::to_string(outputs.size()) + " outputs; needed are 1 to " +
                     std::to_string(kMostStems));
        for (const ModelTensor& output : outputs) {
            if (named(_model.signature->inputs, output.name))
                complain("output " + quoted(output.name) +
                         " is the input itself; the model has to compute its outputs, be it with an Identity");
            else if (_spectrum && (output.elementType != "float" || output.shape != _spectrum->shape))
                complain("output " + quoted(output.name) + " is " + describe(output) +
                         "; needed is what the input is, float " + shapeText(_spectrum->shape));
            else if (output.elementType != "float" || !isFixed(output.shape))
                complain("output " + quoted(output.name) + " is " + describe(output) +
                         "; needed is float with the input's dimensions, all fixed");
        }
    }

    void nameStems() {
        const std::vector<ModelTensor>& outputs = _model.signature->outputs;
        std::vector<std::string>& stems = _verdict.facts.stems;
        const std::string* const list = metadata("tavrin.stems");
        if (list) {
            for (std::size_t begin = 0, end = 0; end != list->npos; begin = end + 1) {
                end = list->find(',', begin);
                stems.push_back(trimmed(list->substr(begin, end == list->npos ? end : end - begin)));
            }
            if (stems.size() != outputs.size())
                complainOf("tavrin.stems", "one name for each of its " + std::to_string(outputs.size()) +
                                               " outputs, separated by commas");
        } else {
            for (const ModelTensor& output : outputs) stems.push_back(stemOf(output.name));
        }
        // Stems become file names, and "rest" is what remains beside them.
        std::set<std::string> seen;
        for (const std::string& stem : stems) {
            const bool isPlain = std::none_of(stem.begin(), stem.end(), [](unsigned char c) {
                return c < 0x20 || c == 0x7F || c == '/' || c == '\\';
            });
            if (stem.empty() || stem == "." || stem == ".." || stem == "rest" || !isPlain || !seen.insert(stem).second)
                complain("a stem is called " + quoted(stem) +
                         (list ? " in its metadata tavrin.stems" : " after its output") +
                         "; stems need names of their own that can be file names, other than 'rest'" +
                         (list ? "" : ": give them in the metadata tavrin.stems"));
        }
    }

    std::string stemOf(const std::string& output) const {
        if (hasStemFlags(*_model.signature))
            for (const StemNames& stem : kStemNames)
                if (output == stem.output) return stem.stem;
        constexpr const char* kEnd = "_output";
        return output.ends_with(kEnd) ? output.substr(0, output.size() - std::string(kEnd).size()) : output;
    }

    const ModelDescription& _model;
    const ModelTensor* _spectrum = nullptr;  // the spectral input, if it is as it has to be
    Verdict _verdict;
};

}  // namespace

std::string describe(const ModelTensor& tensor) {
    if (tensor.elementType.empty()) return "no tensor";
    std::string list;
    for (const std::string& dimension : tensor.dimensions) list += (list.empty() ? "" : ", ") + dimension;
    return tensor.elementType + " [" + list + "]";
}

bool hasStemFlags(const ModelSignature& model) {
    return named(model.inputs, kSpectrumName) ||
           std::any_of(kStemNames.begin(), kStemNames.end(),
                       [&](const StemNames& stem) { return named(model.inputs, stem.flag); });
}

Verdict judge(const ModelDescription& model) { return Judge(model).judge(); }

std::string loadProblem(const OnnxFile& file, std::string message) {
    message.resize(message.find_last_not_of(" \n") + 1);
    const auto standard = file.opsets.find("");
    const std::int64_t opset = standard == file.opsets.end() ? 0 : standard->second;
    if (file.irVersion <= kSupportedIr && opset <= kSupportedOpset) return message;
    return message + "; the model has IR version " + std::to_string(file.irVersion) + " and operator set " +
           std::to_string(opset) + ", every runtime that this library takes reads those up to " +
           std::to_string(kSupportedIr) + " and " + std::to_string(kSupportedOpset) + ": export it for these";
}

}  // namespace tavrin
