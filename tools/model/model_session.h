/// @file
/// A model in the runtime, without the library around it: also one that the library refuses.
#pragma once

#include <onnxruntime_cxx_api.h>

#include <chrono>
#include <string>

#include "inference/model_contract.h"

namespace tavrin::tool {

/// Loads a model on the CPU. @throws std::exception with the reason when the runtime cannot.
Ort::Session openSession(const std::string& bytes);

/// How long one run on noise takes, every flag set: the median of a few after a first one that does not count.
/// All inputs must be float or bool with fixed dimensions. @throws std::exception when a run fails.
std::chrono::duration<double> timeOneBlock(Ort::Session& session, const ModelSignature& model);

}  // namespace tavrin::tool
