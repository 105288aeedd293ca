#include "inference/model_contract.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Dimensions = std::vector<std::int64_t>;

std::string describe(const std::string& elementType, const Dimensions& shape) {
    std::string text = elementType + " [";
    for (size_t i = 0; i < shape.size(); ++i) text += (i ? ", " : "") + (shape[i] < 0 ? "?" : std::to_string(shape[i]));
    return text + "]";
}

void requireTensor(const ModelTensor& tensor, const std::string& elementType, const Dimensions& shape) {
    if (tensor.elementType == elementType && tensor.shape == shape) return;
    std::string message = "the model's '" + tensor.name + "' is " + describe(tensor.elementType, tensor.shape) +
                          "; this library needs " + describe(elementType, shape);
    if (tensor.shape == Dimensions{1, 4, 2048, 256})
        message += ". Frames and bins look swapped: docs/model-contract.md shows how to wrap it";
    throw std::runtime_error(message);
}

const ModelTensor& named(const std::vector<ModelTensor>& tensors, const std::string& name) {
    const auto found =
        std::find_if(tensors.begin(), tensors.end(), [&](const ModelTensor& tensor) { return tensor.name == name; });
    if (found != tensors.end()) return *found;
    std::string names;
    for (const ModelTensor& tensor : tensors) names += (names.empty() ? "" : ", ") + tensor.name;
    throw std::runtime_error("the model has no '" + name + "', which a multi-stem model needs; it has " + names);
}

}  // namespace

void requireSingleOutputContract(const IInference& inference) {
    const auto* described = dynamic_cast<const IDescribedModel*>(&inference);
    if (!described) return;
    const ModelSignature model = described->signature();
    if (model.inputs.size() != 1 || model.outputs.size() != 1)
        throw std::runtime_error("the model has " + std::to_string(model.inputs.size()) + " inputs and " +
                                 std::to_string(model.outputs.size()) + " outputs; this library needs one of each");
    requireTensor(model.inputs[0], "float", kSpectrumShape);
    requireTensor(model.outputs[0], "float", kSpectrumShape);
}

void requireMultiStemContract(const IInference& inference) {
    const auto* described = dynamic_cast<const IDescribedModel*>(&inference);
    if (!described) return;
    const ModelSignature model = described->signature();
    requireTensor(named(model.inputs, kSpectrumName), "float", kSpectrumShape);
    for (const StemNames& stem : kStemNames) {
        requireTensor(named(model.inputs, stem.flag), "bool", {1});
        requireTensor(named(model.outputs, stem.output), "float", kSpectrumShape);
    }
    if (model.inputs.size() != 1 + kStemNames.size())
        throw std::runtime_error("the model has " + std::to_string(model.inputs.size()) +
                                 " inputs; this library feeds the spectrum and six stem flags");
}
