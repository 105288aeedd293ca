#include "inference/provider_selection.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "inference/runtime.h"
#include "support/log.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>
#endif

namespace tavrin {

namespace {

// The private cache folder of the Android application that hosts the library; QNN's own libraries are unpacked there.
constexpr const char* kQnnLibraryFolder = "/data/data/" TAVRIN_QNN_APPLICATION_ID "/cache/qnnLibs/";

constexpr const char* kCpu = "CPUExecutionProvider";

void setEnvironment(const char* name, const char* value) {
#if defined(_WIN32)
    _putenv_s(name, value);
#else
    setenv(name, value, 1);
#endif
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME")) return home;
#if !defined(_WIN32)
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) return entry->pw_dir;
#endif
    return {};
}

// A function of the runtime that not every build of it exports; null when the loaded one does not.
void* findRuntimeFunction(const char* name) {
#if defined(_WIN32)
    const HMODULE runtime = GetModuleHandleA("onnxruntime.dll");
    return runtime ? reinterpret_cast<void*>(GetProcAddress(runtime, name)) : nullptr;
#else
    return dlsym(RTLD_DEFAULT, name);
#endif
}

void appendQnn(Ort::SessionOptions& options) {
    // The loaders of QNN's processor libraries look in these, and only there.
    setEnvironment("LD_LIBRARY_PATH", kQnnLibraryFolder);
    setEnvironment("ADSP_LIBRARY_PATH", kQnnLibraryFolder);
    // Two slashes in a row, although one would do: hosts compare this path.
    const std::unordered_map<std::string, std::string> settings = {
        {"backend_path", std::string(kQnnLibraryFolder) + "/libQnnHtp.so"}};
    options.AppendExecutionProvider("QNN", settings);
}

// Why a provider was not appended, and how loud to say so.
struct Refusal {
    plog::Severity severity;
    std::string text;
};

std::optional<Refusal> append(const std::string& provider, Ort::SessionOptions& options,
                              std::optional<std::string> (*appendCoreML)(Ort::SessionOptions&)) {
    if (provider == "QNNExecutionProvider") {
        appendQnn(options);
    } else if (provider == "CUDAExecutionProvider") {
        options.AppendExecutionProvider_CUDA(OrtCUDAProviderOptions{});
    } else if (provider == "ROCmExecutionProvider") {
        options.AppendExecutionProvider_ROCM(OrtROCMProviderOptions{});
    } else if (provider == "CoreMLExecutionProvider") {
        if (const std::optional<std::string> reason = appendCoreML(options))
            return Refusal{plog::error, "Failed to append CoreML EP: " + *reason};
    } else {
        return Refusal{plog::warning, "Unknown EP: " + provider};
    }
    return {};
}

std::deque<std::string> priorityList(const std::string& requested) {
    std::deque<std::string> providers = {"DmlExecutionProvider",  "QNNExecutionProvider",    "CUDAExecutionProvider",
                                         "ROCmExecutionProvider", "CoreMLExecutionProvider", kCpu};
    if (!requested.empty()) {
        std::erase(providers, requested);
        providers.push_front(requested);
    }
    return providers;
}

// What a model of the streaming engine can be run on besides the CPU, as append() spells it and in the order in which
// it is tried unasked.
constexpr const char* kAccelerators[] = {"QNNExecutionProvider", "CUDAExecutionProvider", "ROCmExecutionProvider",
                                         "CoreMLExecutionProvider"};

// "cuda" for "CUDAExecutionProvider" and for "cuda": spellings differ in case, the runtime's own included.
std::string shortName(std::string provider) {
    const std::string ending = "executionprovider";
    std::transform(provider.begin(), provider.end(), provider.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (provider.ends_with(ending)) provider.resize(provider.size() - ending.size());
    return provider;
}

// The name in `spelled` that means the provider; null when there is none.
template <class Names>
const std::string* find(const Names& spelled, const std::string& provider) {
    const auto found = std::find_if(std::begin(spelled), std::end(spelled),
                                    [&](const std::string& name) { return shortName(name) == shortName(provider); });
    return found == std::end(spelled) ? nullptr : &*found;
}

// The runtime's message as one line, without the place in its sources where it arose:
// "/x/y.cc:12 Z* f() [ONNXRuntimeError] : 1 : FAIL : no library\n" is "no library".
std::string sentence(std::string message) {
    const std::string mark = "[ONNXRuntimeError] : ";
    if (const size_t begin = message.rfind(mark); begin != message.npos) {
        message.erase(0, begin + mark.size());
        for (int part = 0; part < 2; ++part)  // a number and its name
            if (const size_t colon = message.find(" : "); colon != message.npos) message.erase(0, colon + 3);
    }
    std::replace_if(
        message.begin(), message.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, ' ');
    return message.substr(0, message.find_last_not_of(' ') + 1);
}

std::string joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

// Nothing of a model of the streaming engine is written to the console, whatever the environment allows.
Ort::SessionOptions quietOptions(const ProviderWish& wish) {
    Ort::SessionOptions options;
    options.SetLogSeverityLevel(ORT_LOGGING_LEVEL_FATAL);
    if (wish.threads > 0) options.SetIntraOpNumThreads(static_cast<int>(wish.threads));
    return options;
}

bool isCpu(const std::string& provider) { return shortName(provider) == shortName(kCpu); }

// A session on this provider, or none and the reason. What fails on the CPU is the model's fault and thrown.
std::unique_ptr<Ort::Session> trySession(Ort::Env& env, const void* data, size_t size, const ProviderWish& wish,
                                         const std::string& provider, std::string& reason) try {
    Ort::SessionOptions options = quietOptions(wish);
    if (isCpu(provider)) {
        // A run's buffers come from the runtime's arena one by one. Planned ones are laid into one block from the
        // second run on, for which the arena grows although all that the first run used is free.
        options.DisableMemPattern();
        // Weights outside the arena: what is freed when they are brought into the runtime's own layout is free for all.
        options.AddConfigEntry("session.use_device_allocator_for_initializers", "1");
    }
    for (const char* accelerator : kAccelerators) {
        if (shortName(accelerator) != shortName(provider)) continue;
        if (const std::optional<Refusal> refusal = append(accelerator, options, appendCoreMLByFunction)) {
            reason = refusal->text;
            return nullptr;
        }
    }
    return std::make_unique<Ort::Session>(env, data, size, options);
} catch (const Ort::Exception& failure) {
    if (isCpu(provider)) throw;
    reason = failure.what();
    return nullptr;
}

}  // namespace

std::unique_ptr<Ort::Session> createSession(Ort::Env& env, const void* data, size_t size, const std::string& provider,
                                            const ProviderSteps& steps) {
    if (!data && size > 0) throw std::invalid_argument("model data is null");
    TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Create Inference ONNX";
    const std::vector<std::string> available = Ort::GetAvailableProviders();
    for (const std::string& name : available)
        TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Available Provider: " << name;

    std::unique_ptr<Ort::Session> session;
    for (const std::string& name : priorityList(provider)) {
        if (std::find(available.begin(), available.end(), name) == available.end()) continue;
        if (name == kCpu) break;
        Ort::SessionOptions options{nullptr};  // out here: a failure is logged before they are released
        try {
            options = Ort::SessionOptions();
            TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Append execution provider: " << name;
            // No stop after a success: hosts rely on the provider that comes last.
            if (const std::optional<Refusal> refusal = append(name, options, steps.appendCoreML))
                TAVRIN_LOG(refusal->severity, steps.functionText) << "[INFERENCE_onnx] " << refusal->text;
            else
                session = std::make_unique<Ort::Session>(env, data, size, options);
        } catch (const Ort::Exception& failure) {
            TAVRIN_LOG(plog::error, steps.functionText)
                << "[INFERENCE_onnx] Failed to init backend: " << failure.what();
        }
    }
    if (!session) session = std::make_unique<Ort::Session>(env, data, size, Ort::SessionOptions());
    return session;
}

std::optional<std::string> appendCoreMLByFunction(Ort::SessionOptions& options) {
    constexpr const char* kName = "OrtSessionOptionsAppendExecutionProvider_CoreML";
    using AppendFunction = OrtStatus*(ORT_API_CALL*)(OrtSessionOptions*, std::uint32_t);

    // Looked up at run time: builds of the runtime for other systems do not export it.
    const auto appendCoreML = reinterpret_cast<AppendFunction>(findRuntimeFunction(kName));
    if (!appendCoreML) return std::string("this ONNX Runtime does not export ") + kName;
    constexpr std::uint32_t kNoFlags = 0;
    // The status is deliberately not released.
    const OrtStatus* const status = appendCoreML(options, kNoFlags);
    if (!status) return {};
    const char* const message = Ort::GetApi().GetErrorMessage(status);
    return message ? message : "(null)";
}

std::optional<std::string> appendCoreMLWithCache(Ort::SessionOptions& options) {
    const std::unordered_map<std::string, std::string> settings = {
        {"ModelFormat", "MLProgram"},
        {"MLComputeUnits", "ALL"},
        {"EnableOnSubgraphs", "1"},
        {"ModelCacheDirectory", homeFolder() + "/Library/Caches/TavrinModelCache"}};
    options.AppendExecutionProvider("CoreML", settings);
    return {};
}

void requireValid(const ProviderWish& wish) {
    constexpr size_t kMostThreads = 1024;
    if (wish.threads > kMostThreads)
        throw std::invalid_argument(std::to_string(wish.threads) + " threads for a model call; there can be 0 to " +
                                    std::to_string(kMostThreads));
    if (wish.strict && wish.providers.empty())
        throw std::invalid_argument("strict asks for one of the wanted execution providers, and none is named");
    std::vector<std::string> known = {kCpu};
    known.insert(known.end(), std::begin(kAccelerators), std::end(kAccelerators));
    for (const std::string& name : wish.providers) {
        if (find(known, name)) continue;
        std::vector<std::string> offered;
        for (const std::string& provider : offeredProviders())
            if (find(known, provider)) offered.push_back(shortName(provider));
        throw std::invalid_argument("there is no execution provider '" + name + "' to choose; this ONNX Runtime has " +
                                    joined(offered, ", "));
    }
}

ChosenSession chooseSession(Ort::Env& env, const void* data, size_t size, const ProviderWish& wish) {
    constexpr const char* kFunction = "tavrin::Model::Model(const ModelData &, const ModelOptions &)";
    requireValid(wish);
    const std::vector<std::string> offered = offeredProviders();
    std::vector<std::string> wanted = wish.providers;
    if (wanted.empty())
        for (const char* name : kAccelerators)
            if (find(offered, name)) wanted.emplace_back(name);
    if (!wish.strict) wanted.emplace_back(kCpu);

    ChosenSession chosen;
    std::set<std::string> tried;
    for (const std::string& name : wanted) {
        if (!tried.insert(shortName(name)).second) continue;
        const std::string* const offer = find(offered, name);
        const std::string& spelled = offer ? *offer : name;
        std::string reason = "this ONNX Runtime does not offer it";
        if (offer || isCpu(name)) chosen.session = trySession(env, data, size, wish, name, reason);
        if (chosen.session) {
            chosen.provider = isCpu(name) ? kCpu : spelled;
            TAVRIN_LOG(plog::info, kFunction) << "[INFERENCE_onnx] The model runs on " << chosen.provider;
            return chosen;
        }
        chosen.notUsed.push_back(spelled + ": " + sentence(reason));
        TAVRIN_LOG(plog::warning, kFunction) << "[INFERENCE_onnx] Not used: " << chosen.notUsed.back();
    }
    throw std::runtime_error("none of the wanted execution providers can run the model; " +
                             joined(chosen.notUsed, "; "));
}

std::vector<std::string> offeredProviders() {
    requireRuntime();
    return Ort::GetAvailableProviders();
}

}  // namespace tavrin
