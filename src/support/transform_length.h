/// @file
/// The frame lengths that the library can transform.
#pragma once

#include <cstddef>

namespace tavrin {

/// Whether PFFFT's real transform takes this length: a positive multiple of 32 without prime factors above 5.
inline bool isTransformLength(std::size_t length) {
    if (length == 0 || length % 32 != 0) return false;
    for (const std::size_t factor : {2U, 3U, 5U})
        while (length % factor == 0) length /= factor;
    return length == 1;
}

}  // namespace tavrin
