#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "inference/model_contract.h"
#include "inference/provider_selection.h"
#include "inference/run_failure.h"
#include "inference/runtime.h"
#include "inference/session_signature.h"
#include "support/log.h"

using namespace tavrin;

namespace {

constexpr const char* kConstructor =
    "(anonymous namespace)::InferenceONNXImplMultiStem::InferenceONNXImplMultiStem(const void *, size_t, const "
    "std::vector<std::string> &, const std::vector<std::string> &, const std::string &)";
constexpr const char* kRun =
    "virtual bool (anonymous namespace)::InferenceONNXImplMultiStem::run(const float *, std::vector<float *>, const "
    "Shape &)";

constexpr std::array<std::int64_t, 4> kSpectrumShape = {1, 4, 256, 2048};  // batch, planes, frames, bins
constexpr std::array<std::int64_t, 1> kFlagShape = {1};

using FlagBytes = std::array<unsigned char, kStemNames.size()>;
static_assert(sizeof(StemFlags) == sizeof(FlagBytes), "one byte per stem");

/// A model that separates up to six stems in one call.
class InferenceONNXImplMultiStem : public IInference {
public:
    InferenceONNXImplMultiStem(const void* data, size_t size, const std::vector<std::string>& inputNames,
                               const std::vector<std::string>& outputNames, const std::string& provider)
        : _env(makeEnvironment(RuntimeLog::verbose)) {
        try {
            _session = createSession(_env, data, size, provider, {kConstructor, appendCoreMLWithCache});
            const Ort::AllocatorWithDefaultOptions allocator;
            _inputNames = inputNames;
            _outputNames = outputNames;
            // The first name for every tensor, not each its own: hosts that leave the names out rely on it.
            if (inputNames.empty())
                for (size_t i = 0; i < _session->GetInputCount(); ++i)
                    _inputNames.emplace_back(_session->GetInputNameAllocated(0, allocator).get());
            if (outputNames.empty())
                for (size_t i = 0; i < _session->GetOutputCount(); ++i)
                    _outputNames.emplace_back(_session->GetOutputNameAllocated(0, allocator).get());
            _inputShape = dimensionsOf(_session->GetInputTypeInfo(0));
            _outputShape = dimensionsOf(_session->GetOutputTypeInfo(0));
        } catch (const std::exception& failure) {
            TAVRIN_LOG(plog::error, kConstructor)
                << "[INFERENCE_onnx] Failed to initialize ONNX session: " << failure.what();
            throw;
        }
    }

    void setStemFlags(StemFlags flags) {
        FlagBytes bytes;  // a bool that holds neither 0 nor 1 may not be read as a bool
        std::memcpy(bytes.data(), &flags, sizeof flags);
        for (unsigned char& byte : bytes) byte &= 1;
        std::memcpy(&_stemFlags, bytes.data(), sizeof flags);
    }

    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override {
        const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
        const size_t bytes = byteSize(shape);
        std::vector<Ort::Value> inputTensors;
        // The runtime's interface has no tensors over constant memory; it only reads an input.
        inputTensors.push_back(
            wrapFloats(memory, const_cast<float*>(input), bytes, kSpectrumShape.data(), kSpectrumShape.size()));
        for (size_t i = 0; i < kStemNames.size(); ++i)
            inputTensors.push_back(Ort::Value::CreateTensor(memory, flagByte(i), 1, kFlagShape.data(),
                                                            kFlagShape.size(), ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL));
        std::vector<const char*> outputNames;
        std::vector<Ort::Value> outputTensors;
        for (size_t i = 0; i < _outputNames.size(); ++i) {
            outputNames.push_back(_outputNames[i].c_str());
            outputTensors.push_back(wrapFloats(memory, outputs.at(i), bytes, _outputShape.data(), _outputShape.size()));
        }
        std::array<const char*, 1 + kStemNames.size()> inputNames{kSpectrumName};
        for (size_t i = 0; i < kStemNames.size(); ++i) inputNames[1 + i] = kStemNames[i].flag;

        const Ort::RunOptions options;
        const auto start = std::chrono::steady_clock::now();
        try {
            _session->Run(options, inputNames.data(), inputTensors.data(), inputTensors.size(), outputNames.data(),
                          outputTensors.data(), outputTensors.size());
            const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - start;
            // A warning, so that it is seen at the usual threshold.
            TAVRIN_LOG(plog::warning, kRun)
                << "[INFERENCE_onnx] Inference finished: " << elapsed.count() / 1000000 << " ms";
        } catch (const std::exception& failure) {
            TAVRIN_LOG(plog::error, kRun) << "[INFERENCE_onnx] Exception during inference: " << failure.what();
            RunFailure::leave(failure.what());
        }
        for (size_t i = 0; i < _outputNames.size(); ++i)
            if (!isEnabled(_outputNames[i])) std::memset(outputs[i], 0, bytes);
        return true;
    }

private:
    unsigned char* flagByte(size_t stem) { return reinterpret_cast<unsigned char*>(&_stemFlags) + stem; }

    // Whether the stem of this output is wanted; an output that is none of the six never is.
    bool isEnabled(const std::string& outputName) {
        const auto stem = std::find_if(kStemNames.begin(), kStemNames.end(),
                                       [&](const StemNames& names) { return outputName == names.output; });
        return stem != kStemNames.end() && *flagByte(static_cast<size_t>(stem - kStemNames.begin())) != 0;
    }

    Ort::Env _env;
    std::unique_ptr<Ort::Session> _session;
    std::vector<std::string> _inputNames;
    std::vector<std::string> _outputNames;
    std::vector<std::int64_t> _inputShape;
    std::vector<std::int64_t> _outputShape;
    StemFlags _stemFlags{};
};

}  // namespace

std::shared_ptr<IInference> InferenceONNX::createMultiStem(const void* data, size_t size,
                                                           const std::vector<std::string>& inputNames,
                                                           const std::vector<std::string>& outputNames,
                                                           const std::string& provider) {
    return std::make_shared<InferenceONNXImplMultiStem>(data, size, inputNames, outputNames, provider);
}

void InferenceONNX::setStemFlags(const std::shared_ptr<IInference>& inference, StemFlags flags) {
    const auto multiStem = std::dynamic_pointer_cast<InferenceONNXImplMultiStem>(inference);
    if (!multiStem) throw std::invalid_argument("setStemFlags: the model is not a multi-stem one");
    multiStem->setStemFlags(flags);
}
