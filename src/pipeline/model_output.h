/// @file
/// The memory that a model writes one of its outputs to.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

/// One output, [planes, frames, bins]. What is read of it after a run that wrote nothing is silence, never an earlier
/// run's output.
///
/// Zeroing eight megabytes before every run would cost as much as an eighth of all transforms. Instead every frame
/// carries two marks into the run, in its very first and very last bin, and a frame that comes out with both is zeroed
/// when it is read: a model is taken to write a frame as a whole or not at all.
///
/// Memory that nobody has written to is not resident.
class ModelOutput {
public:
    /// @throws std::bad_alloc.
    ModelOutput(size_t planes, size_t frames, size_t bins)
        : _planes(planes), _frames(frames), _bins(bins), _states(frames, State::silent) {
        const size_t bytes = planes * frames * bins * sizeof(float);
        size_t space = bytes + kAlignment;
        _memory.reset(std::calloc(space, 1));
        void* aligned = _memory.get();
        if (!aligned) throw std::bad_alloc();
        _values = static_cast<float*>(std::align(kAlignment, bytes, aligned, space));
    }

    /// For a run whose output will be read.
    float* prepare() {
        for (size_t f = 0; f < _frames; ++f) {
            first(f) = last(f) = kMark;
            _states[f] = _states[f] == State::silent ? State::markedSilence : State::marked;
        }
        return _values;
    }

    /// For a run whose output nobody will read.
    float* prepareUnread() {
        std::fill(_states.begin(), _states.end(), State::written);
        return _values;
    }

    /// Bin 0 of a frame's first plane; the next plane lies planeStride() floats on.
    const float* frame(size_t index) {
        if (_states[index] == State::marked || _states[index] == State::markedSilence) settle(index);
        return &first(index);
    }

    size_t planeStride() const { return _frames * _bins; }

private:
    enum class State : std::uint8_t {
        silent,         // zeros
        written,        // anything
        markedSilence,  // going into a run: zeros but for the marks
        marked          // going into a run: anything but for the marks
    };

    struct Free {
        void operator()(void* memory) const noexcept { std::free(memory); }
    };

    static constexpr size_t kAlignment = 64;
    // Not a number, and not the one that arithmetic gives.
    static constexpr std::uint32_t kMarkBits = 0x7fc5a3c5;
    static constexpr float kMark = std::bit_cast<float>(kMarkBits);

    static bool isMark(float value) { return std::bit_cast<std::uint32_t>(value) == kMarkBits; }

    float& first(size_t frame) { return _values[frame * _bins]; }
    float& last(size_t frame) { return _values[(_planes - 1) * planeStride() + frame * _bins + _bins - 1]; }

    void settle(size_t frame) {
        const bool untouched = isMark(first(frame)) && isMark(last(frame));
        for (size_t p = 0; untouched && _states[frame] == State::marked && p < _planes; ++p)
            std::fill_n(_values + p * planeStride() + frame * _bins, _bins, 0.0f);
        for (float* mark : {&first(frame), &last(frame)})
            if (isMark(*mark)) *mark = 0.0f;
        _states[frame] = untouched ? State::silent : State::written;
    }

    size_t _planes;
    size_t _frames;
    size_t _bins;
    std::vector<State> _states;
    std::unique_ptr<void, Free> _memory;
    float* _values = nullptr;
};
