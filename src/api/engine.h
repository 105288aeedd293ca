/// @file
/// The engine of one stream: what the facade and the separators are built on.
#pragma once

#include <cstddef>
#include <memory>

#include "inference/inference.h"
#include "pipeline/chunk_processor.h"
#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// The geometry that the models are made for.
struct Geometry {
    static constexpr size_t kFrameLength = 4096;  ///< samples
    static constexpr size_t kHop = 1024;          ///< samples
    static constexpr size_t kFrames = 256;        ///< frames per model call
};

/// The model that a stream of this configuration uses.
/// @throws std::runtime_error when no such model is registered, then when the channel count is not 2.
std::shared_ptr<IInference> findModel(const TavrinProcConfig& config);

/// A pipeline for one stream. @throws std::bad_alloc.
std::unique_ptr<ChunkProcessor> makeEngine(const std::shared_ptr<IInference>& model, const TavrinProcConfig& config);

}  // namespace tavrin
