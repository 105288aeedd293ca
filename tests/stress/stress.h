/// @file
/// What the stress programs share.
#pragma once

#include <cstdio>

#include "api/model_registry.h"
#include "models/model_bytes.h"
#include "support/fake_inference.h"
#include "support/signals.h"
#include "tavrin/multi_stem_separator.h"
#include "tavrin/stream_separator.h"

inline tavrin::ModelData dataOf(const std::vector<std::uint8_t>& bytes) { return {bytes.data(), bytes.size(), {}}; }
