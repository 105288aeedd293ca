#include "tavrin/tavrin_c.h"

#include <string>
#include <vector>

#include "c_api/call.h"
#include "tavrin/separator.h"

using tavrin::c_api::guarded;
using tavrin::c_api::required;

namespace {

// Of the runtime that the process has loaded, which stays the same.
const std::vector<std::string>& providers() {
    static const std::vector<std::string> names = tavrin::availableProviders();
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
            return "TAVRIN_BUFFER_TOO_SMALL: the output has too little room; nothing has changed";
        case TAVRIN_MODEL_REFUSED:
            return "TAVRIN_MODEL_REFUSED: the model cannot be loaded, or not be run as it is wanted";
        case TAVRIN_RUN_FAILED:
            return "TAVRIN_RUN_FAILED: the model call failed; the stream is closed";
        case TAVRIN_CLOSED:
            return "TAVRIN_CLOSED: the stream has ended or failed; tavrin_separator_reset() starts a new one";
        case TAVRIN_OUT_OF_MEMORY:
            return "TAVRIN_OUT_OF_MEMORY: there is not enough memory";
        case TAVRIN_RUNTIME_TOO_OLD:
            return "TAVRIN_RUNTIME_TOO_OLD: the process has an ONNX Runtime that is too old";
    }
    return "no status of this version";
}

uint32_t tavrin_version(void) { return TAVRIN_VERSION_NUMBER; }

tavrin_status tavrin_provider_count(size_t* count) {
    return guarded(TAVRIN_RUN_FAILED, [&] {
        required(count, "count") = 0;
        *count = providers().size();
    });
}

tavrin_status tavrin_provider_name(size_t index, const char** name) {
    return guarded(TAVRIN_RUN_FAILED, [&] {
        required(name, "name") = nullptr;
        if (index >= providers().size())
            throw std::invalid_argument("there is no provider " + std::to_string(index) + "; the runtime offers " +
                                        std::to_string(providers().size()));
        *name = providers()[index].c_str();
    });
}
