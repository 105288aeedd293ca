// A host: what both channels of a song share is the bundled model's stem, and exceptions arrive as what they are.
#include <tavrin/separator.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>

int main() {
    std::ifstream file(TAVRIN_MODEL, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    const tavrin::Model model({bytes.data(), bytes.size()});
    const std::vector<float> song(100000, 0.5f);
    const std::vector<float> stem = tavrin::separate(model, song).at(0);
    for (std::size_t i = 20000; i < 80000; ++i)
        if (stem.size() != song.size() || !(std::abs(stem[i] - song[i]) < 1e-4f)) return 1;
    try {
        return tavrin::Separator(model, {}).process({1.0f}), 2;
    } catch (const std::invalid_argument&) {
    }
    try {
        return tavrin::Model({bytes.data(), 1000}), 3;
    } catch (const std::runtime_error&) {
        return 0;
    }
}
