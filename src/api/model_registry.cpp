#include "api/model_registry.h"

#include <utility>

#include "api/logging.h"
#include "api/plain_bytes.h"
#include "inference/inference_onnx.h"
#include "tavrin/tavrin_proc.h"

std::map<std::string, std::shared_ptr<IInference>> inferenceInstances;

void registerModel(const std::string& tag, const tavrin::ModelData& model, const std::string& provider) {
    setUpLogging();
    // Before the table is touched: a failure leaves it as it was.
    std::shared_ptr<IInference> inference = withPlainBytes(
        model, [&provider](const void* data, size_t size) { return InferenceONNX::create(data, size, provider); });
    inferenceInstances[tag] = std::move(inference);
}

bool tavrin::initializeModel(const std::string& tag, const ModelData& model) { return initializeModel(tag, model, ""); }

bool tavrin::initializeModel(const std::string& tag, const ModelData& model, const std::string& provider) try {
    registerModel(tag, model, provider);
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
