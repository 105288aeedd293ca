#include "inference/runtime.h"

#include <onnxruntime_cxx_api.h>

#include <string>

#include "support/log.h"

namespace tavrin {

void requireRuntime() {
    // Null when the runtime does not know the interface of our headers; no other call may go through it then.
    if (!Ort::Global<void>::api_) {
        const std::string message = std::string("ONNX Runtime ") + OrtGetApiBase()->GetVersionString() +
                                    " is too old: this library needs 1." + std::to_string(ORT_API_VERSION) +
                                    " or newer";
        TAVRIN_LOG(plog::error, "Ort::Env makeEnvironment(RuntimeLog)") << "[INFERENCE_onnx] " << message;
        throw RuntimeTooOld(message);
    }
}

Ort::Env makeEnvironment(RuntimeLog severity) {
    requireRuntime();
    switch (severity) {
        case RuntimeLog::verbose:
            return {ORT_LOGGING_LEVEL_VERBOSE, ""};
        case RuntimeLog::warning:
            return {ORT_LOGGING_LEVEL_WARNING, ""};
        case RuntimeLog::none:
            break;
    }
    return {ORT_LOGGING_LEVEL_FATAL, ""};
}

size_t byteSize(const Shape& shape) { return shape.batch * shape.channels * shape.frames * shape.bins * sizeof(float); }

Ort::Value wrapFloats(const Ort::MemoryInfo& memory, float* data, size_t bytes, const std::int64_t* dimensions,
                      size_t rank) {
    return Ort::Value::CreateTensor(memory, data, bytes, dimensions, rank, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT);
}

}  // namespace tavrin
