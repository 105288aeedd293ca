// Run with an older runtime that was loaded first (old_runtime.c). That main is reached at all is the first claim: the
// library loads beside it.
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "tavrin/separator.h"

template <class Action>
bool namesBothVersions(Action action) try {
    action();
    return false;
} catch (const std::runtime_error& failure) {
    const std::string text = failure.what();
    return text.find("1.20.1") != text.npos && text.find("1.21") != text.npos;
}

int main() {
    const std::uint8_t bytes[1] = {};
    const bool clear = namesBothVersions([] { InferenceONNX::create(nullptr, 0, ""); }) && namesBothVersions([&] {
                           tavrin::Model({bytes, 1});
                       }) &&
                       namesBothVersions([&] {
                           tavrin::Model({bytes, 1}, {{"no such provider"}});
                       }) &&
                       namesBothVersions([] { tavrin::availableProviders(); });
    return clear && !tavrin::initializeModel("tag", {}) ? 0 : 1;
}
