// Separates raw interleaved stereo floats into a model's first stem:  minimal_host MODEL.onnx SONG.f32 STEM.f32
#include <fstream>
#include <iostream>
#include <iterator>

#include "tavrin/separator.h"

int main(int argc, char** argv) try {
    if (argc != 4) return 2;
    std::ifstream modelFile(argv[1], std::ios::binary), song(argv[2], std::ios::binary);
    std::ofstream stem(argv[3], std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(modelFile), {}};

    const tavrin::Model model({bytes.data(), bytes.size()});
    tavrin::SeparatorConfig config;
    config.stems = {model.info().stems.front()};
    tavrin::Separator separator(model, config);
    const auto write = [&stem](const std::vector<float>& samples) {
        stem.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(samples.size() * sizeof(float)));
    };
    std::vector<float> block(2 * 1000);  // any size will do
    while (song.read(reinterpret_cast<char*>(block.data()), 2 * 1000 * sizeof(float)) || song.gcount() > 0) {
        block.resize(static_cast<std::size_t>(song.gcount()) / sizeof(float));
        write(separator.process(block)[0]);
    }
    write(separator.finish()[0]);
    return stem.flush() ? 0 : 4;
} catch (const std::exception& failure) {
    std::cerr << "minimal_host: " << failure.what() << '\n';
    return 3;
}
