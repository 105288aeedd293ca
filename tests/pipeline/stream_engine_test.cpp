#include "pipeline/stream_engine.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "dsp/window.h"
#include "support/fake_spectral_model.h"
#include "support/plain_separation.h"
#include "support/signals.h"

namespace {

using tavrin::StreamEngine;
using tavrin::StreamPlan;

constexpr size_t kFrame = 32;

// A small plan for a model of two stems.
StreamPlan plan(size_t hop, size_t frames, size_t context, size_t step, size_t bins = kFrame / 2, bool rest = true) {
    return {hop,  frames, bins, context, step, getWindow(WindowType::Blackman, int(kFrame)), 2, {{"a", 1}, {"b", 0}},
            rest, 1000};
}

// Stem 0 of the model mixes every frame with its neighbours at the distance `reach` on both sides, each channel with
// the other's planes left apart; stem 1 halves. Frames outside the window count as silence.
FakeSpectralModel::Model neighbours(size_t frames, size_t bins, size_t reach) {
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

PlainSpectra neighboursOfAll(const PlainSpectra& in, size_t reach) {
    PlainSpectra out = in;
    for (size_t c = 0; c < 2; ++c)
        for (size_t f = 0; f < in[c].size(); ++f)
            for (size_t k = 0; k < in[c][f].size(); ++k)
                out[c][f][k] = 0.5 * in[c][f][k] + 0.3 * (f >= reach ? in[c][f - reach][k] : 0.0) -
                               0.2 * (f + reach < in[c].size() ? in[c][f + reach][k] : 0.0);
    return out;
}

// A stereo stream through an engine in pieces that `cut` chooses, planar or interleaved by turns; checks on the way
// that what is promised comes, and that no more than the latency is held back. All outputs after one another, planar.
template <class Cut>
std::vector<float> stream(StreamEngine& engine, const StreamPlan& plan, const std::vector<float>& planar, Cut cut) {
    const size_t length = planar.size() / 2;
    std::vector<std::vector<float>> outputs(2 * plan.outputs());
    for (size_t from = 0, n = 0, call = 0; from <= length; from += n, ++call) {
        const bool last = from == length, isWoven = call % 2 == 0;
        n = last ? 1 : std::min(length - from, size_t{cut()});
        const size_t finished = last ? engine.pending() : engine.outputFor(n);
        std::vector<float> room(2 * finished * plan.outputs() + 2, 9.0f), woven;
        std::vector<StreamEngine::Output> targets;
        for (float* at = room.data(); targets.size() < plan.outputs(); at += 2 * finished)
            targets.push_back(isWoven ? StreamEngine::Output{at, at + 1, 2}
                                      : StreamEngine::Output{at, at + finished, 1});
        woven.reserve(2 * n + 1);
        for (size_t i = 0; !last && i < 2 * n; ++i) woven.push_back(planar[from + i / 2 + i % 2 * length]);
        if (last)
            engine.finish(targets.data());
        else if (isWoven)
            engine.process({woven.data(), woven.data() + 1, 2}, n, targets.data());
        else
            engine.process({&planar[from], &planar[length + from], 1}, n, targets.data());
        for (size_t o = 0; o < plan.outputs(); ++o)
            for (size_t i = 0; i < finished; ++i) {
                outputs[2 * o].push_back(targets[o].left[i * targets[o].step]);
                outputs[2 * o + 1].push_back(targets[o].right[i * targets[o].step]);
            }
        EXPECT_LE(engine.pending(), plan.latency());
    }
    std::vector<float> all;
    for (const auto& output : outputs) {
        EXPECT_EQ(output.size(), length);
        all.insert(all.end(), output.begin(), output.end());
    }
    return all;
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
                    const auto song = noise(2 * length, unsigned(length + step));
                    const auto whole = stream(engine, small, song, [&] { return length; });
                    engine.reset();
                    ASSERT_EQ(stream(engine, small, song, [&] { return random() % (1 + random() % (3 * h)); }), whole)
                        << hop << ' ' << context << ' ' << step << ' ' << length;
                    engine.reset();
                    const auto plain =
                        separatePlainly(song, {h, small.bins, small.window},
                                        [&](const PlainSpectra& all) { return neighboursOfAll(all, context); });
                    for (size_t i = 0; i < 2 * length; ++i) {  // stems b and a, and the rest
                        const float a = whole[i], b = whole[2 * length + i];
                        ASSERT_NEAR(b, plain[i], 4e-5)
                            << hop << ' ' << context << ' ' << step << ' ' << length << ' ' << i;
                        ASSERT_NEAR(whole[4 * length + i], song[i] - a - b, 2.5e-7);
                    }
                }
            }
}

TEST(StreamEngine, doesNotChangeAtTheBordersOfModelCalls) {
    const StreamPlan seamless = plan(8, 32, 6, 20, 16, false);
    FakeSpectralModel model(neighbours(32, 16, 6));
    StreamEngine engine(model, seamless);
    const auto song = tones(3000, 300);
    std::vector<float> first;
    for (size_t delay = 0; delay <= 41; ++delay) {  // over two steps
        std::vector<float> late(2 * (3000 + 8 * delay));
        for (size_t c = 0; c < 2; ++c)
            std::copy_n(song.begin() + ptrdiff_t(3000 * c), 3000,
                        late.end() - ptrdiff_t((1 - c) * late.size() / 2 + 3000));
        const auto out = stream(engine, seamless, late, [] { return size_t{500}; });
        engine.reset();
        const std::vector<float> part(out.begin() + ptrdiff_t(8 * delay + 200),
                                      out.begin() + ptrdiff_t(8 * delay + 2800));
        if (delay == 0) first = part;
        ASSERT_EQ(part, first) << delay;
    }
}

// A constant signal through a model that passes it on: what is switched shows as a step with the window's slope.
TEST(StreamEngine, fadesStemsInAndOutAndLeavesTheRestWhole) {
    const StreamPlan small = plan(8, 7, 1, 1);
    FakeSpectralModel model(neighbours(7, 16, 1));
    StreamEngine engine(model, small);
    std::vector<float> stem, rest;
    for (size_t block = 0; block < 60; ++block) {
        if (block == 20) engine.select({false, true});
        if (block == 40) engine.select({true, true});
        const std::vector<float> input(8, 0.25f);
        const size_t n = engine.outputFor(8);
        std::vector<float> room(6 * 8);
        const StreamEngine::Output outputs[] = {
            {&room[0], &room[8], 1}, {&room[16], &room[24], 1}, {&room[32], &room[40], 1}};
        engine.process({input.data(), input.data(), 1}, 8, outputs);
        for (size_t i = 0; i < n; ++i) {
            stem.push_back(room[i]);
            rest.push_back(room[32 + i]);
            ASSERT_NEAR(room[i] + room[16 + i] + room[32 + i], 0.25f, 1e-7f);  // also while a stem fades
        }
    }
    EXPECT_NEAR(stem[100], 0.125f, 1e-5f);
    EXPECT_EQ(std::count(stem.begin(), stem.end(), 0.0f), 20 * 8 - 3 * 8);
    for (size_t i = 64; i < stem.size(); ++i) ASSERT_LT(std::abs(stem[i] - stem[i - 1]), 0.02f) << i;
    EXPECT_NEAR(stem.back(), 0.125f, 1e-5f);
}

TEST(StreamEngine, takesBrokenInputForSilenceAndRefusesBrokenOutput) {
    const StreamPlan small = plan(8, 7, 1, 2, 16, false);
    FakeSpectralModel model(neighbours(7, 16, 1));
    StreamEngine engine(model, small);
    auto song = noise(400, 1);
    const auto cut = [] { return size_t{64}; };
    song[100] = song[301] = 0.0f;
    const auto clean = stream(engine, small, song, cut);
    engine.reset();
    song[100] = NAN;
    song[301] = -INFINITY;
    EXPECT_EQ(stream(engine, small, song, cut), clean);

    // Whichever stem and channel it is in. The twentieth call is the first one to give frame 39, from 280 ms on.
    for (const size_t output : {0U, 1U})
        for (const size_t plane : {0U, 3U}) {
            int calls = 0;
            FakeSpectralModel dividing([&](const float*, float* const* outputs) {
                for (size_t stem : {0U, 1U}) std::fill_n(outputs[stem], 4 * 7 * 16, 0.0f);
                if (++calls == 20) outputs[output][(plane * 7 + 5) * 16 + 2] = output == 0 ? NAN : INFINITY;
            });
            StreamEngine broken(dividing, small);
            try {
                stream(broken, small, noise(1200, 1), cut);
                FAIL();
            } catch (const std::runtime_error& refused) {
                EXPECT_NE(std::string(refused.what()).find(output == 0 ? "'b' at 0.280 s" : "'a' at 0.280 s"),
                          std::string::npos)
                    << refused.what();
            }
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
    const auto song = noise(400, 1), silence = std::vector<float>(800);
    for (int round = 0; round < 2; ++round, engine.reset()) {
        engine.select({false, false});
        if (round == 1) engine.reset();
        const auto out = stream(engine, small, song, [] { return size_t{64}; });
        EXPECT_TRUE(std::equal(silence.begin(), silence.end(), out.begin()));
        EXPECT_TRUE(std::equal(song.begin(), song.end(), out.begin() + 800));  // the rest
    }
    EXPECT_EQ(model.calls, 0);
    engine.select({true, false});
    stream(engine, small, noise(2 * 30, 1), [] { return size_t{30}; });
    EXPECT_EQ(asked, "aaaa");
}

}  // namespace
