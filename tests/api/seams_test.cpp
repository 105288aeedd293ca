// Separations by the shipped model of what is struck, whose frames depend on sixteen neighbours to either side: what a
// model call's borders leave in the sound, seen by moving them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "models/model_bytes.h"
#include "support/signals.h"
#include "tavrin/separator.h"

namespace {

constexpr size_t kHop = 1024;

std::vector<float> struck(const std::vector<float>& samples) {
    static const std::vector<std::uint8_t> bytes = modelBytes("../../models/percussive.onnx");
    static const tavrin::Model model({bytes.data(), bytes.size()});
    return separate(model, samples, {{}, false, tavrin::Layout::planar}).front();
}

// How far b, from its sample `late` on, is from a: decibels of the difference's energy below a's, without the
// twenty-five hops at either end of a, where what a frame sees depends on where the stream begins and ends.
double decibels(const std::vector<float>& a, const std::vector<float>& b, size_t late) {
    double energy = 0.0, difference = 0.0;
    const size_t length = a.size() / 2;
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 25 * kHop; i < length - 25 * kHop; ++i) {
            const double x = double(a[c * length + i]), d = double(b[c * (length + late) + late + i]) - x;
            energy += x * x, difference += d * d;
        }
    return 10.0 * std::log10(difference / energy);
}

TEST(Seams, areNotThereWhereverTheModelCallsFall) {
    const std::vector<float> early = noise(2 * (240 * kHop + 77), 5), first = struck(early);
    // A call gives 224 frames.
    for (const size_t delay : {1U, 15U, 16U, 17U, 100U, 207U, 208U, 223U, 224U, 300U}) {
        std::vector<float> late(early.size() + 2 * delay * kHop);
        std::copy_n(early.begin(), early.size() / 2, late.begin() + ptrdiff_t(delay * kHop));
        std::copy_n(early.rbegin(), early.size() / 2, late.rbegin());
        EXPECT_LT(decibels(first, struck(late), delay * kHop), -100.0) << delay;
    }
}

}  // namespace
