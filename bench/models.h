/// @file
/// Models that cost nothing or next to nothing: what is left is the library.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "api/model_registry.h"
#include "inference/inference.h"
#include "tavrin/tavrin_proc.h"

/// Writes nothing, but for its first run: memory that nobody has ever written to is one page of zeros to the system,
/// and reading it would cost less than reading a model's output does. For one stream.
class IdleModel : public IInference {
public:
    bool run(const float* /*input*/, std::vector<float*> outputs, const Shape& shape) override {
        for (float* output : outputs)
            if (_isFirst) std::fill_n(output, shape.batch * shape.channels * shape.frames * shape.bins, 1e-3f);
        _isFirst = false;
        return true;
    }

private:
    bool _isFirst = true;
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
inline tavrin::TavrinProcConfig configFor(std::shared_ptr<IInference> model, bool interleaved = true) {
    inferenceInstances["benchmark"] = std::move(model);  // a stream keeps the one that it was made with
    tavrin::TavrinProcConfig config;
    config.modelTag = "benchmark";
    config.interleaved = interleaved;
    return config;
}

/// The same with an IdleModel of its own.
inline tavrin::TavrinProcConfig idleConfig(bool interleaved = true) {
    return configFor(std::make_shared<IdleModel>(), interleaved);
}
