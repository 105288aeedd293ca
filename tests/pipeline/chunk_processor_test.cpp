#include "pipeline/chunk_processor.h"

#include <gtest/gtest.h>

#include <locale>
#include <stdexcept>

#include "support/fake_inference.h"
#include "support/log_capture.h"
#include "support/signals.h"

constexpr size_t kFrame = 64, kHop = 16, kFrames = 16;

static ChunkProcessor makeSmall(FakeInference::Model model = FakeInference::passThrough, bool subtract = false) {
    return {std::make_shared<FakeInference>(std::move(model)), 2, kFrame, kHop, 0, kFrames, subtract};
}

static xt::xarray<float> silence(size_t n) { return xt::xarray<float>({2, n}, 0.0f); }

// Of the facade's geometry.
static ChunkProcessor makeFull() { return {std::make_shared<FakeInference>(), 2, 4096, 1024, 0, 256, false}; }

// A planar stream in blocks of these lengths or, when there are none, by the rules: calls of exactly maxInputSize(),
// then what is left. The result is interleaved.
static std::vector<float> separate(ChunkProcessor processor, const std::vector<float>& planar,
                                   const std::vector<size_t>& blocks = {}) {
    std::vector<float> all;
    const size_t total = planar.size() / 2;
    for (size_t from = 0, n = 0, call = 0; call == 0 || from < total; ++call, from += n) {
        n = std::min(blocks.empty() ? processor.maxInputSize() : blocks[call], total - from);
        const auto out = processor.process(part(planar, from, n), from + n == total);
        for (size_t i = 0; out.dimension() == 2 && i < out.shape(1); ++i)
            for (size_t c : {0U, 1U}) all.push_back(out(c, i));
    }
    return all;
}

TEST(ChunkProcessor, givesEveryStreamBackInPlaceAndStemAndRestMakeTheInput) {
    const auto scale = [](const float* in, const std::vector<float*>& out, const Shape& shape) {
        for (size_t i = 0; i < sizeOf(shape); ++i) out[0][i] = 0.3f * in[i];
        return true;
    };
    const size_t first = makeSmall().maxInputSize(), later = first - 2 * kHop;
    for (const size_t border : {size_t{1}, kHop, kFrame, first, first + kHop, first + later, first + 3 * later}) {
        for (size_t length = border - 1; length <= border + 1; ++length) {
            const auto smooth = tones(length, 4 * kFrame), mix = noise(2 * length, 3);
            // 1e-4: so much of the tones leaks into the Nyquist bin of so short a frame, and the analysis drops it.
            EXPECT_LT(deviation(separate(makeSmall(), smooth), interleaved(smooth)), 1e-4f) << length;
            auto sum = separate(makeSmall(scale), mix);
            const auto rest = separate(makeSmall(scale, true), mix);
            std::transform(sum.begin(), sum.end(), rest.begin(), sum.begin(), std::plus());
            EXPECT_LT(deviation(sum, interleaved(mix)), 1.2e-7f) << length;  // one rounding
        }
    }
}

// What the model sees of a stream's only block, or of its first one, against the frames of the block as it must be.
TEST(ChunkProcessor, mirrorsTheEndsOfAStreamAndContinuesAShortOneWithZeros) {
    std::vector<float> seen;
    const auto noting = std::make_shared<FakeInference>(
        [&](const float* in, auto&, const Shape& shape) { return seen.assign(in, in + sizeOf(shape)), false; });
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
    ChunkProcessor onGrid = makeFull();
    for (const auto& [in, out] : {std::pair{257024U, 251 * 1024 - 4096U}, {254976, 254976}}) {
        EXPECT_EQ(onGrid.maxInputSize(), in);
        EXPECT_EQ(onGrid.process(silence(in), false).shape(1), out);
    }
    EXPECT_EQ(separate(makeFull(), std::vector<float>(1200000), std::vector<size_t>(60, 10000)).size(), 2 * 599072u);
    EXPECT_EQ(separate(makeFull(), std::vector<float>(1030144), {257024, 3072, 254976}).size(), 2 * 252928u);
}

TEST(ChunkProcessor, refusesWhatItCannotTakeAndChangesNothing) {
    ChunkProcessor processor = makeFull();
    processor.process(silence(130000), false);
    EXPECT_THROW(processor.process(silence(130000), true), std::invalid_argument);
    EXPECT_EQ(processor.process(silence(127024), true).shape(1), 257024u);
    // Twice a block fits.
    EXPECT_THROW(makeFull().process(silence(514049), false), std::runtime_error);
    EXPECT_NO_THROW(makeFull().process(silence(514048), false));
}

TEST(ChunkProcessorDeathTest, abortsWhenTheEndFindsMoreThanAModelCallTakes) {
    EXPECT_DEATH(separate(makeFull(), std::vector<float>(1200000), std::vector<size_t>(6, 100000)),
                 "chunk_processor.cpp:[0-9]+: process: Assertion .!eof \\|\\| _inputAggregator.length\\(\\) <= "
                 "_preproc->needData\\(\\)");
}

TEST(ChunkProcessor, hasNoOutputForAnEmptyStreamOrAFailedRun) {
    ChunkProcessor processor = makeSmall([](auto&&...) { return false; });
    EXPECT_EQ(processor.process(silence(0), false).dimension(), 0u);
    EXPECT_EQ(processor.process(silence(0), true).shape(), silence(0).shape());  // without asking the model
    EXPECT_EQ(processor.process(silence(100), true).dimension(), 0u);
}

TEST(ChunkProcessor, leavesDenormalNumbersToTheModelAndTheHost) {
    const auto hasDenormals = [] {
        volatile float tiny = 1e-39f;
        return tiny * 1.0f != 0.0f;
    };
    bool inModel = false, isSilence = false;
    ChunkProcessor processor = makeSmall([&](const float* in, auto& out, const Shape& shape) {
        isSilence = std::all_of(in, in + sizeOf(shape), [](float value) { return value == 0.0f; });
        std::fill_n(out[0], sizeOf(shape), 1e-39f);
        return inModel = hasDenormals();
    });
    const auto result = processor.process(xt::xarray<float>({2, 100}, 1e-39f), true);
    EXPECT_TRUE(inModel && hasDenormals());
    EXPECT_TRUE(isSilence) << "and to nobody else";
    EXPECT_EQ(std::count(result.begin(), result.end(), 0.0f), 200);
}

TEST(ChunkProcessor, logsWhatItDoesInTheClassicLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    ChunkProcessor processor = makeSmall();
    LogCapture log;
    const std::locale hosts = std::locale::global({std::locale::classic(), new Comma});
    processor.process(xt::xarray<float>({2, 16}, 1.1f), false);
    processor.process(xt::xarray<float>({2, 16}, -1.5f), true);
    std::locale::global(hosts);
    // Whether the queue can take a block: once a call.
    EXPECT_EQ(log.listing("VERB Can accept check"),
              "VERB Can accept check - space: 352, requested size: 16\n"
              "VERB Can accept check - space: 336, requested size: 16\n");
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
