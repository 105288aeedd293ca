/// @file
/// Reads the tiny models of this folder.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// The bytes of a model file of this folder; empty when there is no such file.
inline std::vector<std::uint8_t> modelBytes(const std::string& name) {
    std::ifstream file(std::string(TAVRIN_TEST_MODELS "/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
