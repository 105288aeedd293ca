// Run with an older runtime that was loaded first (old_runtime.c). That main is reached at all is the first claim: the
// library loads beside it.
#include <stdexcept>

#include "inference/inference_onnx.h"
#include "tavrin/tavrin_proc.h"

int main() try {
    InferenceONNX::create(nullptr, 0, "");
    return 1;
} catch (const std::runtime_error& failure) {
    const std::string text = failure.what();
    const bool namesBoth = text.find("1.20.1") != text.npos && text.find("1.21") != text.npos;
    return namesBoth && !tavrin::initializeModel("tag", {}) ? 0 : 1;
}
