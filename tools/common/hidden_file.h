/// @file
/// A file that nobody takes for finished before it is.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

namespace tavrin::tool {

/// A new file that gets its name in the end. Until then it is a hidden one beside its place, removed by the destructor.
/// Folders that are missing on its way are made, and removed again when nothing comes to lie in them.
class HiddenFile {
public:
    /// @throws Failure with ExitCode::writeFailed, also when another process is writing the same file.
    explicit HiddenFile(const std::filesystem::path& target);
    ~HiddenFile();
    HiddenFile(const HiddenFile&) = delete;
    HiddenFile& operator=(const HiddenFile&) = delete;

    const std::filesystem::path& target() const { return _target; }

    /// Open for writing, for as long as the file has not been published.
    int descriptor() const { return _descriptor; }

    /// Appends bytes. @throws Failure with ExitCode::writeFailed.
    void write(std::string_view bytes);

    /// Gives files their names; others of these names are replaced. A signal comes before or after it, not between.
    /// @throws Failure with ExitCode::writeFailed.
    static void publish(const std::vector<HiddenFile*>& files);

    /// Removes every unfinished file of the process, and lets none be published any more. For a process that ends.
    static void removeAll();

private:
    std::filesystem::path _target;
    std::filesystem::path _hidden;
    int _descriptor = -1;
};

}  // namespace tavrin::tool
