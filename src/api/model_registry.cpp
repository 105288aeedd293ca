#include "api/model_registry.h"

#include <utility>

#include "api/logging.h"
#include "api/plain_bytes.h"
#include "inference/inference_onnx.h"
#include "tavrin/tavrin_proc.h"

std::map<std::string, std::shared_ptr<IInference>> inferenceInstances;

namespace tavrin {

bool initializeModel(const std::string& tag, const ModelData& model) try {
    setUpLogging();
    std::shared_ptr<IInference> inference;
    {
        const PlainBytes bytes(model);
        inference = InferenceONNX::create(bytes.data(), bytes.size(), "");
    }
    inferenceInstances[tag] = std::move(inference);  // last: a failure leaves the table as it was
    return true;
} catch (...) {
    return false;  // what the back-end could not load, it has logged
}

bool deinitializeModel(const std::string& tag) try {
    inferenceInstances.erase(tag);
    return true;
} catch (...) {
    return false;
}

bool deinitializeAllModels() {
    inferenceInstances.clear();
    return true;
}

bool isModelInitialized(const std::string& tag) { return inferenceInstances.find(tag) != inferenceInstances.end(); }

}  // namespace tavrin
