/// @file
/// The tiny models of this folder.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tavrin/separator.h"

/// The bytes of a model file of this folder; empty when there is no such file.
inline std::vector<std::uint8_t> modelBytes(const std::string& name) {
    std::ifstream file(std::string(TAVRIN_TEST_MODELS "/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The model that these bytes are.
inline tavrin::Model modelOf(const std::vector<std::uint8_t>& bytes, const tavrin::ModelOptions& options = {}) {
    return tavrin::Model({bytes.data(), bytes.size()}, options);
}
