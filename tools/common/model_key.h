/// @file
/// Keys of scrambled models.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace tavrin::tool {

/// Reads a key: the bytes of the file, without a line end behind the last of them.
/// @throws Failure with ExitCode::inputUnreadable, also when nothing is left.
std::string readKey(const std::filesystem::path& file);

/// Scrambles bytes as ModelData describes, or unscrambles them, which is the same: byte i XOR key byte i mod its
/// length.
/// @param position of the first byte in the whole file.
void applyKey(const std::string& key, char* bytes, std::size_t count, std::uint64_t position);

/// Writes `input`, with the key applied, to `output`; takes a few buffers of memory whatever the size.
/// @throws Failure: ExitCode::wrongUsage when the output is the input or the key, inputUnreadable, writeFailed. An old
/// output is then as it was.
void scrambleFile(const std::filesystem::path& input, const std::filesystem::path& output,
                  const std::filesystem::path& keyFile);

}  // namespace tavrin::tool
