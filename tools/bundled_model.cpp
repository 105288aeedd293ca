#include "bundled_model.h"

#include <system_error>

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* bundled[] = {"centre", "percussive"};

// Beside an installed program, otherwise in the source tree that this program was built from.
fs::path bundledFile(const std::string& name) {
    std::error_code none;
    const fs::path program = fs::read_symlink("/proc/self/exe", none);
    fs::path installed = (program.parent_path() / "../share/tavrin/models" / (name + ".onnx")).lexically_normal();
    if (!program.empty() && fs::exists(installed, none)) return installed;
    return fs::path(TAVRIN_MODELS) / (name + ".onnx");
}

}  // namespace

fs::path modelNamed(const std::string& name) {
    for (const char* own : bundled) {
        if (name == own) return bundledFile(name);
    }
    return name;
}

}  // namespace tavrin::tool
