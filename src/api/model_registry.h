/// @file
/// The process-wide table of loaded models. The functions that fill it are in tavrin/tavrin_proc.h.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "inference/inference.h"

/// Loaded models by tag. No lock: the host serialises registry calls and the construction of streams.
extern std::map<std::string, std::shared_ptr<IInference>> inferenceInstances;
