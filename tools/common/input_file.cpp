#include "common/input_file.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <system_error>

#include "common/failure.h"

namespace tavrin::tool {

std::ifstream openInput(const std::filesystem::path& file) {
    std::error_code none;
    if (std::filesystem::is_directory(file, none))
        throw Failure(ExitCode::inputUnreadable, file.string() + ": is a folder; name a file in it");
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw Failure(ExitCode::inputUnreadable,
                      file.string() + ": cannot be read (" + std::strerror(errno) + "); check its name and rights");
    return stream;
}

std::string readBytes(const std::filesystem::path& file) {
    std::ifstream stream = openInput(file);
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error) return {std::istreambuf_iterator<char>(stream), {}};  // a pipe, say
    std::string bytes(size, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    return bytes;
}

}  // namespace tavrin::tool
