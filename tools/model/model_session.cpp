#include "model_session.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <vector>

#include "inference/session_signature.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t timedRuns = 5;

Ort::Env makeEnvironment() {
    // Null when the runtime does not know the interface of our headers; no other call may go through it then.
    if (!Ort::Global<void>::api_)
        throw std::runtime_error(std::string("ONNX Runtime ") + OrtGetApiBase()->GetVersionString() +
                                 " is too old; needed is 1." + std::to_string(ORT_API_VERSION) + " or newer");
    // What goes wrong is thrown, too.
    return {ORT_LOGGING_LEVEL_FATAL, "tavrin-model"};
}

Ort::Value makeInput(const ModelTensor& tensor) {
    Ort::AllocatorWithDefaultOptions memory;
    const bool isFlag = tensor.elementType == "bool";
    Ort::Value value =
        Ort::Value::CreateTensor(memory, tensor.shape.data(), tensor.shape.size(),
                                 isFlag ? ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL : ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT);
    const std::size_t count = value.GetTensorTypeAndShapeInfo().GetElementCount();
    if (isFlag) {
        std::fill_n(value.GetTensorMutableData<bool>(), count, true);
    } else {
        // A tenth of a full-scale sine's peak, about.
        std::mt19937 random;
        std::uniform_real_distribution<float> level(-100, 100);
        std::generate_n(value.GetTensorMutableData<float>(), count, [&] { return level(random); });
    }
    return value;
}

}  // namespace

class ModelSession::Impl {
public:
    explicit Impl(const std::string& bytes) : _session(_environment, bytes.data(), bytes.size(), {}) {}

    ModelSignature signature() const { return readSignature(_session); }

    std::chrono::duration<double> timeOneBlock() {
        const ModelSignature model = signature();
        std::vector<const char*> inputNames;
        std::vector<const char*> outputNames;
        std::vector<Ort::Value> inputs;
        for (const ModelTensor& input : model.inputs) {
            inputNames.push_back(input.name.c_str());
            inputs.push_back(makeInput(input));
        }
        for (const ModelTensor& output : model.outputs) outputNames.push_back(output.name.c_str());

        std::vector<std::chrono::duration<double>> times;
        for (std::size_t run = 0; run <= timedRuns; ++run) {
            const auto start = std::chrono::steady_clock::now();
            _session.Run({}, inputNames.data(), inputs.data(), inputs.size(), outputNames.data(), outputNames.size());
            if (run > 0) times.emplace_back(std::chrono::steady_clock::now() - start);
        }
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

private:
    Ort::Env _environment = makeEnvironment();
    Ort::Session _session;
};

ModelSession::ModelSession(const std::string& bytes) : _impl(std::make_unique<Impl>(bytes)) {}
ModelSession::~ModelSession() = default;
ModelSignature ModelSession::signature() const { return _impl->signature(); }
std::chrono::duration<double> ModelSession::timeOneBlock() { return _impl->timeOneBlock(); }

}  // namespace tavrin::tool
