#include "stem_stream.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "failure.h"
#include "messages.h"
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

std::unique_ptr<StemStream> openStemStream(const Options& options) {
    const LogLines& log = LogLines::install(options.verbosity);
    std::ifstream file(options.model, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    if (bytes.empty()) {
        throw Failure(ExitCode::modelUnusable,
                      options.model.string() + ": cannot be read as a model; name an ONNX file with --model");
    }
    ModelData model;
    model.data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    model.size = bytes.size();
    model.key = &options.key;
    try {
        if (!options.stems.empty())
            return std::make_unique<MultiStemStream>(MultiStemModel(model, options.provider), options.stems);
        if (!initializeModel(modelTag, model)) throw std::runtime_error(log.lastError());
        return std::make_unique<SingleStemStream>();
    } catch (const std::runtime_error& reason) {
        throw Failure(ExitCode::modelUnusable,
                      options.model.string() + ": is not a usable model (" + reason.what() +
                          "); name another with --model (a scrambled one needs its --key, a multi-stem one --stems)");
    }
}

}  // namespace tavrin::tool
