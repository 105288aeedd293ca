/// @file
/// What the pipeline asks of a model.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "inference/inference.h"

/// Spectra in and out of every model: batch, real and imaginary planes of two channels, frames, bins.
inline const std::vector<std::int64_t> kSpectrumShape = {1, 4, 256, 2048};

/// The spectral input of a multi-stem model.
inline constexpr const char* kSpectrumName = "unified_input";

/// What a multi-stem model calls the flag input and the output of a stem.
struct StemNames {
    const char* flag;
    const char* output;
};

/// In the order of StemFlags.
inline constexpr std::array<StemNames, 6> kStemNames = {{{"vocals_flag", "vocals_output"},
                                                         {"drum_flag", "drum_output"},
                                                         {"bass_flag", "bass_output"},
                                                         {"piano_flag", "piano_output"},
                                                         {"acoustic_guitar_flag", "acoustic_guitar_output"},
                                                         {"electric_guitar_flag", "electric_guitar_output"}}};

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
///         output, both float [1, 4, 256, 2048].
void requireSingleOutputContract(const IInference& inference);

/// The same for multi-stem models: the seven inputs and six outputs by name, types and dimensions as they must be.
void requireMultiStemContract(const IInference& inference);
