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

class Loader {
public:
    explicit Loader(const ModelChoice& choice) : _choice(choice) {}

    LoadedModels load() {
        _loaded.record = Json::array();
        addStage(_choice.models);
        for (const std::string& name : _choice.then) addStage({name});
        for (const std::string& name : _choice.stems) {
            if (std::none_of(_known.begin(), _known.end(), [&](const auto& stem) { return isWanted(stem, {name}); }))
                throw Failure(ExitCode::wrongUsage, "--stems: \"" + name + "\" is no stem of " + _loaded.label +
                                                        ", which knows " + joined(_known, ", "));
        }
        std::erase_if(_loaded.stages, [](const Stage& stage) { return stage.stems.empty(); });
        Names& stems = _loaded.names.stems;
        const bool isAll = stems.size() == _known.size();
        _loaded.names.group = isAll && stems.size() > 1 ? joined(_files, "+") : joined(stems, "+");
        try {
            Separation(_loaded.stages, 44100);  // any rate will do
        } catch (const std::invalid_argument& reason) {
            throw Failure(ExitCode::wrongUsage, std::string("--latency, --context: ") + reason.what());
        }
        return std::move(_loaded);
    }

private:
    void addStage(const Names& models) {
        Stage stage{{}, {}, _choice.latency, _choice.context};
        for (const std::string& name : models) stage.models.push_back(loadModel(modelNamed(name)));
        Names others = _known;
        std::string shared;
        for (const std::string& stem : stemsOf(stage.models)) {
            const std::string name = stageName(stage, stem);
            const bool isNew = std::erase(others, name) == 0;
            if (isNew) others.push_back(name);
            _known.push_back(name);
            if (!isWanted(name, _choice.stems)) continue;
            if (!isNew) shared = name;
            stage.stems.push_back(stem);
            _loaded.names.stems.push_back(name);
        }
        if (!shared.empty())
            throw Failure(
                ExitCode::wrongUsage,
                "--then " + models.front() + ": takes out \"" + shared +
                    "\", and so does a model before it; type --model " + models.front() +
                    " in its place to average both" +
                    (others.empty() ? "" : ", or add --stems " + joined(others, ",") + " for the other stems"));
        _loaded.stages.push_back(std::move(stage));
    }

    // The model's own name for its only stem often says nothing; its file's then says more.
    std::string stageName(const Stage& stage, const std::string& stem) const {
        static const std::set<std::string> sayNothing = {"output", "separated", "stem", "out", "y", "rest"};
        const bool isOnly = stage.models.size() == 1 && stage.models.front().info().stems.size() == 1;
        if (!isOnly || !sayNothing.contains(bare(stem))) return asFileName(stem);
        return _files.back() == "rest" ? "stem" : _files.back();
    }

    Model loadModel(const fs::path& file) {
        _files.push_back(asFileName(file.stem().string()));
        _loaded.label += (_loaded.label.empty() ? "" : ", ") + file.string();
        try {
            const Bytes bytes = readBytes(file, ExitCode::modelUnusable);
            // On a thread of its own, if one can be had: the runtime takes longer.
            auto digest = std::async([text = bytes.text] { return Digest().add(text.data(), text.size()).text(); });
            ModelOptions options;
            if (!_choice.provider.empty()) options.providers = {_choice.provider};
            options.threads = _choice.threads;
            const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.text.data());
            Model model({data, bytes.text.size(), &_key}, options);
            _loaded.record.push_back({{"name", _files.back()}, {"digest", digest.get()}});
            _loaded.provider = model.info().provider;
            for (const std::string& reason : model.info().notUsed) {
                if (!_choice.provider.empty())
                    say("warning: " + file.string() + ": " + _loaded.provider + " runs it, not " + reason);
            }
            return model;
        } catch (const std::invalid_argument& reason) {
            throw Failure(ExitCode::wrongUsage, std::string("--device, --threads: ") + reason.what());
        } catch (...) {
            throw currentFailure(file.string());
        }
    }

    const ModelChoice& _choice;
    const std::string _key = _choice.keyFile.empty() ? "" : readKey(_choice.keyFile);
    Names _known;
    Names _files;  // without endings
    LoadedModels _loaded;
};

}  // namespace

LoadedModels loadModels(const ModelChoice& choice) { return Loader(choice).load(); }

}  // namespace tavrin::tool
