#include "inference/session_signature.h"

#include <onnxruntime_cxx_api.h>

#include <stdexcept>
#include <utility>

namespace {

std::string elementTypeName(ONNXTensorElementDataType type) {
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
            return "float";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
            return "float16";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
            return "bfloat16";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
            return "double";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
            return "bool";
        default:
            return "element type " + std::to_string(type);
    }
}

ModelTensor describe(Ort::AllocatedStringPtr name, const Ort::TypeInfo& type) {
    if (type.GetONNXType() != ONNX_TYPE_TENSOR) return {name.get(), "not a tensor", {}};
    const auto tensor = type.GetTensorTypeAndShapeInfo();
    return {name.get(), elementTypeName(tensor.GetElementType()), tensor.GetShape()};
}

}  // namespace

std::vector<std::int64_t> dimensionsOf(const Ort::TypeInfo& type) {
    if (type.GetONNXType() != ONNX_TYPE_TENSOR)
        throw std::runtime_error("the model has an input or output that is not a tensor");
    return type.GetTensorTypeAndShapeInfo().GetShape();
}

ModelSignature readSignature(const Ort::Session& session) {
    const Ort::AllocatorWithDefaultOptions allocator;
    ModelSignature signature;
    for (size_t i = 0; i < session.GetInputCount(); ++i)
        signature.inputs.push_back(describe(session.GetInputNameAllocated(i, allocator), session.GetInputTypeInfo(i)));
    for (size_t i = 0; i < session.GetOutputCount(); ++i)
        signature.outputs.push_back(
            describe(session.GetOutputNameAllocated(i, allocator), session.GetOutputTypeInfo(i)));
    return signature;
}
