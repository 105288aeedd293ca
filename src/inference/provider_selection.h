/// @file
/// The choice of the execution provider that runs a model.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// The runtime's headers stay in this folder's sources.
namespace Ort {
struct Env;
struct Session;
struct SessionOptions;
}  // namespace Ort

/// What a back-end wants done for its kind of model.
struct ProviderSteps {
    const char* functionText;  ///< the function named in the log records of the walk
    /// Appends CoreML to the options. @return false: not appended, and logged why. @throws Ort::Exception.
    bool (*appendCoreML)(Ort::SessionOptions& options, const char* functionText);
};

/// Builds the session of a model.
///
/// Walks the providers DirectML, QNN, CUDA, ROCm, CoreML, CPU with `provider`, when not empty, in front. Those that
/// the runtime offers are tried in turn; a failed attempt is logged and the walk goes on. It also goes on after a
/// success, so the last provider that yields a session serves the model; the CPU ends the walk and serves when none
/// did.
///
/// @param data,size the serialized model, read during the call only.
/// @throws Ort::Exception when the session on the CPU cannot be built.
std::unique_ptr<Ort::Session> createSession(Ort::Env& env, const void* data, size_t size, const std::string& provider,
                                            const ProviderSteps& steps);

/// The providers that the runtime offers. @throws RuntimeTooOld.
std::vector<std::string> availableProviders();

/// Appends CoreML through its own function, without flags, as single-output models want it.
bool appendCoreMLByFunction(Ort::SessionOptions& options, const char* functionText);

/// Appends CoreML by name, with compiled models cached below the user's home, as multi-stem models want it.
bool appendCoreMLWithCache(Ort::SessionOptions& options, const char* functionText);
