#include "pipeline/buffer_aggregator.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "support/signals.h"

TEST(BufferAggregator, refusesWhatDoesNotFitAndChangesNothing) {
    BufferAggregator queue(2, 4, 1);
    queue.add(ramp(3, 0));
    EXPECT_THROW(queue.add(ramp(2, 9)), std::runtime_error);
    EXPECT_THROW(queue.add(xt::xarray<float>::from_shape({3, 1})), std::invalid_argument);
    EXPECT_THROW(queue.add({}), std::invalid_argument);
    EXPECT_THROW(queue.get(2, 3), std::invalid_argument);
    EXPECT_THROW(BufferAggregator(2, 0, 1), std::invalid_argument);
    queue.add(ramp(1, 3));  // exactly full
    EXPECT_EQ(queue.get(0, 0), ramp(4, 0));
}

TEST(BufferAggregator, keepsTheOrderAcrossTheRingsEndInEveryBatchRowAndAnswersOddlyWhenEmpty) {
    LogCapture log(plog::warning);
    BufferAggregator queue(2, 4, 2);
    queue.add(ramp(3, 0));
    queue.get(3, 1);
    queue.add(ramp(3, 3));  // over the end
    for (const size_t from : {2U, 3U, 4U}) {
        const auto out = from < 4 ? queue.get(0, 5 - from) : queue.flush();
        ASSERT_EQ(out.shape(), (xt::xarray<float>::shape_type{2, 2, 6 - from}));
        const auto row = ramp(6 - from, from);
        for (size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out.data()[i], row.data()[i % row.size()]) << from;
    }
    EXPECT_FALSE(queue.canReturn(0));
    EXPECT_EQ(queue.get(0, 0).dimension(), 0u);
    EXPECT_EQ(log.listing("WARN"), "WARN BufferAggregator::get - cannot return requested size: 0, current length: 0\n");
    EXPECT_EQ(queue.flush().shape(), (xt::xarray<float>::shape_type{2, 2, 0}));
}

TEST(BufferAggregator, isEmptyWhenItHasBeenMovedFrom) {
    BufferAggregator queue(1, 8, 1);
    queue.add(xt::xarray<float>({1, 5}, 1.0f));
    const BufferAggregator moved = std::move(queue);
    EXPECT_EQ(moved.length(), 5u);
    EXPECT_EQ(queue.length(), 0u);  // NOLINT(bugprone-use-after-move): its state is promised
    EXPECT_ANY_THROW(queue.add(xt::xarray<float>({1, 5}, 1.0f)));
}
