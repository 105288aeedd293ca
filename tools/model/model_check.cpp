#include "model_check.h"

#include <algorithm>
#include <iterator>

namespace tavrin::tool {

namespace {

using Shape = std::vector<std::int64_t>;
using Tensors = std::vector<ModelTensor>;

const Shape spectrumShape = {1, 4, 256, 2048};
const std::string spectrumName = "unified_input";
const std::string stems[] = {"vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar"};

std::string listed(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
    return list;
}

bool isSwapped(Shape shape) {
    if (shape.size() == spectrumShape.size()) std::swap(shape[2], shape[3]);
    return shape == spectrumShape;
}

// Whether fixing its free dimensions would give the shape.
bool canBecome(const Shape& free, const Shape& fixed) {
    return std::equal(free.begin(), free.end(), fixed.begin(), fixed.end(),
                      [](std::int64_t a, std::int64_t b) { return a < 0 || a == b; });
}

std::string advice(const ModelTensor& tensor, const std::string& type, const Shape& shape) {
    if (tensor.type != type) return "export it as " + type;
    if (shape == spectrumShape && isSwapped(tensor.shape))
        return "frames and bins look swapped: docs/model-contract.md shows how to wrap it";
    if (canBecome(tensor.shape, shape)) return "fix its dimensions: docs/model-contract.md shows how to wrap it";
    return "docs/model-contract.md shows how to export it";
}

void checkTensor(std::vector<std::string>& problems, const std::string& role, const ModelTensor& tensor,
                 const std::string& type, const Shape& shape) {
    if (tensor.type == type && tensor.shape == shape) return;
    std::vector<std::string> needed;
    std::transform(shape.begin(), shape.end(), std::back_inserter(needed), [](auto n) { return std::to_string(n); });
    problems.push_back(role + " '" + tensor.name + "' is " + describe(tensor) + "; needed is " + type + " [" +
                       listed(needed) + "]; " + advice(tensor, type, shape));
}

std::vector<std::string> singleStemProblems(const ModelSignature& model) {
    std::vector<std::string> problems;
    if (model.inputs.size() != 1 || model.outputs.size() != 1)
        problems.push_back("it has " + std::to_string(model.inputs.size()) + " inputs and " +
                           std::to_string(model.outputs.size()) + " outputs; needed is one of each");
    for (const ModelTensor& input : model.inputs) checkTensor(problems, "input", input, "float", spectrumShape);
    for (const ModelTensor& output : model.outputs) checkTensor(problems, "output", output, "float", spectrumShape);
    return problems;
}

void checkNamed(std::vector<std::string>& problems, const std::string& role, const Tensors& tensors,
                const std::string& name, const std::string& type, const Shape& shape) {
    const auto found =
        std::find_if(tensors.begin(), tensors.end(), [&](const ModelTensor& tensor) { return tensor.name == name; });
    if (found != tensors.end()) return checkTensor(problems, role, *found, type, shape);
    problems.push_back("it has no " + role + " '" + name + "'");
}

std::vector<std::string> multiStemProblems(const ModelSignature& model) {
    std::vector<std::string> problems;
    checkNamed(problems, "input", model.inputs, spectrumName, "float", spectrumShape);
    for (const std::string& stem : stems) {
        checkNamed(problems, "input", model.inputs, stem + "_flag", "bool", {1});
        checkNamed(problems, "output", model.outputs, stem + "_output", "float", spectrumShape);
    }
    if (model.inputs.size() > 1 + std::size(stems))
        problems.push_back("it has " + std::to_string(model.inputs.size()) +
                           " inputs; the library feeds the spectrum and six stem flags");
    return problems;
}

}  // namespace

std::string describe(const ModelTensor& tensor) { return tensor.type + " [" + listed(tensor.dimensions) + "]"; }

bool isMultiStem(const ModelSignature& model) {
    return model.outputs.size() > 1 || std::any_of(model.inputs.begin(), model.inputs.end(),
                                                   [](const ModelTensor& input) { return input.name == spectrumName; });
}

std::vector<std::string> contractProblems(const ModelSignature& model) {
    return isMultiStem(model) ? multiStemProblems(model) : singleStemProblems(model);
}

}  // namespace tavrin::tool
