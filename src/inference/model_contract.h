/// @file
/// What the library asks of a model, and what a model that meets it says of itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inference/onnx_file.h"

namespace tavrin {

/// The spectral input of a multi-stem model.
inline constexpr const char* kSpectrumName = "unified_input";

/// What a multi-stem model calls the flag input and the output of a stem, and what the stem is called.
struct StemNames {
    const char* flag;
    const char* output;
    const char* stem;
};

/// In the order of StemFlags.
inline constexpr std::array<StemNames, 6> kStemNames = {
    {{"vocals_flag", "vocals_output", "vocals"},
     {"drum_flag", "drum_output", "drums"},
     {"bass_flag", "bass_output", "bass"},
     {"piano_flag", "piano_output", "piano"},
     {"acoustic_guitar_flag", "acoustic_guitar_output", "acoustic_guitar"},
     {"electric_guitar_flag", "electric_guitar_output", "electric_guitar"}}};

/// The most stems of a model.
inline constexpr std::size_t kMostStems = 64;

/// One input or output of a model, as the model declares it.
struct ModelTensor {
    std::string name;
    std::string elementType;              ///< "float", "float16", "bool", …; empty: no tensor
    std::vector<std::int64_t> shape;      ///< negative: not fixed
    std::vector<std::string> dimensions;  ///< the shape for the reader: a number, a name, or "?"
};

/// "float [1, 4, frames, 2048]", "no tensor".
std::string describe(const ModelTensor& tensor);

/// All of them, in the model's order.
struct ModelSignature {
    std::vector<ModelTensor> inputs;
    std::vector<ModelTensor> outputs;
};

/// Whether the model has inputs of the multi-stem contract, and is judged by it: a spectrum and six stem flags.
bool hasStemFlags(const ModelSignature& model);

/// All that the contract is about.
struct ModelDescription {
    OnnxFile file;
    std::optional<ModelSignature> signature = {};  ///< empty as long as the runtime has not loaded the model
};

/// What a model that meets the contract says of itself.
struct ModelFacts {
    std::vector<std::string> stems;  ///< one per output
    std::uint32_t sampleRate = 44100;
    std::size_t frameLength = 4096;  ///< samples
    std::size_t hop = 1024;          ///< samples
    std::string window = "blackman";
    std::size_t frames = 0;   ///< of one model call
    std::size_t bins = 0;     ///< from DC up
    std::size_t context = 1;  ///< frames on both sides of a frame
    std::string title;
    std::string licence;
    std::string source;
};

/// What the contract says of a model.
struct Verdict {
    std::vector<std::string> problems;  ///< a sentence per thing that has to change; none: the library takes the model
    ModelFacts facts;                   ///< without meaning where there is a problem
};

/// Judges a model, by its file alone as long as there is no signature: a file that has problems is not to be loaded.
Verdict judge(const ModelDescription& model);

/// Why the runtime could not load a model: its message, and what to do where the file is newer than runtimes are.
std::string loadProblem(const OnnxFile& file, std::string message);

}  // namespace tavrin
