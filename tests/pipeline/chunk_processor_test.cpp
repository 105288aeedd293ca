#include "pipeline/chunk_processor.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"

namespace {

constexpr size_t kFrame = 64, kHop = 16, kFrames = 16;

ChunkProcessor makeSmall(FakeInference::Model model = FakeInference::passThrough, bool subtract = false) {
    return {std::make_shared<FakeInference>(std::move(model)), 2, kFrame, kHop, 0, kFrames, subtract};
}

// Of the facade's geometry.
ChunkProcessor makeFull() { return {std::make_shared<FakeInference>(), 2, 4096, 1024, 0, 256, false}; }

// A whole stream by the rules: calls of exactly maxInputSize(), then the rest. Planar in, planar out.
std::vector<float> separateAll(ChunkProcessor processor, const std::vector<float>& planar) {
    std::vector<float> left, right;
    for (size_t from = 0, n = 0, total = planar.size() / 2; from == 0 || from < total; from += std::max(n, size_t{1})) {
        n = std::min(processor.maxInputSize(), total - from);
        const auto out = processor.process(part(planar, from, n), from + n == total);
        const auto middle = out.begin() + ptrdiff_t(out.dimension() == 2 ? out.shape(1) : 0);
        left.insert(left.end(), out.begin(), middle);
        right.insert(right.end(), middle, out.begin() + 2 * (middle - out.begin()));
    }
    left.insert(left.end(), right.begin(), right.end());
    return left;
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
    std::vector<float> seen;
    const auto noting = std::make_shared<FakeInference>([&](const float* in, auto&, const Shape& shape) {
        seen.assign(in, in + shape.channels * shape.frames * shape.bins);
        return false;
    });
    // Nine frames make a first block of 64 samples, of which 63 can be mirrored.
    for (const auto& [length, eof] :
         {std::pair{1, true}, {5, true}, {63, true}, {64, true}, {65, true}, {100, true}, {64, false}}) {
        const size_t frames = eof ? 16 : 9;
        const auto song = noise(size_t(2 * length), 7);
        const long end = eof ? length + 64 + (16 - length % 16) % 16 : length, left = std::min(end - 1, 64L);
        auto padded = xt::xarray<float>::from_shape({2, size_t(left + end)});
        for (long k = -left; k < end; ++k)
            for (long c = 0; c < 2; ++c) {
                const long from = std::abs(k) < length ? std::abs(k) : 2 * (length - 1) - std::abs(k);
                padded(c, k + left) = from < 0 ? 0.0f : song[size_t(c * length + from)];
            }
        ChunkProcessor(noting, 2, kFrame, kHop, 0, frames, false).process(part(song, 0, size_t(length)), eof);
        const auto processed = std::exchange(seen, {});
        PreProcessor(2, kFrame, kHop, windowOf(WindowType::Blackman, kFrame), noting, frames, true, 1)
            .process(padded, eof);
        EXPECT_EQ(processed, seen) << length;
    }
}

TEST(ChunkProcessor, keepsItsCountsOnAndOffTheGridOfHops) {
    ChunkProcessor onGrid = makeFull(), tenThousands = makeFull(), emptied = makeFull(), single = makeFull();
    for (const auto& [in, out] : {std::pair{257024, 251 * 1024 - 4096}, {254976, 254976}}) {
        EXPECT_EQ(onGrid.maxInputSize(), size_t(in));
        EXPECT_EQ(onGrid.process(xt::xarray<float>({2, size_t(in)}, 0.0f), false).shape(1), size_t(out));
    }
    EXPECT_EQ(outputOf(tenThousands, std::vector<size_t>(60, 10000)), 599072u);
    EXPECT_EQ(outputOf(emptied, {257024, 3072, 254976}), 252928u);
    EXPECT_EQ(outputOf(single, {1}), 1u);
}

TEST(ChunkProcessor, refusesWhatItCannotTakeAndChangesNothing) {
    ChunkProcessor processor = makeFull();
    processor.process(xt::xarray<float>({2, 130000}, 0.0f), false);
    EXPECT_THROW(processor.process(xt::xarray<float>({2, 130000}, 0.0f), true), std::invalid_argument);
    // Twice a block fits.
    EXPECT_THROW(makeFull().process(xt::xarray<float>({2, 514049}, 0.0f), false), std::runtime_error);
    EXPECT_NO_THROW(makeFull().process(xt::xarray<float>({2, 514048}, 0.0f), false));
    EXPECT_EQ(outputOf(processor, {127024}), 257024u);
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
    // Whether the queue can take a block: once a call.
    EXPECT_EQ(std::ranges::count_if(log.lines, [](auto& line) { return line.text.starts_with("Can accept check"); }),
              2);
    EXPECT_EQ(log.listing("ChunkProcessor::process"),
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
