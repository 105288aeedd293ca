/// @file
/// Where audio comes from and goes to.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace tavrin::tool {

/// A file, a named pipe, or a descriptor that is already open.
struct AudioPlace {
    std::filesystem::path path{};  ///< opened when there is no descriptor; any bytes, `-` and `http:` are file names
    int descriptor = -1;           ///< taken as it is and left open, 0 for standard input; the path is then unused
    std::string name{};            ///< how messages call it; empty: the path

    /// Asked ten times a second while something is waited for, so that nothing blocks for longer: true ends the wait
    /// with AudioError::Kind::interrupted. Called on the thread that reads or writes.
    std::function<bool()> interrupted{};

    std::string label() const { return name.empty() ? path.string() : name; }
};

}  // namespace tavrin::tool
