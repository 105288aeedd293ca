#include "inference/model_contract.h"

#include <stdexcept>

namespace {

const std::vector<std::int64_t> kShape = {1, 4, 256, 2048};

std::string describe(const std::string& elementType, const std::vector<std::int64_t>& shape) {
    std::string text = elementType + " [";
    for (size_t i = 0; i < shape.size(); ++i) text += (i ? ", " : "") + (shape[i] < 0 ? "?" : std::to_string(shape[i]));
    return text + "]";
}

void requireSpectrum(const ModelTensor& tensor, const char* role) {
    if (tensor.elementType == "float" && tensor.shape == kShape) return;
    std::string message = std::string("the model's ") + role + " '" + tensor.name + "' is " +
                          describe(tensor.elementType, tensor.shape) + "; this library needs " +
                          describe("float", kShape);
    if (tensor.shape == std::vector<std::int64_t>{1, 4, 2048, 256}) message += " (frames and bins look swapped)";
    throw std::runtime_error(message);
}

}  // namespace

void requireSingleOutputContract(const IInference& inference) {
    const auto* described = dynamic_cast<const IDescribedModel*>(&inference);
    if (!described) return;
    const ModelSignature model = described->signature();
    if (model.inputs.size() != 1 || model.outputs.size() != 1)
        throw std::runtime_error("the model has " + std::to_string(model.inputs.size()) + " inputs and " +
                                 std::to_string(model.outputs.size()) + " outputs; this library needs one of each");
    requireSpectrum(model.inputs[0], "input");
    requireSpectrum(model.outputs[0], "output");
}
