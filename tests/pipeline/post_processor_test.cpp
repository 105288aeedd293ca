#include "pipeline/post_processor.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "dsp/window.h"
#include "support/log_capture.h"
#include "support/signals.h"

namespace {

constexpr size_t kFrame = 64, kHop = 16, kFrames = 36;

xt::xtensor<float, 1> hann() {
    const auto coefficients = getWindow(WindowType::Hann, int(kFrame));
    auto tensor = xt::xtensor<float, 1>::from_shape({kFrame});
    std::copy(coefficients.begin(), coefficients.end(), tensor.begin());
    return tensor;
}

TEST(PostProcessor, givesTheSignalBackFromItsFrames) {
    const auto signal = tones(40 * kHop, 1);
    PostProcessor post(2, kFrame, kHop, hann()), several(2, kFrame, kHop, hann());
    auto stacked = xt::xarray<float>::from_shape({2, kFrame, kFrames});
    auto expected = xt::xarray<float>::from_shape({2, kFrames * kHop});
    for (size_t f = 0; f < kFrames; ++f) {
        xt::xtensor<float, 2> frame = part(signal, f * kHop, kFrame);
        for (size_t i = 0; i < 2 * kFrame; ++i) frame.data()[i] *= hann()(i % kFrame);
        frame = PFFFTTransformer(kFrame, false).forward(frame);
        for (size_t i = 0; i < 2 * kFrame; ++i) stacked.data()[i * kFrames + f] = frame.data()[i];
        const auto out = post.process(frame);
        for (size_t i = 0; i < kHop; ++i) {
            expected(0, f * kHop + i) = out(0, i);
            expected(1, f * kHop + i) = out(1, i);
            // Column 0 has the window sum 0 and stays undivided; near the window's zero the sum is tiny.
            const float ideal = f + i == 0 ? 0.0f : signal[f * kHop + i];
            ASSERT_NEAR(out(0, i), ideal, f == 0 ? 1e-3 : 1e-5) << f << ' ' << i;
        }
    }
    EXPECT_EQ(several.process(stacked), expected);
    const auto rest = post.flush();
    ASSERT_EQ(rest.shape(), (xt::xarray<float>::shape_type{2, kFrame - kHop}));
    // Normalised as far as it is, too, but for the window's last sample, which is 0.
    for (size_t i = 0; i + 1 < kFrame - kHop; ++i) ASSERT_NEAR(rest(0, i), signal[kFrames * kHop + i], 1e-3) << i;
    EXPECT_EQ(post.flush(), several.flush());
    EXPECT_EQ(post.process(xt::xarray<float>::from_shape({2, kFrame, 0})).shape(),
              (xt::xarray<float>::shape_type{2, 0}));
}

TEST(PostProcessor, refusesShapesThatDoNotBroadcast) {
    PostProcessor post(2, kFrame, kHop, hann());
    EXPECT_THROW(post.process(xt::xarray<float>::from_shape({3, kFrame})), xt::broadcast_error);
    EXPECT_THROW(post.process(xt::xarray<float>::from_shape({2, 32})), std::invalid_argument);
    EXPECT_THROW(PostProcessor(2, 2 * kFrame, kHop, hann()), xt::broadcast_error);
}

TEST(PostProcessor, slidesAndDividesAsItsHelpersPromise) {
    LogCapture log;
    xt::xtensor<float, 2> rows = {{1, 2, 3}, {4, 5, 6}};
    shiftArray(rows, 0);
    shiftArray(rows, 2);
    EXPECT_EQ(rows, (xt::xtensor<float, 2>{{3, 0, 0}, {6, 0, 0}}));
    shiftArray(rows, 3);
    EXPECT_EQ(rows, (xt::xtensor<float, 2>{{0, 0, 0}, {0, 0, 0}}));
    EXPECT_EQ(log.lines.at(1).text, "shiftArray called with step: 2, input dimension: 2, input length: 3");
    EXPECT_EQ(log.lines.at(3).text, "Shift step >= input size, filling with zeros");

    const float smallest = 1.17549435e-38f;  // the smallest normal float, below the threshold by rounding
    xt::xarray<float> values = {{6, 6, 6, 6}, {8, 8, 8, 8}};
    applyTiny(values, xt::xarray<float>{2, 0, smallest, 2 * smallest});
    EXPECT_EQ(values, (xt::xarray<float>{{3, 6, 6, 3 / smallest}, {4, 8, 8, 4 / smallest}}));
}

}  // namespace
