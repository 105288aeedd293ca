#include "inference/provider_selection.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
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

// Appends the provider. Returns false when that did not happen, with the reason logged.
bool append(const std::string& provider, Ort::SessionOptions& options, const ProviderSteps& steps) {
    if (provider == "QNNExecutionProvider") {
        appendQnn(options);
    } else if (provider == "CUDAExecutionProvider") {
        options.AppendExecutionProvider_CUDA(OrtCUDAProviderOptions{});
    } else if (provider == "ROCmExecutionProvider") {
        options.AppendExecutionProvider_ROCM(OrtROCMProviderOptions{});
    } else if (provider == "CoreMLExecutionProvider") {
        return steps.appendCoreML(options, steps.functionText);
    } else {
        TAVRIN_LOG(plog::warning, steps.functionText) << "[INFERENCE_onnx] Unknown EP: " << provider;
        return false;
    }
    return true;
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

}  // namespace

std::unique_ptr<Ort::Session> createSession(Ort::Env& env, const void* data, size_t size, const std::string& provider,
                                            const ProviderSteps& steps) {
    TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Create Inference ONNX";
    const std::vector<std::string> available = Ort::GetAvailableProviders();
    for (const std::string& name : available)
        TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Available Provider: " << name;

    std::unique_ptr<Ort::Session> session;
    for (const std::string& name : priorityList(provider)) {
        if (std::find(available.begin(), available.end(), name) == available.end()) continue;
        if (name == kCpu) break;
        try {
            Ort::SessionOptions options;
            TAVRIN_LOG(plog::info, steps.functionText) << "[INFERENCE_onnx] Append execution provider: " << name;
            // No stop after a success: hosts rely on the provider that comes last.
            if (append(name, options, steps)) session = std::make_unique<Ort::Session>(env, data, size, options);
        } catch (const Ort::Exception& failure) {
            TAVRIN_LOG(plog::error, steps.functionText)
                << "[INFERENCE_onnx] Failed to init backend: " << failure.what();
        }
    }
    if (!session) session = std::make_unique<Ort::Session>(env, data, size, Ort::SessionOptions());
    return session;
}

std::vector<std::string> availableProviders() {
    requireRuntime();
    return Ort::GetAvailableProviders();
}

bool appendCoreMLByFunction(Ort::SessionOptions& options, const char* functionText) {
    constexpr const char* kName = "OrtSessionOptionsAppendExecutionProvider_CoreML";
    using AppendFunction = OrtStatus*(ORT_API_CALL*)(OrtSessionOptions*, std::uint32_t);

    // Looked up at run time: builds of the runtime for other systems do not export it.
    const auto appendCoreML = reinterpret_cast<AppendFunction>(findRuntimeFunction(kName));
    if (!appendCoreML) {
        TAVRIN_LOG(plog::error, functionText)
            << "[INFERENCE_onnx] Failed to append CoreML EP: this ONNX Runtime does not export " << kName;
        return false;
    }
    constexpr std::uint32_t kNoFlags = 0;
    // The status is deliberately not released.
    if (const OrtStatus* status = appendCoreML(options, kNoFlags)) {
        const char* message = Ort::GetApi().GetErrorMessage(status);
        TAVRIN_LOG(plog::error, functionText)
            << "[INFERENCE_onnx] Failed to append CoreML EP: " << (message ? message : "(null)");
        return false;
    }
    return true;
}

bool appendCoreMLWithCache(Ort::SessionOptions& options, const char* /*functionText*/) {
    const std::unordered_map<std::string, std::string> settings = {
        {"ModelFormat", "MLProgram"},
        {"MLComputeUnits", "ALL"},
        {"EnableOnSubgraphs", "1"},
        {"ModelCacheDirectory", homeFolder() + "/Library/Caches/TavrinModelCache"}};
    options.AppendExecutionProvider("CoreML", settings);
    return true;
}
