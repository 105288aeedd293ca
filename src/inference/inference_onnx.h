/// @file
/// Makes ONNX Runtime back-ends from serialized models.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "inference/inference.h"
#include "inference/stem_flags.h"
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

/// Builds a back-end for a multi-stem model: the inputs "unified_input", float [1, 4, 256, 2048], and one bool [1] flag
/// per stem; one float output per stem. Its run() takes a buffer per output name, in that order, and returns silence
/// for the stems that are switched off. It logs its time at warning.
///
/// @param inputNames not used by run(), which passes the seven inputs of the contract; may be empty.
/// @param outputNames the outputs to fetch, in the order of run()'s buffers. Give them: when empty, the first output's
///        name is taken once for every output of the model.
/// @param data,size,provider as for create(). @throws as create().
/// Threads: the flags and run() are one piece of state without a lock.
TAVRIN_EXPORT std::shared_ptr<IInference> createMultiStem(const void* data, size_t size,
                                                          const std::vector<std::string>& inputNames,
                                                          const std::vector<std::string>& outputNames,
                                                          const std::string& provider);

/// Chooses the stems of the next run(); before the first call, none. Of each flag the lowest bit counts.
/// @throws std::invalid_argument when `inference` was not made by createMultiStem().
TAVRIN_EXPORT void setStemFlags(const std::shared_ptr<IInference>& inference, StemFlags flags);

}  // namespace InferenceONNX
