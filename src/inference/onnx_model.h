/// @file
/// An ONNX model behind the streaming engine.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "inference/model_contract.h"
#include "inference/provider_selection.h"
#include "inference/spectral_model.h"

// The runtime's headers stay in this folder's sources.
namespace Ort {
struct MemoryInfo;
}  // namespace Ort

namespace tavrin {

/// A model that meets the contract, in a session of its own. Does not change after construction.
class OnnxModel final : public ISpectralModel {
public:
    /// @param data,size the serialized model, read during the call only.
    /// @throws std::runtime_error with the first thing that is wrong with the model, when none of the wanted providers
    ///         serves it, or as RuntimeTooOld; std::invalid_argument for a wish out of range; Ort::Exception.
    OnnxModel(const void* data, std::size_t size, const ProviderWish& wish);
    ~OnnxModel() override;
    OnnxModel(const OnnxModel&) = delete;
    OnnxModel& operator=(const OnnxModel&) = delete;

    void run(const float* input, float* const* outputs) override;

    const ModelFacts& facts() const { return _facts; }
    const std::string& provider() const { return _chosen.provider; }
    const std::vector<std::string>& notUsed() const { return _chosen.notUsed; }

private:
    std::unique_ptr<Ort::Env> _environment;
    std::unique_ptr<Ort::MemoryInfo> _memory;
    ChosenSession _chosen;
    ModelFacts _facts;
    std::string _inputName;
    std::vector<std::string> _outputNames;
    bool _hasFlags = false;
    /// Of each output, the stem flag that goes with it: its place in kStemNames.
    std::vector<std::optional<std::size_t>> _flags;
};

}  // namespace tavrin
