#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <stdexcept>

#include "dsp/fft_transformer.h"
#include "dsp/window.h"
#include "support/signals.h"

constexpr double kPi = std::numbers::pi;

TEST(Window, hasItsClosedForm) {
    constexpr size_t n = 4096;
    const auto hann = getWindow(WindowType::Hann, n), hamming = getWindow(WindowType::Hamming, n);
    const auto blackman = getWindow(WindowType::Blackman, n);
    const float step = static_cast<float>(2.0 * kPi / n);  // periodic; rounded, which moves late coefficients
    for (size_t i = 0; i < n; ++i) {
        const double sine = std::sin(kPi * double(i) / (n - 1)), x = static_cast<float>(i) * step;
        ASSERT_NEAR(hann[i], sine * sine, 6e-8) << i;  // one rounding to float
        ASSERT_NEAR(hamming[i], 0.08 + 0.92 * sine * sine, 6e-8) << i;
        ASSERT_NEAR(blackman[i], 0.42 - 0.5 * std::cos(x) + 0.08 * std::cos(2.0 * x), 1.5e-7) << i;
    }
    EXPECT_TRUE(std::isnan(hannWindow(1).at(0)) && std::isnan(hammingWindow(1).at(0)));
    EXPECT_TRUE(getWindow(WindowType::Blackman, 0).empty());
    EXPECT_THROW(getWindow(WindowType::Hann, -1), std::length_error);
    EXPECT_THROW(getWindow(static_cast<WindowType>(3), 0), std::runtime_error);
}

TEST(FftTransformer, agreesWithADirectTransformButForTheNyquistBin) {
    for (const size_t n : {32U, 96U, 160U}) {
        const xt::xtensor<float, 2> signal = part(noise(2 * n, 1), 0, n);
        const auto spectrum = PFFFTTransformer(n, false).forward(signal);
        // Back and forth again, as there is no Nyquist component any more; a padded row ends with two zeros.
        PFFFTTransformer padded(n, true);
        const auto once = padded.backward(padded.forward(signal)), wide = padded.forward(once);
        for (size_t i = 0; i < n; ++i) ASSERT_NEAR(wide(1, i), spectrum(1, i), 2e-5) << n << ' ' << i;
        EXPECT_TRUE(wide.shape(1) == n + 2 && wide(1, n) == 0.0f && wide(1, n + 1) == 0.0f) << n;
        // One row as planes has the same bits, and comes back n times as loud.
        std::vector<float> real(n / 2), imaginary(n / 2);
        std::copy_n(&signal(1, 0), n, padded.staging());
        padded.planesOfStaged(real.data(), imaginary.data());
        for (size_t k = 0; k < n / 2; ++k) {
            std::complex<double> bin = 0.0;
            for (size_t i = 0; i < n; ++i)
                bin += std::polar<double>(signal(1, i), -2.0 * kPi * double(i * k) / double(n));
            ASSERT_NEAR(real[k], bin.real(), 2e-5) << n << ' ' << k;
            ASSERT_NEAR(imaginary[k], k == 0 ? 0.0 : bin.imag(), 2e-5) << n << ' ' << k;
            ASSERT_TRUE(real[k] == spectrum(1, 2 * k) && imaginary[k] == spectrum(1, 2 * k + 1)) << n << ' ' << k;
        }
        const float* back = padded.signalOfPlanes(real.data(), imaginary.data());
        for (size_t i = 0; i < n; ++i) ASSERT_NEAR(back[i] / float(n), once(1, i), 1e-6f) << n << ' ' << i;
    }
}

TEST(FftTransformer, refusesWhatTheLibraryWouldStopTheProcessFor) {
    for (const size_t length : {size_t{0}, size_t{16}, size_t{100}, size_t{32 * 7}, size_t{1} << 40})
        EXPECT_THROW(PFFFTTransformer(length, false), std::invalid_argument) << length;
    EXPECT_THROW(PFFFTTransformer(64, true).backward(xt::xtensor<float, 2>::from_shape({1, 64})),
                 std::invalid_argument);
    EXPECT_EQ(PFFFTTransformer(64, false).forward(xt::xtensor<float, 2>::from_shape({0, 7})).shape(),
              (std::array<size_t, 2>{0, 7}));
}
