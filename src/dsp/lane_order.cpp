#include "dsp/lane_order.h"

#include <algorithm>
#include <cstddef>

#include "support/restrict.h"

// Per group of 32 floats, four lanes each of: real and imaginary parts of bins 4g … 4g + 3, of bins that fall from the
// first quarter's end, of bins 4g … 4g + 3 above the second quarter's start, and of bins that fall from that quarter's
// end. "Quarter" is of the transform: n / 4 bins. The falling bins start one above where they should, and what so falls
// outside, the very first value, belongs to the eighth where the next quarter's rising bins begin.

namespace {

constexpr size_t kLanes = 4;
constexpr size_t kGroup = 8 * kLanes;

void copyLanes(const float* TAVRIN_RESTRICT from, float* TAVRIN_RESTRICT to) {
    for (size_t j = 0; j < kLanes; ++j) to[j] = from[j];
}

void reverseLanes(const float* TAVRIN_RESTRICT from, float* TAVRIN_RESTRICT to) {
    for (size_t j = 0; j < kLanes; ++j) to[kLanes - 1 - j] = from[j];
}

// Visits the pairs of lane vectors of all groups but for the first vector of falling bins, which is visited lane by
// lane: rising(vector, bin), falling(vector, lowestBin), single(position, bin); the imaginary vector follows the real
// one.
template <class Rising, class Falling, class Single>
void visit(size_t n, const Rising& rising, const Falling& falling, const Single& single) {
    const size_t quarter = n / 4;
    for (size_t half = 0; half < 2; ++half) {
        const size_t start = half * quarter, end = start + quarter;
        const size_t rise = half * 4 * kLanes, fall = rise + 2 * kLanes;
        single(fall, start + quarter / 2);
        for (size_t j = 1; j < kLanes; ++j) single(fall + j, end - j);
        for (size_t g = 0; g < n / kGroup; ++g) rising(g * kGroup + rise, start + kLanes * g);
        for (size_t g = 1; g < n / kGroup; ++g) falling(g * kGroup + fall, end - kLanes * g - (kLanes - 1));
    }
}

}  // namespace

bool isLaneOrder(const float* positions, size_t n) {
    if (n % kGroup != 0) return false;
    bool matches = true;
    const auto expect = [&](size_t position, size_t bin) {
        matches = matches && positions[position] == static_cast<float>(2 * bin) &&
                  positions[position + kLanes] == static_cast<float>(2 * bin + 1);
    };
    visit(
        n,
        [&](size_t vector, size_t bin) {
            for (size_t j = 0; j < kLanes; ++j) expect(vector + j, bin + j);
        },
        [&](size_t vector, size_t bin) {
            for (size_t j = 0; j < kLanes; ++j) expect(vector + j, bin + kLanes - 1 - j);
        },
        expect);
    return matches;
}

void splitPlanes(const float* spectrum, size_t n, float* real, float* imaginary) {
    visit(
        n,
        [=](size_t vector, size_t bin) {
            copyLanes(spectrum + vector, real + bin);
            copyLanes(spectrum + vector + kLanes, imaginary + bin);
        },
        [=](size_t vector, size_t bin) {
            reverseLanes(spectrum + vector, real + bin);
            reverseLanes(spectrum + vector + kLanes, imaginary + bin);
        },
        [=](size_t position, size_t bin) {
            real[bin] = spectrum[position];
            imaginary[bin] = spectrum[position + kLanes];
        });
    imaginary[0] = 0.0f;
}

void joinPlanes(const float* real, const float* imaginary, size_t n, float* spectrum) {
    visit(
        n,
        [=](size_t vector, size_t bin) {
            copyLanes(real + bin, spectrum + vector);
            copyLanes(imaginary + bin, spectrum + vector + kLanes);
        },
        [=](size_t vector, size_t bin) {
            reverseLanes(real + bin, spectrum + vector);
            reverseLanes(imaginary + bin, spectrum + vector + kLanes);
        },
        [=](size_t position, size_t bin) {
            spectrum[position] = real[bin];
            spectrum[position + kLanes] = imaginary[bin];
        });
}
