// A host: the bundled model's stem and the rest make the song, and an exception arrives as what it is.
#include <tavrin/multi_stem_separator.h>
#include <tavrin/stream_separator.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>

int main() {
    std::ifstream file(TAVRIN_MODEL, std::ios::binary);
    const std::vector<std::uint8_t> model{std::istreambuf_iterator<char>(file), {}};
    if (!tavrin::initializeModel("centre", {model.data(), model.size(), nullptr})) return 1;
    tavrin::TavrinProcConfig stem, rest;
    stem.modelTag = rest.modelTag = "centre";
    rest.subtractFromInput = true;
    std::vector<float> song(100000);
    for (std::size_t i = 0; i < song.size(); ++i) song[i] = 0.5f * std::sin(0.01f * float(i));
    const std::vector<float> a = tavrin::separate(stem, song), b = tavrin::separate(rest, song);
    if (a.size() != song.size() || b.size() != song.size()) return 2;
    for (std::size_t i = 0; i < song.size(); ++i) {
        if (!(std::abs(a[i] + b[i] - song[i]) < 1e-6f)) return 3;
    }
    try {
        tavrin::StreamSeparator(stem).process({1.0f});
    } catch (const std::invalid_argument&) {
        return 0;
    }
    return 4;
}
