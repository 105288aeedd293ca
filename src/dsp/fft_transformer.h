/// @file
/// Batch real Fourier transforms.
#pragma once

#include <cstddef>
#include <memory>

#include "support/tensor.h"
#include "tavrin/export.h"

struct PFFFT_Setup;

/// Transforms every row of a two-dimensional array.
///
/// A spectrum row of N floats is ordered: position 0 the DC value, position 1 the slot of the Nyquist value, then real
/// and imaginary part of bins 1 … N/2 - 1 in pairs (bin k at 2k and 2k + 1).
class TAVRIN_EXPORT IFFTTransformer {
public:
    virtual ~IFFTTransformer();
    /// Real signal rows [rows, N] to ordered spectra.
    virtual xt::xtensor<float, 2> forward(const xt::xtensor<float, 2>& input) = 0;
    /// Ordered spectra to real signal rows [rows, N], scaled so that it inverts forward().
    virtual xt::xtensor<float, 2> backward(const xt::xtensor<float, 2>& input) = 0;

protected:
    IFFTTransformer() = default;
    IFFTTransformer(const IFFTTransformer&) = default;
    IFFTTransformer& operator=(const IFFTTransformer&) = default;
};

/// The transform by PFFFT. forward() always zeroes the Nyquist slot: that component never leaves the analysis.
///
/// Threads: one at a time per object (the staging rows are shared); distinct objects are independent.
class TAVRIN_EXPORT PFFFTTransformer : public IFFTTransformer {
public:
    /// @param N transform length: a positive multiple of 32 without prime factors above 5.
    /// @param padded forward() appends two zeros to every row, which backward() drops again: spectra of N + 2 floats.
    /// @throws std::invalid_argument for other lengths, std::bad_alloc.
    PFFFTTransformer(size_t N, bool padded);
    ~PFFFTTransformer() override;
    PFFFTTransformer(const PFFFTTransformer&) = delete;
    PFFFTTransformer& operator=(const PFFFTTransformer&) = delete;

    /// @throws std::invalid_argument when the rows are not N long. The result is a fresh tensor.
    xt::xtensor<float, 2> forward(const xt::xtensor<float, 2>& input) override;
    /// @throws std::invalid_argument when the rows are not N (padded: N + 2) long.
    xt::xtensor<float, 2> backward(const xt::xtensor<float, 2>& input) override;
    /// forward() or, with `inverse`, backward().
    xt::xtensor<float, 2> transform(const xt::xtensor<float, 2>& input, bool inverse);

    /// One row without a copy or an allocation: write N floats here, …
    float* staging() { return _input.get(); }
    /// … then transform them. Forward zeroes the Nyquist slot; neither direction is scaled, so an inverse gives N times
    /// the signal. @return N floats, valid until the next call.
    const float* transformStaged(bool inverse);

    /// Forward transform of staging(), which is overwritten, into separate planes of N/2 real and imaginary parts;
    /// imaginary[0] becomes 0.
    void planesOfStaged(float* real, float* imaginary);
    /// Inverse transform of such planes, imaginary[0] standing in the Nyquist slot; staging() is overwritten.
    /// @return N samples, N times the signal, valid until the next call or write to staging().
    const float* signalOfPlanes(const float* real, const float* imaginary);

private:
    struct SetupDeleter {
        void operator()(PFFFT_Setup* setup) const noexcept;
    };
    struct RowDeleter {
        void operator()(float* row) const noexcept;
    };
    using Row = std::unique_ptr<float, RowDeleter>;

    static Row makeRow(size_t length);
    bool hasLaneOrder();
    const float* unorderedTransform(bool inverse);

    std::unique_ptr<PFFFT_Setup, SetupDeleter> _setup;
    Row _input;
    Row _output;
    bool _padded;
    size_t _size;
    bool _laneOrder;  // PFFFT's own order of a spectrum is the one that lane_order.h knows
};
