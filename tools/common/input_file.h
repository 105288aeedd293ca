/// @file
/// Files that are read as bytes.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace tavrin::tool {

/// @throws Failure with ExitCode::inputUnreadable, also for a folder.
std::ifstream openInput(const std::filesystem::path& file);

/// All bytes of a file. @throws as openInput().
std::string readBytes(const std::filesystem::path& file);

}  // namespace tavrin::tool
