#include <gtest/gtest.h>

#include "support/cutter_trace.h"
#include "support/signals.h"

TEST(StreamCutter, makesTheSameCallsOnTheEnginesGridHoweverTheStreamIsCut) {
    std::mt19937 random(11);
    for (int round = 0; round < 400; ++round) {
        const size_t length = random() % 1500;  // up to nine blocks
        const auto song = noise(2 * length + 2, static_cast<unsigned>(round));
        std::vector<std::uint8_t> cuts(random() % 40);
        for (std::uint8_t& cut : cuts) cut = static_cast<std::uint8_t>(random());
        ASSERT_EQ(trace(song.data(), length, cuts), trace(song.data(), length, {})) << length;
    }
}
