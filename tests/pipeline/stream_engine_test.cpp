#include "pipeline/stream_engine.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "dsp/window.h"
#include "support/fake_spectral_model.h"
#include "support/message_of.h"
#include "support/signals.h"
#include "support/stream_in_pieces.h"

using tavrin::StreamEngine;
using tavrin::StreamPlan;

constexpr size_t kFrame = 32;

static size_t all(size_t) { return SIZE_MAX; }

// A small plan for a model of two stems.
static StreamPlan plan(size_t hop, size_t frames, size_t context, size_t step, size_t bins = kFrame / 2,
                       bool rest = true) {
    return {hop,  frames, bins, context, step, getWindow(WindowType::Blackman, int(kFrame)), 2, {{"a", 1}, {"b", 0}},
            rest, 1000};
}

// Stem 0 of the model mixes every frame with its neighbours at the distance `reach` on both sides, each channel with
// the other's planes left apart; stem 1 halves. Frames outside the window count as silence.
static FakeSpectralModel::Model neighbours(size_t frames, size_t bins, size_t reach) {
    return [=](const float* in, float* const* out) {
        for (size_t p = 0; p < 4; ++p)
            for (size_t f = 0; f < frames; ++f)
                for (size_t k = 0; k < bins; ++k) {
                    const float* at = in + (p * frames + f) * bins + k;
                    const float before = f >= reach ? at[-long(reach * bins)] : 0.0f;
                    const float after = f + reach < frames ? at[reach * bins] : 0.0f;
                    if (out[0]) out[0][at - in] = 0.5f * *at + 0.3f * before - 0.2f * after;
                    if (out[1]) out[1][at - in] = 0.5f * *at;
                }
        // An imaginary part of DC, which means nothing.
        for (size_t f = 0; f < frames && out[0]; ++f)
            out[0][(frames + f) * bins] = out[0][(3 * frames + f) * bins] = 7.0f;
    };
}

// Stem 0 of a planar stereo song by definition: no ring, no window of frames, no transform, double precision. As much
// as the bins hold of a windowed frame is its convolution with what they hold of an impulse.
static std::vector<double> separatePlainly(const std::vector<float>& song, const StreamPlan& plan, size_t reach) {
    const size_t length = song.size() / 2;
    if (length == 0) return {};
    const size_t total = (length + plan.hop - 1) / plan.hop * plan.hop + 2 * kFrame;
    std::vector<double> impulse(kFrame), result;
    for (size_t i = 0; i < kFrame; ++i)
        for (size_t k = 0; k < plan.bins; ++k)  // DC is there once, every other bin has its mirror
            impulse[i] += (k == 0 ? 1.0 : 2.0) * std::cos(2.0 * M_PI * double(i * k) / kFrame) / kFrame;
    for (size_t c = 0; c < 2; ++c) {
        std::vector<double> sums(total), norms(total);
        for (size_t start = 0; start + kFrame <= total; start += plan.hop)
            for (size_t j = 0; j < kFrame; ++j) {
                const auto windowed = [&](size_t frame) {
                    const size_t position = frame + j, k = std::max(position, kFrame) - std::min(position, kFrame);
                    if (frame + kFrame > total || k >= 2 * length - 1) return 0.0;
                    return double(plan.window[j]) * song[c * length + std::min(k, 2 * (length - 1) - k)];
                };
                const double before = start >= reach * plan.hop ? windowed(start - reach * plan.hop) : 0.0;
                const double mixed = 0.5 * windowed(start) + 0.3 * before - 0.2 * windowed(start + reach * plan.hop);
                norms[start + j] += double(plan.window[j]) * plan.window[j];
                for (size_t i = 0; i < kFrame; ++i)
                    sums[start + i] += plan.window[i] * impulse[(i + kFrame - j) % kFrame] * mixed;
            }
        for (size_t k = kFrame; k < kFrame + length; ++k) result.push_back(sums[k] / norms[k]);
    }
    return result;
}

// Every geometry, context, step and kind of length against the whole stream at once, the ends included.
TEST(StreamEngine, givesWhatAPlainComputationOverTheWholeStreamGives) {
    std::mt19937 random(3);
    using Geometry = std::array<size_t, 3>;
    for (const auto& [hop, frames, bins] : {Geometry{8, 7, 16}, {16, 5, 16}, {8, 16, 11}, {12, 9, 16}, {1, 40, 16}})
        for (size_t context = 1; 2 * context<frames; context += frames> 10 ? 5 : 1)
            for (size_t step = 1; step <= frames - 2 * context; step += 1 + step / 3) {
                const StreamPlan small = plan(hop, frames, context, step, bins);
                FakeSpectralModel model(neighbours(small.frames, small.bins, context));
                StreamEngine engine(model, small);
                const size_t h = small.hop;
                for (const size_t length : {size_t{0}, size_t{1}, h - 1, h, h + 1, kFrame - 1, kFrame, kFrame + 1,
                                            2 * kFrame, 2 * kFrame + h / 2, 3 * kFrame + 5, 9 * kFrame + 7}) {
                    SCOPED_TRACE(testing::Message() << hop << ' ' << context << ' ' << step << ' ' << length);
                    const auto song = noise(2 * length, unsigned(length + step));
                    const auto whole = streamInPieces(engine, small, song, all);
                    engine.reset();
                    const auto cut = [&](size_t) { return random() % (1 + random() % (3 * h)); };
                    ASSERT_EQ(streamInPieces(engine, small, song, cut), whole);
                    engine.reset();
                    const auto plain = separatePlainly(song, small, context);
                    for (size_t i = 0; i < 2 * length; ++i) {  // stems b and a, and the rest
                        const float a = whole[i], b = whole[2 * length + i];
                        ASSERT_NEAR(b, plain[i], 4e-5) << i;
                        ASSERT_NEAR(whole[4 * length + i], song[i] - a - b, 2.5e-7);
                    }
                }
            }
}

// A constant signal through a model that passes it on: what is switched shows as a step with the window's slope.
TEST(StreamEngine, fadesStemsInAndOutAndLeavesTheRestWhole) {
    const StreamPlan small = plan(8, 7, 1, 1);
    FakeSpectralModel model(neighbours(7, 16, 1));
    StreamEngine engine(model, small);
    const auto out = streamInPieces(engine, small, std::vector<float>(2 * 480, 0.25f), [&](size_t from) {
        if (from == 160 || from == 320) engine.select({from == 320, true});
        return size_t{8};
    });
    EXPECT_NEAR(out[100], 0.125f, 1e-5f);
    EXPECT_NEAR(out[479], 0.125f, 1e-5f);
    EXPECT_EQ(std::count(out.begin(), out.begin() + 480, 0.0f), 20 * 8 - 3 * 8);
    for (size_t i = 0; i < 480; ++i) {
        ASSERT_LT(std::abs(out[i] - out[i > 0 ? i - 1 : 0]), 0.02f) << i;
        ASSERT_NEAR(out[i] + out[2 * 480 + i] + out[4 * 480 + i], 0.25f, 1e-7f);  // also while a stem fades
    }
}

TEST(StreamEngine, takesBrokenInputForSilenceAndRefusesBrokenOutput) {
    const StreamPlan small = plan(8, 7, 1, 2, 16, false);
    FakeSpectralModel model(neighbours(7, 16, 1));
    StreamEngine engine(model, small);
    auto song = noise(400, 1);
    song[100] = song[301] = 0.0f;
    const auto clean = streamInPieces(engine, small, song, all);
    engine.reset();
    song[100] = NAN, song[301] = -INFINITY;
    EXPECT_EQ(streamInPieces(engine, small, song, all), clean);

    // Whichever stem and channel it is in. The twentieth call is the first one to give frame 39, from 280 ms on.
    for (const size_t output : {0U, 1U})
        for (const size_t plane : {0U, 3U}) {
            int calls = 0;
            FakeSpectralModel dividing([&](const float*, float* const* outputs) {
                for (size_t stem : {0U, 1U}) std::fill_n(outputs[stem], 4 * 7 * 16, 0.0f);
                if (++calls == 20) outputs[output][(plane * 7 + 5) * 16 + 2] = output == 0 ? NAN : INFINITY;
            });
            StreamEngine broken(dividing, small);
            EXPECT_PRED_FORMAT2(
                testing::IsSubstring, output == 0 ? "'b' at 0.280 s" : "'a' at 0.280 s",
                messageOf<std::runtime_error>([&] { streamInPieces(broken, small, noise(1200, 1), all); }));
        }
}

TEST(StreamEngine, asksTheModelForWhatIsWantedAndKeepsTheChoiceThroughAReset) {
    const StreamPlan small = plan(8, 7, 1, 2);
    std::string asked;
    FakeSpectralModel model([&](const float*, float* const* outputs) {
        for (size_t stem : {0U, 1U})
            if (outputs[stem]) std::fill_n(outputs[stem], 4 * 7 * 16, 0.0f), asked += stem == 0 ? 'b' : 'a';
    });
    StreamEngine engine(model, small);
    engine.select({false, false});
    engine.reset();
    std::vector<float> song = noise(400, 1), expected(800);
    expected.insert(expected.end(), song.begin(), song.end());  // the rest
    EXPECT_EQ(streamInPieces(engine, small, song, all), expected);
    EXPECT_EQ(asked, "");
    engine.reset();
    engine.select({true, false});
    streamInPieces(engine, small, noise(2 * 30, 1), all);
    EXPECT_EQ(asked, "aaaa");
}
