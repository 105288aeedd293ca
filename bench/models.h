/// @file
/// Models that cost nothing or next to nothing: what is left is the library.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "api/model.h"
#include "api/model_registry.h"
#include "bare_transforms.h"
#include "inference/inference.h"

/// The floats of a spectrum in or out of a model.
inline constexpr size_t kSpectrumSize = 4 * kFrames * kFrameLength / 2;

/// Writes nothing, but for its first run: memory that nobody has ever written to is one page of zeros to the system,
/// and reading it would cost less than reading a model's output does. For one stream.
class IdleModel : public tavrin::ISpectralModel, public IInference {
public:
    explicit IdleModel(size_t stems) : _stems(stems) {}

    void run(const float* /*input*/, float* const* outputs) override {
        for (size_t s = 0; s < _stems && _isFirst; ++s)
            if (outputs[s]) std::fill_n(outputs[s], kSpectrumSize, 1e-3f);
        _isFirst = false;
    }

    bool run(const float* input, std::vector<float*> outputs, const Shape& /*shape*/) override {
        run(input, outputs.data());
        return true;
    }

private:
    size_t _stems;
    bool _isFirst = true;
};

/// Copies its input, so that synthesis has real spectra to work on.
class CopyingModel : public tavrin::ISpectralModel {
public:
    void run(const float* input, float* const* outputs) override { std::copy_n(input, kSpectrumSize, outputs[0]); }
};

/// A model of the usual geometry with so many stems.
inline tavrin::Model handleOf(std::unique_ptr<tavrin::ISpectralModel> model, size_t stems = 1) {
    tavrin::ModelInfo info;
    for (size_t s = 0; s < stems; ++s) info.stems.push_back("stem" + std::to_string(s));
    info.sampleRate = 44100;
    info.frameLength = kFrameLength;
    info.hop = kHop;
    info.window = "blackman";
    info.frames = kFrames;
    info.bins = kFrameLength / 2;
    info.context = 1;
    return tavrin::ModelAccess::handleOf(std::move(model), info);
}

/// A model that does nothing, for one stream.
inline tavrin::Model idleModel(size_t stems = 1) { return handleOf(std::make_unique<IdleModel>(stems), stems); }
