/// @file
/// Models that cost nothing or next to nothing: what is left is the library.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "api/model_registry.h"
#include "inference/inference.h"
#include "tavrin/tavrin_proc.h"

/// Writes nothing.
class IdleModel : public IInference {
public:
    bool run(const float* /*input*/, std::vector<float*> /*outputs*/, const Shape& /*shape*/) override { return true; }
};

/// Copies its input, so that synthesis has real spectra to work on.
class CopyingModel : public IInference {
public:
    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override {
        for (float* output : outputs)
            std::copy_n(input, shape.batch * shape.channels * shape.frames * shape.bins, output);
        return true;
    }
};

/// A stream's configuration with a model behind it.
inline tavrin::TavrinProcConfig configFor(std::shared_ptr<IInference> model, const std::string& tag, bool interleaved) {
    inferenceInstances[tag] = std::move(model);
    tavrin::TavrinProcConfig config;
    config.modelTag = tag;
    config.interleaved = interleaved;
    return config;
}
