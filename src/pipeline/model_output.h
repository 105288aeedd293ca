/// @file
/// The memory that a model writes one of its outputs to.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

/// One output, [planes, frames, bins]. What is read of it after a run that wrote nothing is silence, never an earlier
/// run's output: a frame is zeroed once it has been used, while it still lies in the cache, and what was not used is
/// zeroed before the next run.
///
/// Memory that neither the model nor anybody else has written to is not resident.
class ModelOutput {
public:
    /// @throws std::bad_alloc.
    ModelOutput(size_t planes, size_t frames, size_t bins)
        : _planes(planes),
          _frames(frames),
          _bins(bins),
          _memory(std::calloc(planes * frames * bins * sizeof(float) + kAlignment, 1)),
          _written(frames, false) {
        if (!_memory) throw std::bad_alloc();
        size_t space = planes * frames * bins * sizeof(float) + kAlignment;
        void* memory = _memory.get();
        _values = static_cast<float*>(std::align(kAlignment, planes * frames * bins * sizeof(float), memory, space));
    }

    /// For a run whose output will be read: everything is zero.
    float* prepare() {
        for (size_t f = 0; f < _frames; ++f)
            if (_written[f]) erase(f);
        return prepareUnread();
    }

    /// For a run whose output nobody will read.
    float* prepareUnread() {
        std::fill(_written.begin(), _written.end(), true);
        return _values;
    }

    /// Bin 0 of a frame's first plane; the next plane lies planeStride() floats on.
    const float* frame(size_t index) const { return _values + index * _bins; }

    size_t planeStride() const { return _frames * _bins; }

    /// Zeroes a frame that has been used.
    void erase(size_t frame) {
        for (size_t p = 0; p < _planes; ++p) std::fill_n(_values + p * planeStride() + frame * _bins, _bins, 0.0f);
        _written[frame] = false;
    }

private:
    struct Free {
        void operator()(void* memory) const noexcept { std::free(memory); }
    };

    static constexpr size_t kAlignment = 64;

    size_t _planes;
    size_t _frames;
    size_t _bins;
    std::unique_ptr<void, Free> _memory;
    float* _values = nullptr;
    std::vector<char> _written;  // per frame: may hold something else than zeros
};
