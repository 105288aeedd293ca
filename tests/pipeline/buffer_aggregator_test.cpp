#include "pipeline/buffer_aggregator.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"

namespace {

// [2, n] samples that count on from `from`.
xt::xarray<float> counting(size_t n, float from) {
    auto block = xt::xarray<float>::from_shape({2, n});
    for (size_t i = 0; i < 2 * n; ++i) block.data()[i] = from + float(i % n);
    return block;
}

TEST(BufferAggregator, refusesWhatDoesNotFitAndChangesNothing) {
    BufferAggregator queue(2, 4, 1);
    queue.add(counting(3, 0.0f));
    EXPECT_THROW(queue.add(counting(2, 9.0f)), std::runtime_error);
    EXPECT_THROW(queue.add(xt::xarray<float>::from_shape({3, 1})), std::invalid_argument);
    EXPECT_THROW(queue.add({}), std::invalid_argument);
    EXPECT_THROW(queue.get(2, 3), std::invalid_argument);
    EXPECT_THROW(BufferAggregator(2, 0, 1), std::invalid_argument);
    queue.add(counting(1, 3.0f));  // exactly full
    EXPECT_EQ(queue.get(0, 0), counting(4, 0.0f));
}

TEST(BufferAggregator, answersOddlyWhenEmpty) {
    LogCapture log(plog::warning);
    BufferAggregator queue(2, 4, 1);
    EXPECT_FALSE(queue.canReturn(0));
    EXPECT_EQ(queue.get(0, 0).dimension(), 0u);
    EXPECT_EQ(log.texts(plog::warning).at(0),
              "BufferAggregator::get - cannot return requested size: 0, current length: 0");
    EXPECT_EQ(queue.flush().shape(), (xt::xarray<float>::shape_type{1, 2, 0}));
}

TEST(BufferAggregator, isEmptyWhenItHasBeenMovedFrom) {
    BufferAggregator queue(1, 8, 1);
    queue.add(xt::xarray<float>({1, 5}, 1.0f));
    const BufferAggregator moved = std::move(queue);
    EXPECT_EQ(moved.length(), 5u);
    EXPECT_EQ(queue.length(), 0u);  // NOLINT(bugprone-use-after-move): its state is promised
    EXPECT_ANY_THROW(queue.add(xt::xarray<float>({1, 5}, 1.0f)));
}

}  // namespace
