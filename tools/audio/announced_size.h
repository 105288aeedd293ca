/// @file
/// How many bytes headers announce, where FFmpeg's libraries do not tell. For the sources of this folder only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavrin::tool {

/// The samples of a WAV, RF64, Wave64 or CAF file. The libraries forget it when the file is shorter.
struct DataChunk {
    std::int64_t size = 0;      ///< bytes of samples
    std::int64_t offset = 0;    ///< of the first of them in the file
    std::int64_t fileSize = 0;  ///< as a WAV announces it; 0: it does not
};

/// @param head the file's first bytes.
/// @return nothing for other kinds of files, and when the length was left open.
std::optional<DataChunk> findDataChunk(const std::string& head);

/// Bytes of a frame of MPEG audio, layer II or III, by its four bytes of header. An MP3 file without a length shows by
/// its last frame alone that it was cut off. @return 0 when that is no such frame or its size is not told.
std::size_t mpegFrameSize(std::span<const std::uint8_t> frame, int rate);

}  // namespace tavrin::tool
