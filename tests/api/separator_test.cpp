#include "tavrin/separator.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "models/model_bytes.h"
#include "support/fake_spectral_model.h"
#include "support/message_of.h"
#include "support/signals.h"

using tavrin::Layout;
using tavrin::Model;
using tavrin::Separator;
using tavrin::SeparatorConfig;

TEST(Separator, givesNamedStemsInPlaceAndTheRestInBothLayouts) {
    const Model model = modelOf(modelBytes("six_stems.onnx"));  // halves, quarters, eighths …
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
    const Model model = modelOf(modelBytes("passthrough.onnx"));
    const auto latency = [&](double seconds, size_t context) {
        return Separator(model, {{}, false, Layout::interleaved, seconds, context}).latency();
    };
    EXPECT_EQ(latency(0.0, 0), 264191u);
    EXPECT_EQ(latency(5119 / 44100.0, 1), 5119u);
    EXPECT_EQ(latency(1.0, 0), 4095u + 39 * 1024);
    EXPECT_EQ(latency(0.0, 127), 4095u + 128 * 1024);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { latency(0.1, 0); }),
              "a latency of 0.100 s cannot be kept; the least is 0.117 s with this model and a context of 1");
    for (const auto& [seconds, context] : {std::pair{0.0, 128U}, {-1.0, 0}, {NAN, 0}})
        EXPECT_THROW(latency(seconds, context), std::invalid_argument) << seconds;
}

TEST(Separator, refusesWhatItCannotServeAndChangesNothing) {
    const Model model = modelOf(modelBytes("six_stems.onnx"));
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { Separator(model, {{"drum"}}); }),
              "there is no stem 'drum'; the model has vocals, drums, bass, piano, acoustic_guitar, electric_guitar");
    EXPECT_THROW(Separator(model, {{"bass", "bass"}}), std::invalid_argument);
    Separator separator(model, {{"vocals"}});
    EXPECT_THROW(separator.select({"bass"}), std::invalid_argument);
    EXPECT_THROW(separator.process({1.0f}), std::invalid_argument);
    EXPECT_THROW(separator.process(nullptr, 1, nullptr, 0), std::invalid_argument);
    std::vector<float> song(300000);
    float* const room = song.data();
    Separator planar(model, {{"vocals"}, false, Layout::planar});
    const auto process = [&](const float* second, std::array<float*, 2> outputs, size_t capacity) {
        const float* const input[] = {song.data(), second};
        return planar.process(input, 300000, outputs.data(), capacity);
    };
    EXPECT_THROW(process(nullptr, {room, room}, 300000), std::invalid_argument);
    EXPECT_THROW(process(room, {room, nullptr}, 300000), std::invalid_argument);
    EXPECT_THROW(process(room, {room, room}, planar.outputFor(300000) - 1), std::invalid_argument);
    EXPECT_EQ(planar.pending(), 0u);
    EXPECT_GT(process(room, {nullptr, nullptr}, 300000), 0u);  // an output that the host throws away
    EXPECT_EQ(separator.process({1.0f, 1.0f}).front().size(), 0u);
    EXPECT_EQ(separator.finish().front().size(), 2u);
}

TEST(Separator, turnsAFailedModelCallIntoAnExceptionAndSilenceInEveryOutput) {
    int calls = 0;
    const auto failsInTheEnd = [&](const float* in, float* const* out) {
        passOn(2, 4 * 9 * 32)(in, out);
        if (++calls % 5 == 0) throw std::runtime_error("no more");
    };
    Separator separator(fakeModel(failsInTheEnd, 2, 64, 16, 9), {{}, true});
    const auto song = noise(2 * 1000, 1);
    const float* const input = song.data();
    for (const size_t taken : {1000U, 272U}) {  // process() makes five calls, or finish() the fifth
        std::vector<std::vector<float>> room(3, std::vector<float>(2 * 1000, 9.0f));
        float* const outputs[] = {room[0].data(), room[1].data(), room[2].data()};
        size_t silent = separator.outputFor(taken);
        const auto failing = [&] {
            separator.process(&input, taken, outputs, 1000);
            silent = separator.pending();
            separator.finish(outputs, silent);
        };
        EXPECT_EQ(messageOf<std::runtime_error>(failing), "no more");
        for (const auto& output : room) EXPECT_EQ(std::ranges::count(output, 0.0f), ptrdiff_t(2 * silent));
        EXPECT_THROW(separator.process({}), std::logic_error);
        EXPECT_THROW(separator.finish(), std::logic_error);
        separator.reset();
        EXPECT_EQ(separator.pending(), 0u);
    }
}
