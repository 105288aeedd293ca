/// @file
/// The execution providers of the ONNX Runtime that the library found.
#pragma once

#include <string>
#include <vector>

namespace tavrin::tool {

/// Their names, the runtime's favourite first. @throws Failure with ExitCode::modelUnusable when there is no answer.
std::vector<std::string> offeredProviders();

/// @throws Failure with ExitCode::wrongUsage when `provider` is not one of them; as offeredProviders().
void requireOffered(const std::string& provider);

}  // namespace tavrin::tool
