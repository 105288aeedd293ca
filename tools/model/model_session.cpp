#include "model_session.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <vector>

namespace tavrin::tool {

namespace {

constexpr std::size_t timedRuns = 5;

// Numbered as in ONNXTensorElementDataType.
constexpr const char* typeNames[] = {"undefined", "float",  "uint8",     "int8",       "uint16",  "int16",
                                     "int32",     "int64",  "string",    "bool",       "float16", "double",
                                     "uint32",    "uint64", "complex64", "complex128", "bfloat16"};

ModelTensor describe(const std::string& name, const Ort::TypeInfo& info) {
    if (info.GetONNXType() != ONNX_TYPE_TENSOR) return {name, "no tensor", {}, {}};
    const auto tensor = info.GetTensorTypeAndShapeInfo();
    const auto type = static_cast<std::size_t>(tensor.GetElementType());
    ModelTensor result{name, type < std::size(typeNames) ? typeNames[type] : "another type", tensor.GetShape(), {}};
    std::vector<const char*> symbols(result.shape.size());
    if (!symbols.empty()) tensor.GetSymbolicDimensions(symbols.data(), symbols.size());
    for (std::size_t i = 0; i < result.shape.size(); ++i) {
        const std::string symbol = symbols[i] && *symbols[i] ? symbols[i] : "?";
        result.dimensions.push_back(result.shape[i] < 0 ? symbol : std::to_string(result.shape[i]));
    }
    return result;
}

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
    const bool isFlag = tensor.type == "bool";
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

    ModelSignature signature() const {
        const Ort::AllocatorWithDefaultOptions memory;
        ModelSignature model;
        for (std::size_t i = 0; i < _session.GetInputCount(); ++i)
            model.inputs.push_back(
                describe(_session.GetInputNameAllocated(i, memory).get(), _session.GetInputTypeInfo(i)));
        for (std::size_t i = 0; i < _session.GetOutputCount(); ++i)
            model.outputs.push_back(
                describe(_session.GetOutputNameAllocated(i, memory).get(), _session.GetOutputTypeInfo(i)));
        return model;
    }

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
