/// @file
/// Whether the library can run a model, and what to change if not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavrin::tool {

/// One input or output of a model, as the model declares it.
struct ModelTensor {
    std::string name;
    std::string type;                     ///< of an element: "float", "bool", …
    std::vector<std::int64_t> shape;      ///< -1: not fixed
    std::vector<std::string> dimensions;  ///< the shape for the reader: a number, a name, or "?"
};

/// "float [1, 4, frames, 2048]".
std::string describe(const ModelTensor& tensor);

/// All of them, in the model's order.
struct ModelSignature {
    std::vector<ModelTensor> inputs;
    std::vector<ModelTensor> outputs;
};

/// @return whether the model is to be judged as one with several stems: it has several outputs, or names of that
/// contract.
bool isMultiStem(const ModelSignature& model);

/// @return one text per thing that has to change before the library takes the model; none when it meets the contract,
/// the multi-stem one if isMultiStem().
std::vector<std::string> contractProblems(const ModelSignature& model);

}  // namespace tavrin::tool
