#include "pipeline/model_output.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <new>

namespace {

constexpr size_t kAlignment = 64;

// Not a number, and not the one that arithmetic gives.
constexpr std::uint32_t kMarkBits = 0x7fc5a3c5;
constexpr float kMark = std::bit_cast<float>(kMarkBits);

bool isMark(float value) { return std::bit_cast<std::uint32_t>(value) == kMarkBits; }

}  // namespace

ModelOutput::ModelOutput(size_t planes, size_t frames, size_t bins)
    : _planes(planes), _frames(frames), _bins(bins), _states(frames, State::silent) {
    const size_t bytes = planes * frames * bins * sizeof(float);
    size_t space = bytes + kAlignment;
    _memory.reset(std::calloc(space, 1));
    void* aligned = _memory.get();
    if (!aligned) throw std::bad_alloc();
    _values = static_cast<float*>(std::align(kAlignment, bytes, aligned, space));
}

float* ModelOutput::prepare() {
    for (size_t f = 0; f < _frames; ++f) {
        first(f) = last(f) = kMark;
        _states[f] = _states[f] == State::silent ? State::markedSilence : State::marked;
    }
    return _values;
}

float* ModelOutput::prepareUnread() {
    std::fill(_states.begin(), _states.end(), State::written);
    return _values;
}

const float* ModelOutput::frame(size_t index) {
    if (_states[index] == State::marked || _states[index] == State::markedSilence) settle(index);
    return &first(index);
}

void ModelOutput::settle(size_t frame) {
    const bool untouched = isMark(first(frame)) && isMark(last(frame));
    for (size_t p = 0; untouched && _states[frame] == State::marked && p < _planes; ++p)
        std::fill_n(_values + p * planeStride() + frame * _bins, _bins, 0.0f);
    for (float* mark : {&first(frame), &last(frame)})
        if (isMark(*mark)) *mark = 0.0f;
    _states[frame] = untouched ? State::silent : State::written;
}
