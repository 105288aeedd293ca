#include "pipeline/post_processor.h"

#include <gtest/gtest.h>

#include "support/signals.h"

constexpr size_t kFrame = 64, kHop = 16, kFrames = 36;

static xt::xtensor<float, 1> hann() { return windowOf(WindowType::Hann, kFrame); }

TEST(PostProcessor, givesTheSignalBackFromItsFrames) {
    const auto signal = tones(40 * kHop, 1);
    PostProcessor post(2, kFrame, kHop, hann());
    for (size_t f = 0; f < kFrames; ++f) {
        xt::xtensor<float, 2> frame = part(signal, f * kHop, kFrame);
        for (size_t i = 0; i < 2 * kFrame; ++i) frame.data()[i] *= hann()(i % kFrame);
        frame = PFFFTTransformer(kFrame, false).forward(frame);
        const auto out = post.process(frame);
        for (size_t i = 0; i < kHop; ++i) {
            // Column 0 has the window sum 0 and stays undivided; near the window's zero the sum is tiny.
            const float ideal = f + i == 0 ? 0.0f : signal[f * kHop + i];
            ASSERT_NEAR(out(0, i), ideal, f == 0 ? 1e-3 : 1e-5) << f << ' ' << i;
        }
    }
    const auto rest = post.flush();
    ASSERT_EQ(rest.shape(), (xt::xarray<float>::shape_type{2, kFrame - kHop}));
    // Normalised as far as it is, too, but for the window's last sample, which is 0.
    for (size_t i = 0; i + 1 < kFrame - kHop; ++i) ASSERT_NEAR(rest(0, i), signal[kFrames * kHop + i], 1e-3) << i;
}

TEST(PostProcessor, dividesByWhatIsAboveTheSmallestNormalFloat) {
    const float smallest = 1.17549435e-38f;  // the smallest normal float, below the threshold by rounding
    xt::xarray<float> values = {{6, 6, 6, 6}, {8, 8, 8, 8}};
    applyTiny(values, xt::xarray<float>{2, 0, smallest, 2 * smallest});
    EXPECT_EQ(values, (xt::xarray<float>{{3, 6, 6, 3 / smallest}, {4, 8, 8, 4 / smallest}}));
}
