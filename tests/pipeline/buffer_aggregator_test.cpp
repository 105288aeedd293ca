#include "pipeline/buffer_aggregator.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"

namespace {

// [batch, 2, n] samples that count on from `from`; with `batch` 0, [2, n].
xt::xarray<float> counting(size_t n, float from, size_t batch = 0) {
    auto block = xt::xarray<float>::from_shape({std::max<size_t>(batch, 1), 2, n});
    for (size_t i = 0; i < block.size(); ++i) block.data()[i] = from + float(i % n) + 1000.0f * float(i / n);
    if (batch == 0) block.reshape({2, n});
    return block;
}

TEST(BufferAggregator, keepsOrderAndOverlapAllAroundTheRing) {
    for (const size_t batch : {0U, 2U}) {
        BufferAggregator queue(2, 7, int(batch));
        float in = 0.0f, out = 0.0f;
        for (int round = 0; round < 20; ++round, out += 4.0f) {
            for (; queue.canAccept(3); in += 3.0f) queue.add(counting(3, in, batch));
            ASSERT_EQ(queue.get(5, 1), counting(5, out, batch)) << round;  // the last one comes again
        }
        EXPECT_EQ(queue.flush(), counting(static_cast<size_t>(in - out), out, batch));
    }
}

TEST(BufferAggregator, refusesWhatDoesNotFitAndChangesNothing) {
    BufferAggregator queue(2, 4, 1);
    queue.add(counting(3, 0.0f));
    try {
        queue.add(counting(2, 9.0f));
        FAIL();
    } catch (const std::runtime_error& refused) {
        EXPECT_STREQ(refused.what(), "Buffer overflow: cannot accept chunk of size 2");
    }
    EXPECT_THROW(queue.add(xt::xarray<float>::from_shape({3, 1})), std::invalid_argument);
    EXPECT_THROW(queue.add({}), std::invalid_argument);
    EXPECT_THROW(queue.get(2, 3), std::invalid_argument);
    EXPECT_THROW(BufferAggregator(2, 0, 1), std::invalid_argument);
    queue.add(counting(1, 3.0f));  // exactly full
    EXPECT_EQ(queue.get(0, 0).shape(), (xt::xarray<float>::shape_type{2, 4}));
}

TEST(BufferAggregator, answersOddlyWhenEmpty) {
    LogCapture log(plog::warning);
    BufferAggregator queue(2, 4, 1);
    EXPECT_FALSE(queue.canReturn(0));
    EXPECT_EQ(queue.get(0, 0).dimension(), 0u);
    EXPECT_EQ(log.texts(plog::warning).at(0),
              "BufferAggregator::get - cannot return requested size: 0, current length: 0");
    EXPECT_EQ(queue.flush().shape(), (xt::xarray<float>::shape_type{1, 2, 0}));
    queue.add(counting(2, 0.0f));
    EXPECT_TRUE(queue.canReturn(0));
}

TEST(BufferAggregator, canBeAskedAnythingAfterAMove) {
    BufferAggregator queue(2, 4, 1);
    queue.add(counting(3, 0.0f));
    BufferAggregator taken(std::move(queue));
    EXPECT_EQ(taken.get(0, 0), counting(3, 0.0f));
    EXPECT_EQ(queue.length() + queue.capacity() + queue.get(0, 0).dimension() + queue.flush().size(), 0u);
    EXPECT_THROW(queue.add(counting(1, 0.0f)), std::invalid_argument);
    queue = std::move(taken);
    EXPECT_TRUE(queue.canAccept(4));
}

}  // namespace
