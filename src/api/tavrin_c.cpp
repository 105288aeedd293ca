#include "tavrin/tavrin_c.h"

#include <cstdint>
#include <string>
#include <vector>

#include "api/c_call.h"
#include "api/c_models.h"
#include "api/model_registry.h"
#include "inference/provider_selection.h"
#include "tavrin/stream_separator.h"
#include "tavrin/tavrin_proc.h"

static_assert(TAVRIN_VERSION_NUMBER == TAVRIN_PROJECT_VERSION_NUMBER, "tavrin_c.h and CMakeLists.txt differ");

namespace {

// Of the runtime that the process has loaded, which stays the same.
const std::vector<std::string>& providers() {
    static const std::vector<std::string> names = tavrin::offeredProviders();
    return names;
}

}  // namespace

const char* tavrin_status_text(tavrin_status status) {
    switch (status) {
        case TAVRIN_OK:
            return "TAVRIN_OK: all went well";
        case TAVRIN_INVALID_ARGUMENT:
            return "TAVRIN_INVALID_ARGUMENT: an argument is NULL or outside its range; nothing has changed";
        case TAVRIN_BUFFER_TOO_SMALL:
            return "TAVRIN_BUFFER_TOO_SMALL: the output might not fit; nothing has changed";
        case TAVRIN_NOT_LOADED:
            return "TAVRIN_NOT_LOADED: no model is loaded under the tag";
        case TAVRIN_MODEL_REFUSED:
            return "TAVRIN_MODEL_REFUSED: the model cannot be loaded, or has other inputs and outputs than needed";
        case TAVRIN_RUN_FAILED:
            return "TAVRIN_RUN_FAILED: the model run failed; the stream is closed";
        case TAVRIN_CLOSED:
            return "TAVRIN_CLOSED: the stream has ended or failed; its reset function starts a new one";
        case TAVRIN_OUT_OF_MEMORY:
            return "TAVRIN_OUT_OF_MEMORY: there is not enough memory";
        case TAVRIN_RUNTIME_TOO_OLD:
            return "TAVRIN_RUNTIME_TOO_OLD: the process has an ONNX Runtime that is too old";
    }
    return "no status of this version";
}

uint32_t tavrin_version(void) { return TAVRIN_VERSION_NUMBER; }

tavrin_status tavrin_provider_count(size_t* count) {
    return guarded(TAVRIN_RUNTIME_TOO_OLD, [&] {
        required(count, "count") = 0;
        *count = providers().size();
    });
}

tavrin_status tavrin_provider_name(size_t index, const char** name) {
    return guarded(TAVRIN_RUNTIME_TOO_OLD, [&] {
        required(name, "name") = nullptr;
        if (index >= providers().size())
            throw Refusal(TAVRIN_INVALID_ARGUMENT, "there is no provider " + std::to_string(index) +
                                                       "; the runtime offers " + std::to_string(providers().size()));
        *name = providers()[index].c_str();
    });
}

size_t tavrin_latency(void) { return tavrin::StreamSeparator::latency(); }

tavrin_status tavrin_load(const char* tag, const void* data, size_t size, const void* key, size_t key_size) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        const CModelData model(data, size, key, key_size);
        tavrin::registerModel(&required(tag, "tag"), model.view());
    });
}

tavrin_status tavrin_unload(const char* tag) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] { tavrin::deinitializeModel(&required(tag, "tag")); });
}

tavrin_status tavrin_unload_all(void) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [] { tavrin::deinitializeAllModels(); });
}

tavrin_status tavrin_is_loaded(const char* tag) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] { requireLoaded(&required(tag, "tag")); });
}
