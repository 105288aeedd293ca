/// @file
/// A note that a model run left behind.
#pragma once

#include <optional>
#include <string>

namespace tavrin {

/// The ONNX back-ends swallow a failed model execution: they log it and report success. Here they also leave the
/// runtime's message for the thread that made the call, so that who called can tell silence from music.
namespace RunFailure {

/// Keeps `message` for the calling thread, in place of an earlier one.
void leave(std::string message);

/// Takes the calling thread's note away; empty when no run has failed since the last take().
std::optional<std::string> take();

}  // namespace RunFailure

}  // namespace tavrin
