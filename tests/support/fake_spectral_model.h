/// @file
/// A model for the streaming engine.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "api/model.h"
#include "inference/spectral_model.h"

/// Does what it is given.
struct FakeSpectralModel : tavrin::ISpectralModel {
    using Model = std::function<void(const float* input, float* const* outputs)>;

    explicit FakeSpectralModel(Model does) : model(std::move(does)) {}
    void run(const float* input, float* const* outputs) override { model(input, outputs); }

    Model model;
};

/// Copies what it is given to every stem that is wanted: a model without a state, for any number of threads.
inline FakeSpectralModel::Model passOn(size_t stems, size_t size) {
    return [=](const float* in, float* const* out) {
        for (size_t s = 0; s < stems; ++s)
            if (out[s]) std::copy_n(in, size, out[s]);
    };
}

/// The handle of a fake with stems "a", "b", … and the given geometry; all its bins are seen.
inline tavrin::Model fakeModel(FakeSpectralModel::Model does, size_t stems, size_t frameLength, size_t hop,
                               size_t frames) {
    tavrin::ModelInfo info;
    for (size_t s = 0; s < stems; ++s) info.stems.emplace_back(1, char('a' + s));
    info.sampleRate = 48000, info.window = "blackman";
    info.frameLength = frameLength, info.hop = hop;
    info.frames = frames, info.bins = frameLength / 2, info.context = 2;
    return tavrin::ModelAccess::handleOf(std::make_unique<FakeSpectralModel>(std::move(does)), info);
}
