#include "inference/inference_onnx.h"

#include <onnxruntime_cxx_api.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "inference/profiler.h"
#include "inference/provider_selection.h"
#include "inference/run_failure.h"
#include "inference/runtime.h"
#include "inference/session_signature.h"
#include "support/log.h"

using namespace tavrin;

namespace {

constexpr const char* kConstructor =
    "(anonymous namespace)::InferenceONNXImpl::InferenceONNXImpl(const void *, size_t, const std::string &)";
constexpr const char* kRun =
    "virtual bool (anonymous namespace)::InferenceONNXImpl::run(const float *, std::vector<float *>, const Shape &)";

/// A model with one input and one output. Does not change after construction.
class InferenceONNXImpl : public IInference {
public:
    InferenceONNXImpl(const void* data, size_t size, const std::string& provider)
        : _env(makeEnvironment(RuntimeLog::warning)) {
        try {
            _session = createSession(_env, data, size, provider, {kConstructor, appendCoreMLByFunction});
            const Ort::AllocatorWithDefaultOptions allocator;
            _inputName = _session->GetInputNameAllocated(0, allocator).get();
            _outputName = _session->GetOutputNameAllocated(0, allocator).get();
            _inputShape = dimensionsOf(_session->GetInputTypeInfo(0));
            _outputShape = dimensionsOf(_session->GetOutputTypeInfo(0));
        } catch (const std::exception& failure) {
            TAVRIN_LOG(plog::error, kConstructor)
                << "[INFERENCE_onnx] Failed to initialize ONNX session: " << failure.what();
            throw;
        }
    }

    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override {
        if (outputs.size() > 1) throw std::runtime_error("Use multistem inference for multiple outputs");

        const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
        const size_t bytes = byteSize(shape);
        // The runtime's interface has no tensors over constant memory; it only reads an input.
        const Ort::Value inputTensor =
            wrapFloats(memory, const_cast<float*>(input), bytes, _inputShape.data(), _inputShape.size());
        Ort::Value outputTensor = wrapFloats(memory, outputs.at(0), bytes, _outputShape.data(), _outputShape.size());
        const Ort::RunOptions options;
        try {
            const char* inputName = _inputName.c_str();
            const char* outputName = _outputName.c_str();
            const Profiler profiler("Inference ONNX run");
            _session->Run(options, &inputName, &inputTensor, 1, &outputName, &outputTensor, 1);
        } catch (const std::exception& failure) {
            TAVRIN_LOG(plog::error, kRun) << "[INFERENCE_onnx] Exception during inference: " << failure.what();
            RunFailure::leave(failure.what());
        }
        return true;
    }

private:
    Ort::Env _env;
    std::unique_ptr<Ort::Session> _session;
    std::string _inputName;
    std::string _outputName;
    std::vector<int64_t> _inputShape;
    std::vector<int64_t> _outputShape;
};

}  // namespace

std::shared_ptr<IInference> InferenceONNX::create(const void* data, size_t size, const std::string& provider) {
    return std::make_shared<InferenceONNXImpl>(data, size, provider);
}
