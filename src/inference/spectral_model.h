/// @file
/// A model as the streaming engine calls it.
#pragma once

namespace tavrin {

/// Separates the spectra of a window of frames. Any number of engines on any threads may call one.
class ISpectralModel {
public:
    virtual ~ISpectralModel() = default;

    /// Runs the model once on the caller's memory; keeps no pointer. Allocates nothing beside what the runtime does.
    /// @param input [4, frames, bins]: real and imaginary plane of the left and of the right channel.
    /// @param outputs one pointer per stem of the model, in its order, each to room for as many floats as `input` has;
    ///        null: this stem is not wanted. What is not null is written completely.
    /// @throws std::runtime_error with the runtime's message when the execution fails; the outputs may hold anything.
    virtual void run(const float* input, float* const* outputs) = 0;

protected:
    ISpectralModel() = default;
    ISpectralModel(const ISpectralModel&) = default;
    ISpectralModel& operator=(const ISpectralModel&) = default;
};

}  // namespace tavrin
