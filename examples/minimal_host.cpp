// Separates raw interleaved stereo floats at 44.1 kHz:  minimal_host MODEL.onnx SONG.f32 STEM.f32
#include <fstream>
#include <iterator>

#include "tavrin/stream_separator.h"

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    std::ifstream modelFile(argv[1], std::ios::binary), song(argv[2], std::ios::binary);
    std::ofstream stem(argv[3], std::ios::binary);
    const std::vector<std::uint8_t> model{std::istreambuf_iterator<char>(modelFile), {}};
    if (!tavrin::initializeModel("centre", {model.data(), model.size(), nullptr})) return 3;

    tavrin::TavrinProcConfig config;
    config.modelTag = "centre";
    tavrin::StreamSeparator separator(config);
    const auto write = [&stem](const std::vector<float>& samples) {
        stem.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(samples.size() * sizeof(float)));
    };
    std::vector<float> block(2 * 1000);  // any size will do
    while (song.read(reinterpret_cast<char*>(block.data()), 2 * 1000 * sizeof(float)) || song.gcount() > 0) {
        block.resize(static_cast<std::size_t>(song.gcount()) / sizeof(float));
        write(separator.process(block));
    }
    write(separator.finish());
    return stem.flush() ? 0 : 4;
}
