/// @file
/// Samples put aside on disk.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

namespace tavrin::tool {

/// A file without a name: it is gone when the program ends, however it ends. Written first, then read once.
class ScratchFile {
public:
    /// @param neighbour the file lies in the folder of this one. @throws Failure with ExitCode::writeFailed, as the
    /// other members do; the message names the neighbour.
    explicit ScratchFile(std::filesystem::path neighbour);

    void append(const std::vector<float>& samples);

    /// From now on samples are read.
    void rewind();

    /// @return the next samples, at most `count`; none at the end.
    std::vector<float> read(std::size_t count);

private:
    std::filesystem::path _neighbour;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> _file{nullptr, std::fclose};
};

}  // namespace tavrin::tool
