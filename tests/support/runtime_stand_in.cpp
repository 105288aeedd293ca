#include "support/runtime_stand_in.h"

#include <dlfcn.h>

#include <cstdlib>
#include <sstream>

RuntimeStandIn standIn;
OrtStatus* coreMlStatus;  // the library does not release CoreML's: kept in sight of the leak checker

// Asked for before main already, when the wrapper keeps the table's address: no static of this file may be needed.
static const OrtApi& real() {
    static const auto entry = reinterpret_cast<decltype(&OrtGetApiBase)>(dlsym(RTLD_NEXT, "OrtGetApiBase"));
    return *entry()->GetApi(ORT_API_VERSION);
}

template <typename... Values>
static std::string list(const Values&... values) {
    std::ostringstream text;
    ((text << values << ' '), ...);
    return text.str();
}

static OrtStatus* record(const std::string& call, const std::string& arguments = "") {
    standIn.calls += call + ", ";
    standIn.arguments[call] = arguments;
    return call == standIn.failing ? real().CreateStatus(ORT_FAIL, (call + " failed").c_str()) : nullptr;
}

static OrtStatus* append(OrtSessionOptions* options, const std::string& provider, const std::string& arguments) {
    standIn.providers[options] += " " + provider;
    return record("append " + provider, arguments);
}

static OrtApi scriptedTable() {
    OrtApi api = real();
    api.CreateEnv = [](OrtLoggingLevel level, const char* id, OrtEnv** env) noexcept {
        if (OrtStatus* failure = record("env", list(level, '"' + std::string(id) + '"'))) return failure;
        return real().CreateEnv(level, id, env);
    };
    api.GetAvailableProviders = [](char*** names, int* count) noexcept -> OrtStatus* {
        *names = new char*[standIn.available.size()];
        *count = 0;
        for (std::string& name : standIn.available) (*names)[(*count)++] = name.data();
        return nullptr;
    };
    api.ReleaseAvailableProviders = [](char** names, int) noexcept -> OrtStatus* { return delete[] names, nullptr; };
    api.SessionOptionsAppendExecutionProvider = [](auto* options, auto* name, auto keys, auto values, auto n) noexcept {
        std::string arguments = list(std::getenv("LD_LIBRARY_PATH"), std::getenv("ADSP_LIBRARY_PATH"));
        for (size_t i = 0; i < n; ++i) arguments += list(keys[i], values[i]);
        return append(options, name, arguments);
    };
    api.SessionOptionsAppendExecutionProvider_CUDA = [](auto* options, auto* cuda) noexcept {
        return append(options, "CUDA", list(cuda->device_id, cuda->gpu_mem_limit, cuda->do_copy_in_default_stream));
    };
    api.SessionOptionsAppendExecutionProvider_ROCM = [](auto* options, auto* rocm) noexcept {
        return append(options, "ROCm", list(rocm->device_id, rocm->gpu_mem_limit, rocm->do_copy_in_default_stream));
    };
    api.SetIntraOpNumThreads = [](auto* options, int threads) noexcept {
        standIn.arguments["threads"] = list(threads);
        return real().SetIntraOpNumThreads(options, threads);
    };
    api.CreateSessionFromArray = [](auto* env, auto* model, size_t size, auto* options, auto** session) noexcept {
        const std::string provider = standIn.providers[options];
        if (OrtStatus* failure = record("session" + provider)) return failure;
        OrtStatus* status = real().CreateSessionFromArray(env, model, size, options, session);
        standIn.providers[*session] = provider;
        return status;
    };
    api.ReleaseSession = [](OrtSession* session) noexcept {
        if (session) record("release" + standIn.providers.extract(session).mapped());
        real().ReleaseSession(session);
    };
    api.ReleaseSessionOptions = [](OrtSessionOptions* options) noexcept {
        standIn.providers.erase(options);
        real().ReleaseSessionOptions(options);
    };
    return api;
}

OrtStatus* appendCoreMl(OrtSessionOptions* options, uint32_t flags) {
    return coreMlStatus = append(options, "CoreML", list(flags));
}

const OrtApiBase* OrtGetApiBase() noexcept {
    static const OrtApi table = scriptedTable();
    static const OrtApiBase base{[](uint32_t) noexcept { return &table; }, []() noexcept { return "stand-in"; }};
    return &base;
}
