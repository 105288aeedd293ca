/// @file
/// Where models lie, and what they are called.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavrin::tool {

/// The folders that are searched for models, the first match wins: those of the environment variable TAVRIN_MODELS
/// (with colons between them), the user's own (tavrin/models in XDG_DATA_HOME or ~/.local/share), those of the program.
std::vector<std::filesystem::path> modelFolders();

/// @param name "centre" for centre.onnx of one of the folders, or a path; "./centre" is a path, too.
/// @throws Failure with ExitCode::modelUnusable for a name that is neither; it says where to get the model when that
///         is known.
std::filesystem::path modelNamed(const std::string& name);

/// A model that does not come with the program.
struct OtherModel {
    const char* name;
    const char* what;
    const char* howToGet;
};

/// What can be had.
const std::vector<OtherModel>& otherModels();

}  // namespace tavrin::tool
