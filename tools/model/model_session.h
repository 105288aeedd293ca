/// @file
/// A model in the runtime, without the library around it.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "inference/model_contract.h"

namespace tavrin::tool {

/// A loaded model, on the CPU.
class ModelSession {
public:
    /// @param bytes the serialized model, read during the call only.
    /// @throws std::runtime_error with the reason when the runtime cannot load it.
    explicit ModelSession(const std::string& bytes);
    ~ModelSession();
    ModelSession(const ModelSession&) = delete;
    ModelSession& operator=(const ModelSession&) = delete;

    ModelSignature signature() const;

    /// How long one run on noise takes, every flag set: the median of a few after a first one that does not count.
    /// All inputs must be float or bool with fixed dimensions. @throws std::exception when a run fails.
    std::chrono::duration<double> timeOneBlock();

private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace tavrin::tool
