/// @file
/// A model for pipeline tests.
#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "inference/inference.h"

/// Passes the spectrum through, or does what it is given instead, and counts its calls.
class FakeInference : public IInference {
public:
    using Model = std::function<bool(const float* input, const std::vector<float*>& outputs, const Shape& shape)>;

    explicit FakeInference(Model model = passThrough) : _model(std::move(model)) {}

    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override {
        ++calls;
        return _model(input, outputs, shape);
    }

    static bool passThrough(const float* input, const std::vector<float*>& outputs, const Shape& shape) {
        for (float* output : outputs)
            std::copy_n(input, shape.batch * shape.channels * shape.frames * shape.bins, output);
        return true;
    }

    int calls = 0;

private:
    Model _model;
};
