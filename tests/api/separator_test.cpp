#include "tavrin/separator.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "models/model_bytes.h"
#include "support/signals.h"

namespace {

using tavrin::Layout;
using tavrin::Model;
using tavrin::Separator;
using tavrin::SeparatorConfig;

Model load(const char* name) {
    const auto bytes = modelBytes(name);
    return Model({bytes.data(), bytes.size(), nullptr});
}

template <class Error, class Action>
std::string messageOf(Action action) try {
    action();
    return "";
} catch (const Error& refused) {
    return refused.what();
}

TEST(Separator, givesNamedStemsInPlaceAndTheRestInBothLayouts) {
    const Model model = load("six_stems.onnx");  // halves, quarters, eighths …
    const auto song = tones(600001, 20000);
    const SeparatorConfig config{{"bass", "vocals"}, true, Layout::planar};
    const auto planar = separate(model, song, config);
    ASSERT_EQ(planar.size(), 3u);
    EXPECT_EQ(Separator(model, config).outputs(), (std::vector<std::string>{"bass", "vocals", "rest"}));
    for (size_t i = 0; i < song.size(); ++i) {
        ASSERT_NEAR(planar[0][i], 0.125f * song[i], 1e-6) << i;
        ASSERT_NEAR(planar[1][i], 0.5f * song[i], 1e-6) << i;
        ASSERT_NEAR(planar[2][i] + planar[1][i] + planar[0][i], song[i], 2e-7) << i;
    }
    std::vector<float> woven(song.size()), expected(song.size());
    for (size_t i = 0; i < song.size(); ++i) woven[i] = song[i / 2 + i % 2 * 600001];
    for (size_t i = 0; i < song.size(); ++i) expected[i] = planar[2][i / 2 + i % 2 * 600001];
    EXPECT_EQ(separate(model, woven, {{"bass", "vocals"}, true}).back(), expected);
    EXPECT_EQ(separate(model, woven).size(), 6u);
}

TEST(Separator, givesTheSameBitsOnTheCallersMemoryAndAfterAReset) {
    const Model model = load("six_stems.onnx");
    Separator separator(model, {{"piano"}, false, Layout::planar, 0.5});
    const auto song = noise(2 * 100000, 4);
    const auto whole = separate(model, song, {{"piano"}, false, Layout::planar, 0.5}).front();
    for (int round = 0; round < 2; ++round, separator.reset()) {
        std::vector<float> out(whole.size());
        size_t fed = 0, done = 0;
        for (const size_t n : {size_t{1}, size_t{4096}, size_t{50003}, size_t{0}, size_t{45900}}) {
            const float* const input[] = {&song[fed], &song[100000 + fed]};
            float* const outputs[] = {&out[done], &out[100000 + done]};
            const size_t expected = separator.outputFor(n);
            fed += n;
            ASSERT_EQ(separator.process(input, n, outputs, expected), expected);
            done += expected;
            ASSERT_EQ(separator.pending(), fed - done);
            ASSERT_LE(separator.pending(), separator.latency());
        }
        float* const outputs[] = {&out[done], &out[100000 + done]};
        const std::string tooSmall =
            messageOf<std::invalid_argument>([&] { separator.finish(outputs, separator.pending() - 1); });
        EXPECT_NE(tooSmall.find("room for"), std::string::npos);
        separator.finish(outputs, separator.pending());
        EXPECT_EQ(out, whole);
        EXPECT_THROW(separator.finish(outputs, 0), std::logic_error);
    }
    float* const nowhere[] = {nullptr, nullptr};  // an output that the host throws away
    const float* const input[] = {song.data(), song.data() + 100000};
    EXPECT_GT(separator.process(input, 100000, nowhere, 100000), 0u);
}

TEST(Separator, keepsTheLatencyThatIsWanted) {
    const Model model = load("passthrough.onnx");
    const auto latency = [&](double seconds, size_t context) {
        return Separator(model, {{}, false, Layout::interleaved, seconds, context}).latency();
    };
    EXPECT_EQ(latency(0.0, 0), 264191u);
    EXPECT_EQ(latency(60.0, 0), 264191u);
    EXPECT_EQ(latency(5119 / 44100.0, 1), 5119u);
    EXPECT_EQ(latency(1.0, 0), 4095u + 39 * 1024);
    EXPECT_EQ(latency(0.0, 127), 4095u + 128 * 1024);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { latency(0.1, 0); }),
              "a latency of 0.100 s cannot be kept; the least is 0.117 s with this model and a context of 1");
    EXPECT_NE(messageOf<std::invalid_argument>([&] { latency(0.0, 128); }).find("the largest is 127"),
              std::string::npos);
    EXPECT_THROW(latency(-1.0, 0), std::invalid_argument);
    EXPECT_THROW(latency(NAN, 0), std::invalid_argument);
}

TEST(Separator, refusesWhatItCannotServeAndChangesNothing) {
    const Model model = load("six_stems.onnx");
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { Separator(model, {{"drum"}}); }),
              "there is no stem 'drum'; the model has vocals, drums, bass, piano, acoustic_guitar, electric_guitar");
    EXPECT_THROW(Separator(model, {{"bass", "bass"}}), std::invalid_argument);
    Separator separator(model, {{"vocals"}});
    EXPECT_THROW(separator.select({"bass"}), std::invalid_argument);
    EXPECT_THROW(separator.process({1.0f}), std::invalid_argument);
    EXPECT_THROW(separator.process(nullptr, 1, nullptr, 0), std::invalid_argument);
    EXPECT_EQ(separator.process({1.0f, 1.0f}).front().size(), 0u);
    EXPECT_EQ(separator.finish().front().size(), 2u);
}

TEST(Separator, turnsAFailedModelCallIntoAnExceptionAndSilence) {
    Separator separator(load("failing.onnx"), {});
    std::vector<float> song(2 * 300000, 0.1f), out(song.size(), 9.0f);
    const float* const input[] = {song.data()};
    float* const outputs[] = {out.data()};
    const std::string message =
        messageOf<std::runtime_error>([&] { separator.process(input, 300000, outputs, 300000); });
    EXPECT_NE(message.find("out of data bounds"), std::string::npos) << message;
    EXPECT_EQ(std::count(out.begin(), out.end(), 0.0f), 2 * (254 * 1024 - 4096));
    EXPECT_THROW(separator.process({}), std::logic_error);
    separator.reset();
    EXPECT_NO_THROW(separator.process({}));
}

}  // namespace
