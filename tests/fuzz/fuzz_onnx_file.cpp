// Any bytes can be read as a model file, and judged: what is found of them lies within them.
#include <cstdlib>

#include "inference/model_contract.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const tavrin::OnnxFile file = tavrin::readOnnxFile(data, size);
    size_t found = 0;
    for (const auto& [key, value] : file.metadata) found += key.size() + value.size();
    for (const auto& [place, tensors] : file.outside) found += place.size() + tensors.first.size() + tensors.tensors;
    if (found > size || (tavrin::judge({file}).problems.empty() && (!file.whole || !file.outside.empty())))
        std::abort();
    return 0;
}
