#include "api/engine.h"

#include <stdexcept>
#include <string>

#include "api/model_registry.h"
#include "support/log.h"

namespace tavrin {

std::shared_ptr<IInference> findModel(const TavrinProcConfig& config) {
    const auto entry = inferenceInstances.find(config.modelTag);
    if (entry == inferenceInstances.end()) {
        TAVRIN_LOG(plog::error, "tavrin::TavrinProcImpl::TavrinProcImpl(TavrinProcConfig)")
            << "Model is not initialized! Model tag: " << config.modelTag;
        throw std::runtime_error("Specified model is not initialized");
    }
    if (config.channels != 2)
        throw std::runtime_error("Only stereo can be separated, not " + std::to_string(config.channels) + " channels");
    return entry->second;
}

std::unique_ptr<ChunkProcessor> makeEngine(const std::shared_ptr<IInference>& model, const TavrinProcConfig& config) {
    return std::make_unique<ChunkProcessor>(model, static_cast<size_t>(config.channels), Geometry::kFrameLength,
                                            Geometry::kHop, config.reserved, Geometry::kFrames,
                                            config.subtractFromInput);
}

}  // namespace tavrin
