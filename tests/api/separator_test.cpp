#include "tavrin/separator.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "models/model_bytes.h"
#include "support/fake_spectral_model.h"
#include "support/message_of.h"
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
    EXPECT_EQ(separate(model, interleaved(song), {{"bass", "vocals"}, true}).back(), interleaved(planar[2]));
    EXPECT_EQ(separate(model, song).size(), 6u);
}

TEST(Separator, keepsTheLatencyThatIsWanted) {
    const Model model = load("passthrough.onnx");
    const auto latency = [&](double seconds, size_t context) {
        return Separator(model, {{}, false, Layout::interleaved, seconds, context}).latency();
    };
    EXPECT_EQ(latency(0.0, 0), 264191u);
    EXPECT_EQ(latency(5119 / 44100.0, 1), 5119u);
    EXPECT_EQ(latency(1.0, 0), 4095u + 39 * 1024);
    EXPECT_EQ(latency(0.0, 127), 4095u + 128 * 1024);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { latency(0.1, 0); }),
              "a latency of 0.100 s cannot be kept; the least is 0.117 s with this model and a context of 1");
    EXPECT_THROW(latency(0.0, 128), std::invalid_argument);
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
    std::vector<float> song(300000), room(600000);
    Separator planar(model, {{"vocals"}, false, Layout::planar});
    float *const left = room.data(), *const right = left + 300000;
    const auto process = [&](const float* second, std::array<float*, 2> outputs, size_t capacity) {
        const float* const input[] = {song.data(), second};
        return planar.process(input, 300000, outputs.data(), capacity);
    };
    EXPECT_THROW(process(nullptr, {left, right}, 300000), std::invalid_argument);
    EXPECT_THROW(process(song.data(), {left, nullptr}, 300000), std::invalid_argument);
    EXPECT_THROW(process(song.data(), {left, right}, planar.outputFor(300000) - 1), std::invalid_argument);
    EXPECT_EQ(planar.pending(), 0u);
    EXPECT_GT(process(song.data(), {nullptr, nullptr}, 300000), 0u);  // an output that the host throws away
    EXPECT_EQ(separator.process({1.0f, 1.0f}).front().size(), 0u);
    EXPECT_EQ(separator.finish().front().size(), 2u);
}

TEST(Separator, turnsAFailedModelCallIntoAnExceptionAndSilenceInEveryOutput) {
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

}  // namespace
