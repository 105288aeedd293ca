// A library that, once loaded, gives the process the function that only some platforms' runtimes have.
#include "support/runtime_stand_in.h"

extern "C" __attribute__((visibility("default"))) OrtStatus* OrtSessionOptionsAppendExecutionProvider_CoreML(
    OrtSessionOptions* options, uint32_t flags) {
    return appendCoreMl(options, flags);
}
