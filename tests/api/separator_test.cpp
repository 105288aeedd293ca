#include "tavrin/separator.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "models/model_bytes.h"
#include "support/fake_spectral_model.h"
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
    const std::vector<float> song(300000);
    std::vector<float> room(600000);
    Separator planar(model, {{"vocals"}, false, Layout::planar});
    for (const bool isNull : {true, false}) {  // the right channel of the input, or of the output
        const float* const input[] = {song.data(), isNull ? nullptr : song.data()};
        float* const outputs[] = {room.data(), isNull ? room.data() + 300000 : nullptr};
        EXPECT_THROW(planar.process(input, 300000, outputs, 300000), std::invalid_argument);
    }
    const float* const input[] = {song.data(), song.data()};
    float* const outputs[] = {room.data(), room.data() + 300000};
    EXPECT_THROW(planar.process(input, 300000, outputs, planar.outputFor(300000) - 1), std::invalid_argument);
    EXPECT_EQ(planar.pending(), 0u);
    EXPECT_EQ(separator.process({1.0f, 1.0f}).front().size(), 0u);
    EXPECT_EQ(separator.finish().front().size(), 2u);
}

TEST(Separator, turnsAFailedModelCallIntoAnExceptionAndSilenceInEveryOutput) {
    Separator real(load("failing.onnx"), {});
    const std::string message =
        messageOf<std::runtime_error>([&] { real.process(std::vector<float>(2 * 300000, 0.1f)); });
    EXPECT_NE(message.find("out of data bounds"), std::string::npos) << message;

    int calls = 0;
    const auto failsInTheEnd = [&](const float* in, float* const* out) {
        passOn(2, 4 * 9 * 32)(in, out);
        if (++calls % 5 == 0) throw std::runtime_error("no more");
    };
    Separator separator(fakeModel(failsInTheEnd, 2, 64, 16, 9), {{}, true, Layout::planar});
    const auto song = noise(2 * 1000, 1);
    for (const bool atTheEnd : {false, true}) {
        const size_t taken = atTheEnd ? 272 : 1000, given = separator.outputFor(taken);  // the latter in five calls
        std::vector<float> room(6 * 1000, 9.0f);
        float* outputs[6];
        for (size_t o = 0; o < 6; ++o) outputs[o] = &room[o * 1000];
        const float* const input[] = {song.data(), song.data() + 1000};
        size_t silent = given;
        const auto failing = [&] {
            separator.process(input, taken, outputs, 1000);
            silent = separator.pending();
            separator.finish(outputs, silent);
        };
        EXPECT_EQ(messageOf<std::runtime_error>(failing), "no more");
        for (const float* output : outputs) EXPECT_EQ(std::count(output, output + 1000, 0.0f), ptrdiff_t(silent));
        EXPECT_THROW(separator.process({}), std::logic_error);
        EXPECT_THROW(separator.finish(), std::logic_error);
        separator.reset();
        EXPECT_EQ(separator.pending(), 0u);
    }
}

TEST(Separator, followsTheWindowTheContextAndTheRateOfItsModel) {
    for (const std::string window : {"hann", "blackman"}) {
        float steady = 0.0f;  // the DC of a frame of ones: the window's sum
        const Model model =
            fakeModel([&](const float* in, float* const* out) { steady = in[8 * 32], passOn(1, 4 * 9 * 32)(in, out); },
                      1, 64, 16, 9, window.c_str());
        Separator separator(model, {{}, false, Layout::interleaved, 0.003});  // 144 samples
        EXPECT_EQ(separator.latency(), 143u);
        separator.process(std::vector<float>(2 * 1000, 1.0f));
        EXPECT_NEAR(steady, window == "hann" ? 32.0f : 0.42f * 64, 1e-4);
    }
}

}  // namespace
