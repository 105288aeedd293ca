/// @file
/// How many bytes of samples a header announces. For the sources of this folder only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tavrin::tool {

/// Of a WAV, RF64, Wave64 or CAF file. FFmpeg's libraries forget it when the file is shorter.
struct DataChunk {
    std::int64_t size = 0;      ///< bytes of samples
    std::int64_t offset = 0;    ///< of the first of them in the file
    std::int64_t fileSize = 0;  ///< as a WAV announces it; 0: it does not
};

/// @param head the file's first bytes.
/// @return nothing for other kinds of files, and when the length was left open.
std::optional<DataChunk> findDataChunk(const std::string& head);

}  // namespace tavrin::tool
