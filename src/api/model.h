/// @file
/// What a tavrin::Model hides.
#pragma once

#include "inference/onnx_model.h"
#include "tavrin/separator.h"

namespace tavrin {

/// Hidden, although the class around it is exported.
class [[gnu::visibility("hidden")]] Model::Impl {
public:
    Impl(const ModelData& model, const ModelOptions& options);

    /// For the streaming engine; streams on any threads may call it at once.
    ISpectralModel& spectral() { return _model; }
    const ModelInfo& info() const noexcept { return _info; }

private:
    OnnxModel _model;
    ModelInfo _info;
};

}  // namespace tavrin
