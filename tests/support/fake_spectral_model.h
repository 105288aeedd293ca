/// @file
/// A model for the streaming engine.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "inference/spectral_model.h"

/// Does what it is given, and counts its calls.
class FakeSpectralModel : public tavrin::ISpectralModel {
public:
    using Model = std::function<void(const float* input, float* const* outputs)>;

    explicit FakeSpectralModel(Model model) : _model(std::move(model)) {}

    void run(const float* input, float* const* outputs) override {
        ++calls;
        _model(input, outputs);
    }

    int calls = 0;

private:
    Model _model;
};
