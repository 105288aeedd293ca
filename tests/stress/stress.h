/// @file
/// What the stress programs share.
#pragma once

#include <cstdio>

#include "models/model_bytes.h"
#include "support/signals.h"
#include "tavrin/separator.h"

inline tavrin::Model load(const std::vector<std::uint8_t>& bytes) {
    return tavrin::Model({bytes.data(), bytes.size()});
}
