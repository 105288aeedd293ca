#include "api/c_stream_state.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "api/c_call.h"

size_t CStreamState::capacityFor(size_t samples) const {
    if (samples > PTRDIFF_MAX / (2 * sizeof(float)) - _held)
        throw Refusal(TAVRIN_INVALID_ARGUMENT, std::to_string(samples) + " samples are more than memory can hold");
    return _held + samples;
}

void CStreamState::admit(size_t samples, size_t capacity) const {
    if (_closed) throw Refusal(TAVRIN_CLOSED, _closed);
    const size_t needed = capacityFor(samples);
    if (capacity < needed)
        throw Refusal(TAVRIN_BUFFER_TOO_SMALL, "the output has room for " + std::to_string(capacity) +
                                                   " samples; this call may return " + std::to_string(needed));
}

void CStreamState::write(const std::vector<float>& samples, size_t n, float* out, size_t capacity) const {
    // Interleaved samples are a first and a second half like any others, which lie next to each other.
    float* const secondHalf = out + (_planar ? capacity : n);
    if (samples.empty()) {
        std::fill_n(out, n, 0.0f);
        std::fill_n(secondHalf, n, 0.0f);
    } else {
        std::copy_n(samples.data(), n, out);
        std::copy_n(samples.data() + n, n, secondHalf);
    }
}
