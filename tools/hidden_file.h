/// @file
/// A file that nobody takes for finished before it is.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tavrin::tool {

/// A new file that gets its name in the end. Until then it is a hidden one beside its place, removed by the destructor.
class HiddenFile {
public:
    /// @throws Failure with ExitCode::writeFailed, also when another process is writing the same file.
    explicit HiddenFile(std::filesystem::path target);
    ~HiddenFile();
    HiddenFile(const HiddenFile&) = delete;
    HiddenFile& operator=(const HiddenFile&) = delete;

    const std::filesystem::path& target() const { return _target; }

    /// As the functions of the system, -1 on failure.
    std::int64_t size() const;
    std::int64_t seek(std::int64_t offset, int whence);
    /// @return how many bytes were written; fewer than wanted on failure.
    std::int64_t write(const void* bytes, std::int64_t count);

    /// The errno of the first write that failed, otherwise 0.
    int error() const { return _error; }

    /// Gives the file its name; another one of that name is replaced. @throws Failure with ExitCode::writeFailed.
    void publish();

private:
    std::filesystem::path _target;
    std::filesystem::path _hidden;
    int _descriptor;
    int _error = 0;
};

}  // namespace tavrin::tool
