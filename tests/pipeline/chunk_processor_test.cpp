#include "pipeline/chunk_processor.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "dsp/window.h"
#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"

namespace {

constexpr size_t kFrame = 64, kHop = 16, kFrames = 16;

ChunkProcessor makeSmall(FakeInference::Model model = FakeInference::passThrough, bool subtract = false) {
    return {std::make_shared<FakeInference>(std::move(model)), 2, kFrame, kHop, 0, kFrames, subtract};
}

ChunkProcessor makeFull() { return {std::make_shared<FakeInference>(), 2, 4096, 1024, 0, 256, false}; }

// A whole stream by the rules: calls of exactly maxInputSize(), then the rest. Planar in, planar out.
std::vector<float> separateAll(ChunkProcessor processor, const std::vector<float>& planar) {
    std::vector<float> out[2];
    for (size_t from = 0, total = planar.size() / 2, eof = 0; !eof;) {
        const size_t n = std::min(processor.maxInputSize(), total - from);
        eof = from + n == total;
        const auto result = processor.process(part(planar, from, n), eof);
        from += n;
        for (size_t c = 0; c < 2 && result.dimension() == 2; ++c)
            out[c].insert(out[c].end(), result.data() + c * result.shape(1), result.data() + (c + 1) * result.shape(1));
    }
    out[0].insert(out[0].end(), out[1].begin(), out[1].end());
    return out[0];
}

// Output samples when silence of the given block lengths goes in, the last one flagged.
size_t outputOf(ChunkProcessor& processor, const std::vector<size_t>& blocks) {
    size_t total = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        const auto out = processor.process(xt::xarray<float>({2, blocks[i]}, 0.0f), i + 1 == blocks.size());
        total += out.dimension() == 2 ? out.shape(1) : 0;
    }
    return total;
}

TEST(ChunkProcessor, givesEveryStreamBackInPlaceAndStemAndRestMakeTheInput) {
    const auto scale = [](const float* in, const std::vector<float*>& out, const Shape& shape) {
        for (size_t i = 0; i < shape.channels * shape.frames * shape.bins; ++i) out[0][i] = 0.3f * in[i];
        return true;
    };
    const size_t first = makeSmall().maxInputSize(), later = first - 2 * kHop;
    for (const size_t border : {size_t{1}, kHop, kFrame, first, first + kHop, first + later, first + 3 * later}) {
        for (size_t length = border - 1; length <= border + 1; ++length) {
            const auto smooth = tones(length, 4 * kFrame), mix = noise(2 * length, 3);
            // 1e-4: so much of the tones leaks into the Nyquist bin of so short a frame, and the analysis drops it.
            EXPECT_LT(deviation(separateAll(makeSmall(), smooth), smooth), 1e-4f) << length;
            auto sum = separateAll(makeSmall(scale), mix);
            const auto rest = separateAll(makeSmall(scale, true), mix);
            std::transform(sum.begin(), sum.end(), rest.begin(), sum.begin(), std::plus());
            EXPECT_LT(deviation(sum, mix), 1.2e-7f) << length;  // one rounding
        }
    }
}

// What the model sees of a stream's only block, or of its first one, against the frames of the block as it must be.
TEST(ChunkProcessor, mirrorsTheEndsOfAStreamAndContinuesAShortOneWithZeros) {
    const auto noting = [](std::vector<float>& to) {
        return std::make_shared<FakeInference>([&to](const float* in, auto&, const Shape& shape) {
            to.assign(in, in + shape.channels * shape.frames * shape.bins);
            return false;
        });
    };
    const std::vector<float> coefficients = getWindow(WindowType::Blackman, int(kFrame));
    xt::xarray<float> window({kFrame}, 0.0f);
    std::copy(coefficients.begin(), coefficients.end(), window.begin());
    // Nine frames make a first block of 64 samples, of which 63 can be mirrored.
    for (const auto& [length, frames, eof] : {std::tuple{1, 16, true},
                                              {5, 16, true},
                                              {63, 16, true},
                                              {64, 16, true},
                                              {65, 16, true},
                                              {100, 16, true},
                                              {64, 9, false}}) {
        std::vector<float> seen, expected;
        const auto song = noise(size_t(2 * length), 7);
        const long end = eof ? length + 64 + (16 - length % 16) % 16 : length, left = std::min(end - 1, 64L);
        auto padded = xt::xarray<float>::from_shape({2, size_t(left + end)});
        for (long k = -left; k < end; ++k)
            for (long c = 0; c < 2; ++c) {
                const long from = std::abs(k) < length ? std::abs(k) : 2 * (length - 1) - std::abs(k);
                padded(c, k + left) = from < 0 ? 0.0f : song[size_t(c * length + from)];
            }
        ChunkProcessor(noting(seen), 2, kFrame, kHop, 0, size_t(frames), false)
            .process(part(song, 0, size_t(length)), eof);
        PreProcessor(2, kFrame, kHop, window, noting(expected), size_t(frames), true, 1).process(padded, eof);
        EXPECT_EQ(seen, expected) << length;
    }
}

TEST(ChunkProcessor, keepsItsCountsOnAndOffTheGridOfHops) {
    ChunkProcessor onGrid = makeFull(), tenThousands = makeFull(), emptied = makeFull(), single = makeFull();
    EXPECT_EQ(onGrid.maxInputSize(), 257024u);
    EXPECT_EQ(onGrid.process(xt::xarray<float>({2, 257024}, 0.0f), false).shape(1), 251u * 1024u - 4096u);
    EXPECT_EQ(onGrid.maxInputSize(), 254976u);
    EXPECT_EQ(onGrid.process(xt::xarray<float>({2, 254976}, 0.0f), false).shape(1), 254976u);
    EXPECT_EQ(outputOf(tenThousands, std::vector<size_t>(60, 10000)), 599072u);
    EXPECT_EQ(outputOf(emptied, {257024, 3072, 254976}), 252928u);
    EXPECT_EQ(outputOf(single, {1}), 1u);
}

TEST(ChunkProcessor, refusesWhatItCannotTakeAndChangesNothing) {
    ChunkProcessor processor = makeFull();
    processor.process(xt::xarray<float>({2, 130000}, 0.0f), false);
    try {
        processor.process(xt::xarray<float>({2, 130000}, 0.0f), true);
        FAIL();
    } catch (const std::invalid_argument& refused) {
        EXPECT_NE(std::string(refused.what()).find("259 new frames, a model call has 256"), std::string::npos);
    }
    EXPECT_THROW(processor.process(xt::xarray<float>({2, 600000}, 0.0f), false), std::runtime_error);
    // Twice a block fits.
    EXPECT_THROW(makeFull().process(xt::xarray<float>({2, 514049}, 0.0f), false), std::runtime_error);
    EXPECT_NO_THROW(makeFull().process(xt::xarray<float>({2, 514048}, 0.0f), false));
    EXPECT_EQ(outputOf(processor, {127024}), 257024u);
    EXPECT_THROW(ChunkProcessor(nullptr, 2, kFrame, kHop, 0, 5, false), std::invalid_argument);
}

TEST(ChunkProcessorDeathTest, abortsWhenTheEndFindsMoreThanAModelCallTakes) {
    ChunkProcessor processor = makeFull();
    EXPECT_DEATH(outputOf(processor, std::vector<size_t>(6, 100000)),
                 "chunk_processor.cpp:[0-9]+: process: Assertion .!eof \\|\\| _inputAggregator.length\\(\\) <= "
                 "_preproc->needData\\(\\)");
}

TEST(ChunkProcessor, hasNoOutputForAnEmptyStreamOrAFailedRun) {
    const auto fail = [](auto&&...) { return false; };
    const auto none = xt::xarray<float>::from_shape({2, 0});
    ChunkProcessor processor = makeSmall(fail);
    EXPECT_EQ(processor.process(none, false).dimension(), 0u);
    EXPECT_EQ(processor.process(none, true).shape(), none.shape());  // without asking the model
    EXPECT_EQ(processor.process(xt::xarray<float>({2, 100}, 0.0f), true).dimension(), 0u);
}

TEST(ChunkProcessor, leavesDenormalNumbersToTheModelAndTheHost) {
    const auto hasDenormals = [] {
        volatile float tiny = 1e-39f;
        return tiny * 1.0f != 0.0f;
    };
    bool inModel = false, isSilence = false;
    ChunkProcessor processor = makeSmall([&](const float* in, auto& out, const Shape& shape) {
        const size_t size = shape.channels * shape.frames * shape.bins;
        isSilence = size_t(std::count(in, in + size, 0.0f)) == size;
        std::fill_n(out[0], size, 1e-39f);
        return inModel = hasDenormals();
    });
    const auto result = processor.process(xt::xarray<float>({2, 100}, 1e-39f), true);
    EXPECT_TRUE(inModel && hasDenormals());
    EXPECT_TRUE(isSilence) << "and to nobody else";
    EXPECT_EQ(std::count(result.begin(), result.end(), 0.0f), 200);
}

TEST(ChunkProcessor, logsWhatItDoes) {
    ChunkProcessor processor = makeSmall();
    LogCapture log;
    processor.process(xt::xarray<float>({2, 16}, 1.1f), false);
    processor.process(xt::xarray<float>({2, 16}, -1.5f), true);
    std::string own;
    ptrdiff_t asked = 0;  // whether the queue can take a block: once a call
    for (const auto& line : log.lines) asked += line.text.starts_with("Can accept check");
    EXPECT_EQ(asked, 2);
    for (const auto& line : log.lines)
        if (line.function == "ChunkProcessor::process")
            own += plog::severityToString(line.severity) + (' ' + line.text) + '\n';
    EXPECT_EQ(own,
              "DEBUG ChunkProcessor::process input shape: 2x16, eof: 0\n"
              "DEBUG Not enough data to process, returning empty\n"
              "DEBUG ChunkProcessor::process input shape: 2x16, eof: 1\n"
              "DEBUG Processing EOF\n"
              "INFO MAX2: [1.5]\n"
              "DEBUG Data prepared for preprocessing, shape: 2x160\n"
              "DEBUG Preprocessed data shape: 1x2x448\n"
              "DEBUG ChunkProcessor::process result shape: 2x32\n");
}

}  // namespace
