// A host: the bundled model's stem and the rest make the song, and exceptions arrive as what they are.
#include <tavrin/separator.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>

template <class Failure, class Action>
static bool throws(const Action& action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what()[0] != 0;
    }
    return false;
}

int main() {
    std::ifstream file(TAVRIN_MODEL, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    const tavrin::Model model({bytes.data(), bytes.size()});
    tavrin::SeparatorConfig config;
    config.rest = true;
    std::vector<float> song(100000);
    for (std::size_t i = 0; i < song.size(); ++i) song[i] = 0.5f * std::sin(0.01f * float(i));
    const std::vector<std::vector<float>> outputs = tavrin::separate(model, song, config);
    if (outputs.size() != 2 || outputs[0].size() != song.size() || outputs[1].size() != song.size()) return 1;
    for (std::size_t i = 0; i < song.size(); ++i) {
        if (!(std::abs(outputs[0][i] + outputs[1][i] - song[i]) < 1e-6f)) return 2;
    }
    if (!throws<std::invalid_argument>([&] { tavrin::Separator(model, config).process({1.0f}); })) return 3;
    return throws<std::runtime_error>([&] { tavrin::Model({bytes.data(), 1000}); }) ? 0 : 4;
}
