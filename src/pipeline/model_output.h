/// @file
/// The memory that a model writes one of its outputs to.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "tavrin/export.h"

/// One output, [planes, frames, bins]. What is read of it after a run that wrote nothing is silence, never an earlier
/// run's output.
///
/// Zeroing eight megabytes before every run would cost as much as an eighth of all transforms. Instead every frame
/// carries two marks into the run, in its very first and very last bin, and a frame that comes out with both is zeroed
/// when it is read: a model is taken to write a frame as a whole or not at all.
class ModelOutput {
public:
    /// @throws std::bad_alloc.
    ModelOutput(size_t planes, size_t frames, size_t bins);

    /// For a run whose output will be read. @return where the model is to write.
    float* prepare();

    /// For a run whose output nobody will read.
    float* prepareUnread();

    /// Bin 0 of a frame's first plane; the next plane lies planeStride() floats on.
    TAVRIN_EXPORT const float* frame(size_t index);

    size_t planeStride() const { return _frames * _bins; }

private:
    enum class State : unsigned char {
        silent,         // zeros
        written,        // anything
        markedSilence,  // going into a run: zeros but for the marks
        marked          // going into a run: anything but for the marks
    };

    struct Free {
        void operator()(void* memory) const noexcept { std::free(memory); }
    };

    float& first(size_t frame) { return _values[frame * _bins]; }
    float& last(size_t frame) { return _values[(_planes - 1) * planeStride() + frame * _bins + _bins - 1]; }
    void settle(size_t frame);

    size_t _planes;
    size_t _frames;
    size_t _bins;
    std::vector<State> _states;
    std::unique_ptr<void, Free> _memory;
    float* _values = nullptr;
};
