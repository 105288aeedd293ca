/// @file
/// The choice of the execution provider that runs a model.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The runtime's headers stay in this folder's sources.
namespace Ort {
struct Env;
struct Session;
struct SessionOptions;
}  // namespace Ort

namespace tavrin {

/// What a back-end wants done for its kind of model.
struct ProviderSteps {
    const char* functionText;  ///< the function named in the log records of the walk
    /// Appends CoreML to the options. @return why not, in the runtime's words; none: done. @throws Ort::Exception.
    std::optional<std::string> (*appendCoreML)(Ort::SessionOptions& options);
};

/// Builds the session of a back-end of InferenceONNX.
///
/// Walks the providers DirectML, QNN, CUDA, ROCm, CoreML, CPU with `provider`, when not empty, in front. Those that
/// the runtime offers are tried in turn; a failed attempt is logged and the walk goes on. It also goes on after a
/// success, so the last provider that yields a session serves the model; the CPU ends the walk and serves when none
/// did.
///
/// @param data,size the serialized model, read during the call only.
/// @throws std::invalid_argument for null data of some size; Ort::Exception when the session on the CPU cannot be
///         built.
std::unique_ptr<Ort::Session> createSession(Ort::Env& env, const void* data, size_t size, const std::string& provider,
                                            const ProviderSteps& steps);

/// Appends CoreML through its own function, without flags, as single-output models want it.
std::optional<std::string> appendCoreMLByFunction(Ort::SessionOptions& options);

/// Appends CoreML by name, with compiled models cached below the user's home, as multi-stem models want it.
std::optional<std::string> appendCoreMLWithCache(Ort::SessionOptions& options);

/// How a model of the streaming engine is to be run.
struct ProviderWish {
    std::vector<std::string> providers = {};  ///< in order of preference; empty: the accelerators on offer
    bool strict = false;                      ///< one of `providers`, or an error
    std::size_t threads = 0;                  ///< of one model call; 0: the runtime's choice
};

/// A session, and how it came about.
struct ChosenSession {
    std::unique_ptr<Ort::Session> session;
    std::string provider;              ///< the one that runs the model, as the runtime spells it
    std::vector<std::string> notUsed;  ///< "CUDAExecutionProvider: …", a line for each that was preferred and failed
};

/// @throws std::invalid_argument for an option out of range, with what there is.
void requireValid(const ProviderWish& wish);

/// Builds the session of a model of the streaming engine: the first wanted provider that yields one serves, and the
/// CPU behind them all.
///
/// @param data,size the serialized model, read during the call only.
/// @throws std::runtime_error when `strict` and none of the wanted providers yields one, with each one's reason;
///         Ort::Exception when the session on the CPU cannot be built.
ChosenSession chooseSession(Ort::Env& env, const void* data, size_t size, const ProviderWish& wish);

/// The providers that the runtime offers. @throws RuntimeTooOld.
std::vector<std::string> offeredProviders();

}  // namespace tavrin
