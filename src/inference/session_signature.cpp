#include "inference/session_signature.h"

#include <onnxruntime_cxx_api.h>

#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <string>

namespace tavrin {

namespace {

// Numbered as in ONNXTensorElementDataType.
constexpr const char* kTypeNames[] = {"undefined", "float",  "uint8",     "int8",       "uint16",  "int16",
                                      "int32",     "int64",  "string",    "bool",       "float16", "double",
                                      "uint32",    "uint64", "complex64", "complex128", "bfloat16"};

ModelTensor read(const Ort::AllocatedStringPtr& name, const Ort::TypeInfo& info) {
    ModelTensor result{name.get(), {}, {}, {}};
    if (info.GetONNXType() != ONNX_TYPE_TENSOR) return result;
    const auto tensor = info.GetTensorTypeAndShapeInfo();
    const auto type = static_cast<std::size_t>(tensor.GetElementType());
    result.elementType = type < std::size(kTypeNames) ? kTypeNames[type] : "another type";
    result.shape = tensor.GetShape();
    std::vector<const char*> symbols(result.shape.size());
    if (!symbols.empty()) tensor.GetSymbolicDimensions(symbols.data(), symbols.size());
    for (std::size_t i = 0; i < result.shape.size(); ++i) {
        const std::string symbol = symbols[i] && *symbols[i] ? symbols[i] : "?";
        result.dimensions.push_back(result.shape[i] < 0 ? symbol : std::to_string(result.shape[i]));
    }
    return result;
}

}  // namespace

std::vector<std::int64_t> dimensionsOf(const Ort::TypeInfo& type) {
    if (type.GetONNXType() != ONNX_TYPE_TENSOR)
        throw std::runtime_error("the model has an input or output that is not a tensor");
    return type.GetTensorTypeAndShapeInfo().GetShape();
}

ModelSignature readSignature(const Ort::Session& session) {
    const Ort::AllocatorWithDefaultOptions memory;
    ModelSignature model;
    for (std::size_t i = 0; i < session.GetInputCount(); ++i)
        model.inputs.push_back(read(session.GetInputNameAllocated(i, memory), session.GetInputTypeInfo(i)));
    for (std::size_t i = 0; i < session.GetOutputCount(); ++i)
        model.outputs.push_back(read(session.GetOutputNameAllocated(i, memory), session.GetOutputTypeInfo(i)));
    return model;
}

}  // namespace tavrin
