/// @file
/// Access to a model's bytes, scrambled or not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// The plain bytes of a model: its own when it has no key, otherwise a private copy whose byte i is the model's byte i
/// XOR key byte i mod key length.
class PlainBytes {
public:
    explicit PlainBytes(const ModelData& model);
    PlainBytes(const PlainBytes&) = delete;
    PlainBytes& operator=(const PlainBytes&) = delete;

    const void* data() const { return _data; }
    std::size_t size() const { return _size; }

private:
    std::vector<std::uint8_t> _copy;
    const std::uint8_t* _data;
    std::size_t _size;
};

}  // namespace tavrin
