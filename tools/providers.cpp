#include "providers.h"

#include <algorithm>

#include "failure.h"
#include "tavrin/tavrin_c.h"

namespace tavrin::tool {

std::vector<std::string> offeredProviders() {
    std::size_t count = 0;
    tavrin_status status = tavrin_provider_count(&count);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count && status == TAVRIN_OK; ++i) {
        const char* name = nullptr;
        status = tavrin_provider_name(i, &name);
        if (status == TAVRIN_OK) names.emplace_back(name);
    }
    if (status != TAVRIN_OK) throw Failure(ExitCode::modelUnusable, tavrin_last_error());
    return names;
}

void requireOffered(const std::string& provider) {
    const std::vector<std::string> offered = offeredProviders();
    if (std::find(offered.begin(), offered.end(), provider) == offered.end())
        throw Failure(ExitCode::wrongUsage, "--provider: this ONNX Runtime does not offer \"" + provider +
                                                "\"; tavrin-separate --list-providers shows what it does");
}

}  // namespace tavrin::tool
