#include "dsp/lane_order.h"

#include <cstddef>

#include "support/restrict.h"

namespace tavrin {

// The n / 2 bins make two halves. A group of 32 floats holds eight vectors of four lanes, four for each half: real and
// imaginary parts of four rising bins, from the half's start on, then those of four falling bins, from its end down.
// Lane j of group g is bin start + 4g + j in the one and bin end - (4g + j) in the other, n / 8 bins each. The very
// first falling bin would be end itself, outside the half: in its place stands the one in the middle, which is left
// over.

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
// one. In the order of the bins: planes lie in far memory, which is fetched ahead only along a straight road.
template <class Rising, class Falling, class Single>
void visit(size_t n, const Rising& rising, const Falling& falling, const Single& single) {
    const size_t quarter = n / 4;
    for (size_t half = 0; half < 2; ++half) {
        const size_t start = half * quarter, end = start + quarter;
        const size_t rise = half * 4 * kLanes, fall = rise + 2 * kLanes;
        for (size_t g = 0; g < n / kGroup; ++g) rising(g * kGroup + rise, start + kLanes * g);
        single(fall, start + quarter / 2);
        for (size_t g = n / kGroup - 1; g > 0; --g) falling(g * kGroup + fall, end - kLanes * g - (kLanes - 1));
        for (size_t j = kLanes - 1; j > 0; --j) single(fall + j, end - j);
    }
}

// Writes one plane whole: stores that alternate between two planes take 1.6 times as long, because only neighbouring
// ones leave the first-level cache together.
void splitPlane(const float* vectors, size_t n, float* plane) {
    visit(
        n, [=](size_t vector, size_t bin) { copyLanes(vectors + vector, plane + bin); },
        [=](size_t vector, size_t bin) { reverseLanes(vectors + vector, plane + bin); },
        [=](size_t position, size_t bin) { plane[bin] = vectors[position]; });
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
    splitPlane(spectrum, n, real);
    splitPlane(spectrum + kLanes, n, imaginary);
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

}  // namespace tavrin
