/// @file
/// The inputs and outputs of a loaded model.
#pragma once

#include "inference/model_contract.h"

namespace Ort {
struct Session;
}

/// Asks the session what its model declares. @throws Ort::Exception.
ModelSignature readSignature(const Ort::Session& session);
