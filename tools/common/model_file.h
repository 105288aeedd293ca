/// @file
/// Where models lie, what they are called, and the keys of scrambled ones.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "common/failure.h"

namespace tavrin::tool {

/// The folders that are searched for models, the first match wins: those of the environment variable TAVRIN_MODELS
/// (with colons between them), the user's own (tavrin/models in XDG_DATA_HOME or ~/.local/share), those of the program.
std::vector<std::filesystem::path> modelFolders();

/// @param name "centre" for centre.onnx of one of the folders, or a path; "./centre" is a path, too.
/// @throws Failure with ExitCode::modelUnusable for a name that is neither; it says where to get the model when that
///         is known.
std::filesystem::path modelNamed(const std::string& name);

/// Models that do not come with the program, but can be had: name, what it is, how to get it.
inline constexpr std::array<const char*, 3> otherModels[] = {
    {"vocals", "a trained network: the voice, and the band without it", "scripts/setup.sh vocals"}};

/// All bytes of a file. @throws Failure with the code, also for a folder.
std::string readBytes(const std::filesystem::path& file, ExitCode unreadable = ExitCode::inputUnreadable);

/// Reads a key: the bytes of the file, without a line end behind the last of them.
/// @throws as readBytes(), also when nothing is left.
std::string readKey(const std::filesystem::path& file);

/// The bytes, scrambled as ModelData describes, or unscrambled, which is the same.
std::string withKey(std::string bytes, const std::string& key);

/// Writes `input`, with the key applied, to `output`. @throws Failure: ExitCode::wrongUsage when the output is the
/// input or the key, inputUnreadable, writeFailed. An old output is then as it was.
void scrambleFile(const std::filesystem::path& input, const std::filesystem::path& output,
                  const std::filesystem::path& keyFile);

}  // namespace tavrin::tool
