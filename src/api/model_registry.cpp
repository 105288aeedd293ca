#include "api/model_registry.h"

#include <utility>

#include "api/logging.h"
#include "api/plain_bytes.h"
#include "inference/inference_onnx.h"
#include "tavrin/tavrin_proc.h"

std::map<std::string, std::shared_ptr<IInference>> inferenceInstances;

namespace {

// The registry loads with the default order of execution providers.
constexpr const char* kDefaultProvider = "";

std::shared_ptr<IInference> load(const tavrin::ModelData& model) {
    return withPlainBytes(
        model, [](const void* data, size_t size) { return InferenceONNX::create(data, size, kDefaultProvider); });
}

}  // namespace

void registerModel(const std::string& tag, const tavrin::ModelData& model) {
    setUpLogging();
    std::shared_ptr<IInference> inference = load(model);  // before the map is touched: a failure leaves it as it was
    inferenceInstances[tag] = std::move(inference);
}

bool tavrin::initializeModel(const std::string& tag, const ModelData& model) try {
    registerModel(tag, model);
    return true;
} catch (...) {
    return false;  // what the back-end could not load, it has logged
}

bool tavrin::deinitializeModel(const std::string& tag) try {
    inferenceInstances.erase(tag);
    return true;
} catch (...) {
    return false;
}

bool tavrin::deinitializeAllModels() {
    inferenceInstances.clear();
    return true;
}

bool tavrin::isModelInitialized(const std::string& tag) {
    return inferenceInstances.find(tag) != inferenceInstances.end();
}
