/// @file
/// The models that come with the program.
#pragma once

#include <filesystem>
#include <string>

namespace tavrin::tool {

/// @param name of a shipped model, "centre" or "percussive", or any path; a shipped name comes first, ./centre is a
/// path.
/// @return the file that is meant, whether it is there or not.
std::filesystem::path modelNamed(const std::string& name);

}  // namespace tavrin::tool
