#include "separate/models.h"

#include <algorithm>
#include <cctype>
#include <future>
#include <set>
#include <stdexcept>
#include <utility>

#include "common/failure.h"
#include "common/messages.h"
#include "common/model_file.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// What remains of a name however it is spelt: "Acoustic Guitar", "acoustic-guitars", "acousticGuitar".
std::string bare(const std::string& name) {
    std::string letters;
    for (const char c : name) {
        if (c != ' ' && c != '-' && c != '_') letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (letters.ends_with('s')) letters.pop_back();
    return letters;
}

bool isWanted(const std::string& stem, const Names& wanted) {
    return wanted.empty() || wanted == Names{"all"} ||
           std::any_of(wanted.begin(), wanted.end(), [&](const std::string& name) { return bare(name) == bare(stem); });
}

struct Loader {
    const ModelChoice& choice;
    const std::string key = choice.keyFile.empty() ? "" : readKey(choice.keyFile);
    Names known{};
    Names files{};  // without endings
    LoadedModels loaded{};

    LoadedModels load() {
        loaded.record = Json::array();
        addStage(choice.models);
        for (const std::string& name : choice.then) addStage({name});
        for (const std::string& name : choice.stems) {
            if (std::none_of(known.begin(), known.end(), [&](const auto& stem) { return isWanted(stem, {name}); }))
                throw Failure(ExitCode::wrongUsage, "--stems: \"" + name + "\" is no stem of " + loaded.label +
                                                        ", which knows " + joined(known, ", "));
        }
        std::erase_if(loaded.stages, [](const Stage& stage) { return stage.stems.empty(); });
        Names& stems = loaded.names.stems;
        const bool isAll = stems.size() == known.size();
        loaded.names.group = isAll && stems.size() > 1 ? joined(files, "+") : joined(stems, "+");
        const bool isOwnWish = choice.latency != 0 || choice.context != 0;  // what a model wants for itself is possible
        try {
            if (isOwnWish) Separation(loaded.stages, 44100);  // any rate will do
        } catch (const std::invalid_argument& reason) {
            throw Failure(ExitCode::wrongUsage, std::string("--latency, --context: ") + reason.what());
        }
        return std::move(loaded);
    }

    void addStage(const Names& models) {
        Stage stage{{}, {}, choice.latency, choice.context};
        for (const std::string& name : models) stage.models.push_back(loadModel(modelNamed(name)));
        Names others = known;
        std::string shared;
        for (const std::string& stem : stemsOf(stage.models)) {
            const std::string name = stageName(stage, stem);
            const bool isNew = std::erase(others, name) == 0;
            if (isNew) others.push_back(name);
            known.push_back(name);
            if (!isWanted(name, choice.stems)) continue;
            if (!isNew) shared = name;
            stage.stems.push_back(stem);
            loaded.names.stems.push_back(name);
        }
        if (!shared.empty())
            throw Failure(
                ExitCode::wrongUsage,
                "--then " + models.front() + ": takes out \"" + shared +
                    "\", and so does a model before it; type --model " + models.front() +
                    " in its place to average both" +
                    (others.empty() ? "" : ", or add --stems " + joined(others, ",") + " for the other stems"));
        loaded.stages.push_back(std::move(stage));
    }

    // The model's own name for its only stem often says nothing; its file's then says more.
    std::string stageName(const Stage& stage, const std::string& stem) const {
        static const std::set<std::string> sayNothing = {"output", "separated", "stem", "out", "y", "rest"};
        const bool isOnly = stage.models.size() == 1 && stage.models.front().info().stems.size() == 1;
        if (!isOnly || !sayNothing.contains(bare(stem))) return asFileName(stem);
        return files.back() == "rest" ? "stem" : files.back();
    }

    Model loadModel(const fs::path& file) {
        files.push_back(asFileName(file.stem().string()));
        loaded.label += (loaded.label.empty() ? "" : ", ") + file.string();
        try {
            const std::string bytes = readBytes(file, ExitCode::modelUnusable);
            // On a thread of its own, if one can be had: the runtime takes longer.
            auto digest = std::async([&bytes] { return Digest().add(bytes.data(), bytes.size()).text(); });
            ModelOptions options;
            if (!choice.provider.empty()) options.providers = {choice.provider};
            options.threads = choice.threads;
            Model model({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), &key}, options);
            loaded.record.push_back({{"name", files.back()}, {"digest", digest.get()}});
            loaded.provider = model.info().provider;
            for (const std::string& reason : model.info().notUsed) {
                if (!choice.provider.empty())
                    say("warning: " + file.string() + ": " + loaded.provider + " runs it, not " + reason);
            }
            return model;
        } catch (const std::invalid_argument& reason) {
            throw Failure(ExitCode::wrongUsage, std::string("--device, --threads: ") + reason.what());
        } catch (...) {
            throw currentFailure(file.string());
        }
    }
};

}  // namespace

LoadedModels loadModels(const ModelChoice& choice) { return Loader{choice}.load(); }

}  // namespace tavrin::tool
