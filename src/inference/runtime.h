/// @file
/// What the ONNX Runtime back-ends share when they call the runtime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "inference/inference.h"

// The runtime's headers stay in this folder's sources.
namespace Ort {
struct Env;
struct MemoryInfo;
struct Value;
}  // namespace Ort

namespace tavrin {

/// The loaded runtime is older than the headers this library was built with. The message names both versions.
class RuntimeTooOld : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// @throws RuntimeTooOld. No other call may go to the runtime before this one was made.
void requireRuntime();

/// The runtime's own log severity. It belongs to the process: the first live environment wins.
enum class RuntimeLog { verbose, warning, none };

/// Makes an environment with an empty log identifier.
/// @throws RuntimeTooOld, Ort::Exception.
Ort::Env makeEnvironment(RuntimeLog severity);

/// Bytes of a float tensor of these extents.
size_t byteSize(const Shape& shape);

/// Wraps caller memory, which the runtime then reads or writes in place. @throws Ort::Exception when it is too small.
Ort::Value wrapFloats(const Ort::MemoryInfo& memory, float* data, size_t bytes, const std::int64_t* dimensions,
                      size_t rank);

}  // namespace tavrin
