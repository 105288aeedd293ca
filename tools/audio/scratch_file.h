/// @file
/// Bytes put aside on disk.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>

namespace tavrin::tool {

using FileHandle = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A file in that folder, for writing and reading, that has no name: it is gone when the program ends, however it ends.
/// @return null, with errno set, when there can be none.
FileHandle makeScratchFile(const std::filesystem::path& folder);

}  // namespace tavrin::tool
