/// @file
/// What the pipeline asks of a model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inference/inference.h"

/// One input or output of a model, as the model declares it.
struct ModelTensor {
    std::string name;
    std::string elementType;          ///< "float", "float16", "bool", …
    std::vector<std::int64_t> shape;  ///< -1: not fixed
};

/// All of them, in the model's order.
struct ModelSignature {
    std::vector<ModelTensor> inputs;
    std::vector<ModelTensor> outputs;
};

/// A back-end that can say what its model declares.
class IDescribedModel {
public:
    virtual ~IDescribedModel() = default;
    virtual ModelSignature signature() const = 0;
};

/// Refuses a model that the fixed geometry cannot feed. A back-end that does not describe its model is trusted.
/// @throws std::runtime_error that says what was found and what is needed, unless the model has one input and one
///         output, both float [1, 4, 256, 2048] (batch, planes, frames, bins).
void requireSingleOutputContract(const IInference& inference);
