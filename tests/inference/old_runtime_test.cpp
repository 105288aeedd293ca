// Run with an older runtime that was loaded first (old_runtime.c). That main is reached at all is the first claim: the
// library loads beside it.
#include <functional>
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "support/message_of.h"
#include "tavrin/separator.h"

int main() {
    const std::uint8_t bytes[1] = {};
    const std::function<void()> calls[] = {[] { InferenceONNX::create(nullptr, 0, ""); },
                                           [&] {
                                               tavrin::Model(tavrin::ModelData{bytes, 1});
                                           },
                                           [] { tavrin::availableProviders(); }};
    for (const auto& call : calls) {
        const std::string text = messageOf<std::runtime_error>(call);
        if (text.find("1.20.1") == text.npos || text.find("1.21") == text.npos) return 1;
    }
    return tavrin::initializeModel("tag", {}) ? 1 : 0;
}
