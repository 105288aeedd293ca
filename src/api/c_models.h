/// @file
/// Models as callers of the C interface name and bring them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "api/c_call.h"
#include "tavrin/tavrin_proc.h"

/// A model's bytes and key, as the C++ interface takes them.
class CModelData {
public:
    /// @throws Refusal for null data, and for a null key that has a size.
    CModelData(const void* data, size_t size, const void* key, size_t keySize)
        : _data(&required(static_cast<const std::uint8_t*>(data), "data")), _size(size) {
        if (keySize > 0) _key.assign(&required(static_cast<const char*>(key), "key"), keySize);
    }

    /// Refers to this object and to the caller's memory.
    tavrin::ModelData view() const { return {_data, _size, &_key}; }

private:
    const std::uint8_t* _data;
    std::uint64_t _size;
    std::string _key;
};

/// @throws Refusal when no model is registered under the tag.
inline void requireLoaded(const std::string& tag) {
    if (!tavrin::isModelInitialized(tag))
        throw Refusal(TAVRIN_NOT_LOADED, "no model is loaded under the tag '" + tag + "'; tavrin_load() loads one");
}
