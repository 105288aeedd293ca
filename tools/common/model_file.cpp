#include "common/model_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <system_error>

#include "common/hidden_file.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

std::vector<fs::path> modelFolders() {
    std::vector<fs::path> folders;
    std::istringstream list(variable("TAVRIN_MODELS"));
    for (std::string folder; std::getline(list, folder, ':');) {
        if (!folder.empty()) folders.emplace_back(folder);
    }
    const std::string home = variable("HOME");
    const fs::path data = variable("XDG_DATA_HOME");
    if (!data.empty() || !home.empty())
        folders.push_back((data.empty() ? fs::path(home) / ".local/share" : data) / "tavrin/models");
    std::error_code none;
    // Relative to the program, so that an installed tree can be moved. The last two are there in a build tree only.
    const fs::path own = fs::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* place : {TAVRIN_MODELS_FROM_PROGRAM, "shipped-models", "fetched-models"}) {
        if (!own.empty()) folders.push_back((own / place).lexically_normal());
    }
    return folders;
}

fs::path modelNamed(const std::string& name) {
    const bool isPath = name.find('/') != std::string::npos;
    std::error_code none;
    for (const fs::path& folder : modelFolders()) {
        fs::path file = folder / (name + ".onnx");
        if (!isPath && fs::exists(file, none)) return file;
    }
    if (fs::exists(name, none)) return name;
    std::string reason = "there is no such file and no model of that name; tavrin-model list shows those that are here";
    for (const auto& [other, what, howToGet] : otherModels) {
        if (name == other) reason = std::string("is not here; get it with: ") + howToGet;
    }
    throw Failure(ExitCode::modelUnusable, "model " + name + ": " + reason);
}

std::string readBytes(const fs::path& file, ExitCode unreadable) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rbe"), std::fclose);
    std::error_code none;  // for what is no regular file
    const auto size = fs::file_size(file, none);
    std::string bytes;
    bytes.reserve(none ? 0 : size);
    // Through a block that stays in the cache: a string of the whole size would be filled with zeros first.
    char block[65536];
    while (const std::size_t count = stream ? std::fread(block, 1, sizeof block, stream.get()) : 0)
        bytes.append(block, count);
    if (!stream || std::ferror(stream.get()))
        throw Failure(unreadable,
                      file.string() + ": cannot be read (" + std::strerror(errno) + "); check its name and rights");
    return bytes;
}

std::string readKey(const fs::path& file) {
    std::string key = readBytes(file);
    if (key.ends_with('\n')) key.pop_back();
    if (key.ends_with('\r')) key.pop_back();
    if (key.empty()) throw Failure(ExitCode::inputUnreadable, file.string() + ": is empty; write the key into it");
    return key;
}

std::string withKey(std::string bytes, const std::string& key) {
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(bytes[i] ^ key[i % key.size()]);
    return bytes;
}

void scrambleFile(const fs::path& input, const fs::path& output, const fs::path& keyFile) {
    const std::string bytes = withKey(readBytes(input), readKey(keyFile));
    std::error_code none;
    for (const fs::path& source : {input, keyFile}) {
        if (fs::equivalent(output, source, none))
            throw Failure(ExitCode::wrongUsage,
                          output.string() + ": would replace " + source.string() + "; name another file with -o");
    }
    if (fs::exists(output, none) && !fs::is_regular_file(output, none))
        throw Failure(ExitCode::wrongUsage, output.string() + ": is no regular file; name another one with -o");
    HiddenFile target(output);
    target.write(bytes);
    HiddenFile::publish({&target});
}

}  // namespace tavrin::tool
