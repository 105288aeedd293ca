/// @file
/// Access to a model's bytes, scrambled or not.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "inference/inference.h"
#include "tavrin/tavrin_proc.h"

/// Calls `create` with the plain bytes of a model: its own when it has no key, otherwise a private copy whose byte i is
/// the model's byte i XOR key byte i mod key length, gone when `create` has returned.
std::shared_ptr<IInference> withPlainBytes(
    const tavrin::ModelData& model,
    const std::function<std::shared_ptr<IInference>(const void* data, size_t size)>& create);
