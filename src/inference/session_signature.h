/// @file
/// The inputs and outputs of a loaded model.
#pragma once

#include <cstdint>
#include <vector>

#include "inference/model_contract.h"

namespace Ort {
struct Session;
struct TypeInfo;
}  // namespace Ort

namespace tavrin {

/// The declared dimensions of an input or output. @throws std::runtime_error when it is not a tensor: asked for the
/// shape of a sequence or a map, the runtime would read through a null pointer.
std::vector<std::int64_t> dimensionsOf(const Ort::TypeInfo& type);

/// Asks the session what its model declares. @throws Ort::Exception.
ModelSignature readSignature(const Ort::Session& session);

}  // namespace tavrin
