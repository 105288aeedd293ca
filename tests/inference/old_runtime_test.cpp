// Run with an older runtime that was loaded first (old_runtime.c). That main is reached at all is the first claim: the
// library loads beside it.
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "support/message_of.h"
#include "tavrin/separator.h"

int main() {
    const auto namesBothVersions = [](const auto& action) {
        const std::string text = messageOf<std::runtime_error>(action);
        return text.find("1.20.1") != text.npos && text.find("1.21") != text.npos;
    };
    const std::uint8_t bytes[1] = {};
    const bool clear = namesBothVersions([] { InferenceONNX::create(nullptr, 0, ""); }) && namesBothVersions([&] {
                           tavrin::Model(tavrin::ModelData{bytes, 1});
                       }) &&
                       namesBothVersions([] { tavrin::availableProviders(); });
    return clear && !tavrin::initializeModel("tag", {}) ? 0 : 1;
}
