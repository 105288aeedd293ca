#include "audio/scratch_file.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace tavrin::tool {

FileHandle makeScratchFile(const std::filesystem::path& folder) {
    // Not every file system knows files that never had a name.
    std::string name = (folder / ".tavrin-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), 0);
    if (descriptor >= 0) unlink(name.c_str());
    return {descriptor < 0 ? nullptr : fdopen(descriptor, "w+"), std::fclose};
}

}  // namespace tavrin::tool
