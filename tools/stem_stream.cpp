#include "stem_stream.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "failure.h"
#include "log_lines.h"
#include "providers.h"
#include "tavrin/multi_stem_separator.h"
#include "tavrin/stream_separator.h"

namespace tavrin::tool {

namespace {

constexpr const char* modelTag = "model";

class SingleStemStream final : public StemStream {
public:
    std::size_t stems() const override { return 1; }
    Parts process(const std::vector<float>& samples) override { return {_separator.process(samples)}; }
    Parts finish() override { return {_separator.finish()}; }

private:
    static TavrinProcConfig config() {
        TavrinProcConfig config;
        config.modelTag = modelTag;
        return config;
    }

    StreamSeparator _separator{config()};
};

class MultiStemStream final : public StemStream {
public:
    MultiStemStream(const MultiStemModel& model, std::vector<Stem> wanted)
        : _wanted(std::move(wanted)), _separator(model, config(_wanted)) {}

    std::size_t stems() const override { return _wanted.size(); }
    Parts process(const std::vector<float>& samples) override { return pick(_separator.process(samples)); }
    Parts finish() override { return pick(_separator.finish()); }

private:
    static MultiStemConfig config(const std::vector<Stem>& wanted) {
        MultiStemConfig config;
        config.stems = wanted;
        return config;
    }

    Parts pick(SeparatedStems all) const {
        Parts parts;
        for (const Stem stem : _wanted) parts.push_back(std::move(all.stems[static_cast<std::size_t>(stem)]));
        return parts;
    }

    std::vector<Stem> _wanted;
    MultiStemSeparator _separator;
};

}  // namespace

Model::Model(const Options& options) : _stems(options.stems) {
    if (!options.provider.empty()) requireOffered(options.provider);
    const LogLines& log = LogLines::install(options.verbosity);
    try {
        load(options);
        openStream();  // refuses a model with other inputs and outputs
    } catch (const std::runtime_error& reason) {
        // The registry leaves the reason to the log.
        const std::string why = *reason.what() ? reason.what() : log.lastError();
        throw Failure(ExitCode::modelUnusable,
                      options.model.string() + ": is not a usable model (" + why +
                          "); name another with --model (a scrambled one needs its --key, a multi-stem one --stems)");
    }
    _provider = log.provider();
}

void Model::load(const Options& options) {
    std::ifstream file(options.model, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    if (bytes.empty()) throw std::runtime_error("there is no such file, or nothing in it");
    ModelData model;
    model.data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    model.size = bytes.size();
    model.key = &options.key;
    if (!_stems.empty()) {
        _multiStem.emplace(model, options.provider);
    } else if (!initializeModel(modelTag, model, options.provider)) {
        throw std::runtime_error("");
    }
}

std::unique_ptr<StemStream> Model::openStream() const {
    const std::lock_guard lock(_turn);
    if (_multiStem) return std::make_unique<MultiStemStream>(*_multiStem, _stems);
    return std::make_unique<SingleStemStream>();
}

}  // namespace tavrin::tool
