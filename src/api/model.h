/// @file
/// What a tavrin::Model hides.
#pragma once

#include <memory>

#include "inference/spectral_model.h"
#include "tavrin/separator.h"

namespace tavrin {

/// Hidden, although the class around it is exported.
class [[gnu::visibility("hidden")]] Model::Impl {
public:
    Impl(const ModelData& model, const ModelOptions& options);
    /// A model that is none of the runtime's.
    Impl(std::unique_ptr<ISpectralModel> model, ModelInfo info);

    /// For the streaming engine; streams on any threads may call it at once.
    ISpectralModel& spectral() { return *_model; }
    const ModelInfo& info() const noexcept { return _info; }

private:
    std::unique_ptr<ISpectralModel> _model;
    ModelInfo _info;
};

/// Makes the handle of a model that is none of the runtime's, for benchmarks and tests.
struct [[gnu::visibility("hidden")]] ModelAccess {
    static Model handleOf(std::unique_ptr<ISpectralModel> model, ModelInfo info);
};

}  // namespace tavrin
