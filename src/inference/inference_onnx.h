/// @file
/// Makes ONNX Runtime back-ends from serialized models.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "inference/inference.h"
#include "tavrin/export.h"

namespace InferenceONNX {

/// Builds a back-end for a model with one input and one output, both float with fixed dimensions.
///
/// Execution providers are tried in the order DirectML, QNN, CUDA, ROCm, CoreML among those that the runtime offers;
/// `provider`, when not empty, is tried before them. The last one that yields a session serves the model, and the
/// CPU provider serves it when none does.
///
/// @param data,size the serialized model, read during the call only.
/// @param provider an execution provider's name as the runtime reports it, or empty.
/// @throws std::runtime_error when the loaded runtime is older than the headers the library was built with;
///         Ort::Exception (a std::exception with the runtime's message) when the model cannot be loaded.
/// Threads: not concurrently with readers of the process environment when the runtime offers QNN.
TAVRIN_EXPORT std::shared_ptr<IInference> create(const void* data, size_t size, const std::string& provider);

}  // namespace InferenceONNX
