/// @file
/// The models of a run.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "separate/options.h"
#include "separate/songs.h"
#include "stems/separation.h"

namespace tavrin::tool {

/// Its members stay in their order.
using Json = nlohmann::ordered_json;

/// Everything that songs need of the models; any number of threads may use it.
struct LoadedModels {
    std::vector<Stage> stages;
    PartNames names;
    std::string label;     ///< for messages: the models' files
    std::string provider;  ///< that runs them
    Json record;           ///< name and digest of each, in the order of their use
};

/// Says why a wanted provider is not used. @throws Failure with ExitCode::modelUnusable; with ExitCode::wrongUsage for
/// a stem that no model knows.
LoadedModels loadModels(const ModelChoice& choice);

}  // namespace tavrin::tool
