#include "inference/onnx_model.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>

#include "inference/runtime.h"
#include "inference/session_signature.h"

namespace tavrin {

namespace {

// The runtime's own functions, as the wrapper's keep vectors and throw what hosts do not know.
void require(OrtStatus* status) {
    if (!status) return;
    const std::string message = Ort::GetApi().GetErrorMessage(status);
    Ort::GetApi().ReleaseStatus(status);
    throw std::runtime_error(message);
}

/// Names and tensors of one side of a model call; the tensors lie in the caller's memory.
template <std::size_t kMost>
class Tensors {
public:
    Tensors() = default;
    ~Tensors() {
        for (std::size_t i = 0; i < _count; ++i) Ort::GetApi().ReleaseValue(_values[i]);
    }
    Tensors(const Tensors&) = delete;
    Tensors& operator=(const Tensors&) = delete;

    /// @param shape of `rank` dimensions.
    void add(const Ort::MemoryInfo& memory, const char* name, void* data, std::size_t bytes, const std::int64_t* shape,
             std::size_t rank, ONNXTensorElementDataType type) {
        require(Ort::GetApi().CreateTensorWithDataAsOrtValue(memory, data, bytes, shape, rank, type, &_values[_count]));
        _names[_count++] = name;
    }

    std::size_t count() const { return _count; }
    const char* const* names() const { return _names.data(); }
    OrtValue** values() { return _values.data(); }

private:
    std::array<const char*, kMost> _names{};
    std::array<OrtValue*, kMost> _values{};
    std::size_t _count = 0;
};

void requireNoProblem(const Verdict& verdict) {
    if (!verdict.problems.empty()) throw std::runtime_error("the model cannot be used: " + verdict.problems.front());
}

}  // namespace

OnnxModel::OnnxModel(const void* data, std::size_t size, const ProviderWish& wish) {
    requireRuntime();
    requireValid(wish);
    ModelDescription model{readOnnxFile(data, size)};
    requireNoProblem(judge(model));
    _environment = std::make_unique<Ort::Env>(makeEnvironment(RuntimeLog::none));
    try {
        _chosen = chooseSession(*_environment, data, size, wish);
    } catch (const Ort::Exception& failure) {
        throw std::runtime_error("the model cannot be loaded: " + loadProblem(model.file, failure.what()));
    }
    model.signature = readSignature(*_chosen.session);
    Verdict verdict = judge(model);
    requireNoProblem(verdict);
    _facts = std::move(verdict.facts);

    _memory = std::make_unique<Ort::MemoryInfo>(Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU));
    _hasFlags = hasStemFlags(*model.signature);
    _inputName = _hasFlags ? kSpectrumName : model.signature->inputs.front().name;
    for (const ModelTensor& output : model.signature->outputs) {
        const auto* const stem = std::find_if(kStemNames.begin(), kStemNames.end(),
                                              [&](const StemNames& names) { return output.name == names.output; });
        _outputNames.push_back(output.name);
        _flags.emplace_back();
        if (stem != kStemNames.end()) _flags.back() = static_cast<std::size_t>(stem - kStemNames.begin());
    }
}

OnnxModel::~OnnxModel() = default;

void OnnxModel::run(const float* input, float* const* outputs) {
    const std::array<std::int64_t, 4> shape = {1, 4, static_cast<std::int64_t>(_facts.frames),
                                               static_cast<std::int64_t>(_facts.bins)};
    const std::size_t bytes = 4 * _facts.frames * _facts.bins * sizeof(float);
    std::array<std::uint8_t, kStemNames.size()> flags{};
    Tensors<kMostStems> results;
    for (std::size_t i = 0; i < _outputNames.size(); ++i) {
        if (!outputs[i]) continue;
        results.add(*_memory, _outputNames[i].c_str(), outputs[i], bytes, shape.data(), shape.size(),
                    ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT);
        if (_flags[i]) flags[*_flags[i]] = 1;
    }
    if (results.count() == 0) return;

    Tensors<1 + kStemNames.size()> arguments;
    // The runtime's interface has no tensors over constant memory; it only reads an input.
    arguments.add(*_memory, _inputName.c_str(), const_cast<float*>(input), bytes, shape.data(), shape.size(),
                  ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT);
    constexpr std::int64_t kOne = 1;
    for (std::size_t i = 0; _hasFlags && i < kStemNames.size(); ++i)
        arguments.add(*_memory, kStemNames[i].flag, &flags[i], 1, &kOne, 1, ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL);
    require(Ort::GetApi().Run(*_chosen.session, nullptr, arguments.names(), arguments.values(), arguments.count(),
                              results.names(), results.count(), results.values()));
}

}  // namespace tavrin
