#include "common/model_folders.h"

#include <cstdlib>
#include <sstream>
#include <system_error>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::vector<fs::path> usersFolders() {
    std::vector<fs::path> folders;
    std::istringstream list(variable("TAVRIN_MODELS"));
    for (std::string folder; std::getline(list, folder, ':');) {
        if (!folder.empty()) folders.emplace_back(folder);
    }
    const std::string data = variable("XDG_DATA_HOME");
    const std::string home = variable("HOME");
    if (!data.empty()) {
        folders.push_back(fs::path(data) / "tavrin/models");
    } else if (!home.empty()) {
        folders.push_back(fs::path(home) / ".local/share/tavrin/models");
    }
    return folders;
}

}  // namespace

std::vector<fs::path> modelFolders() {
    std::vector<fs::path> folders = usersFolders();
    std::error_code none;
    // Relative to the program, so that an installed tree can be moved. The last two are there in a build tree only.
    const fs::path own = fs::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* place : {TAVRIN_MODELS_FROM_PROGRAM, "shipped-models", "fetched-models"}) {
        if (!own.empty()) folders.push_back((own / place).lexically_normal());
    }
    return folders;
}

const std::vector<OtherModel>& otherModels() {
    static const std::vector<OtherModel> others = {
        {"vocals", "a trained network: the voice, and the band without it", "scripts/setup.sh vocals"}};
    return others;
}

fs::path modelNamed(const std::string& name) {
    const bool isPath = name.find('/') != std::string::npos;
    std::error_code none;
    for (const fs::path& folder : isPath ? std::vector<fs::path>{} : modelFolders()) {
        fs::path file = folder / (name + ".onnx");
        if (fs::exists(file, none)) return file;
    }
    if (fs::exists(name, none)) return name;
    for (const OtherModel& other : otherModels()) {
        if (name == other.name)
            throw Failure(ExitCode::modelUnusable, "model " + name + ": is not here; get it with: " + other.howToGet);
    }
    throw Failure(ExitCode::modelUnusable,
                  "model " + name +
                      ": there is no such file and no model of that name; tavrin-model list shows those "
                      "that are here");
}

}  // namespace tavrin::tool
