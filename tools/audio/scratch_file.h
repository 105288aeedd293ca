/// @file
/// Bytes put aside on disk.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace tavrin::tool {

using FileHandle = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A file in that folder, for writing and reading, that has no name: it is gone when the program ends, however it ends.
/// @return null, with errno set, when there can be none.
inline FileHandle makeScratchFile(const std::filesystem::path& folder) {
    // Not every file system knows files that never had a name.
    std::string name = (folder / ".tavrin-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), 0);
    if (descriptor >= 0) unlink(name.c_str());
    return {descriptor < 0 ? nullptr : fdopen(descriptor, "w+"), std::fclose};
}

}  // namespace tavrin::tool
