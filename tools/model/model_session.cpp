#include "model/model_session.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <vector>

namespace tavrin::tool {

namespace {

constexpr std::size_t timedRuns = 5;

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

Ort::Session openSession(const std::string& bytes) {
    // Null when the runtime does not know the interface of our headers; no other call may go through it then.
    if (!Ort::Global<void>::api_)
        throw std::runtime_error(std::string("ONNX Runtime ") + OrtGetApiBase()->GetVersionString() +
                                 " is too old; needed is 1." + std::to_string(ORT_API_VERSION) + " or newer");
    // What goes wrong is thrown, too.
    static const Ort::Env environment(ORT_LOGGING_LEVEL_FATAL, "tavrin-model");
    return {environment, bytes.data(), bytes.size(), Ort::SessionOptions()};
}

std::chrono::duration<double> timeOneBlock(Ort::Session& session, const ModelSignature& model) {
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
        session.Run({}, inputNames.data(), inputs.data(), inputs.size(), outputNames.data(), outputNames.size());
        if (run > 0) times.emplace_back(std::chrono::steady_clock::now() - start);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace tavrin::tool
