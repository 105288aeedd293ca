#include "api/model.h"

#include <stdexcept>

#include "api/host_exceptions.h"
#include "api/plain_bytes.h"

namespace tavrin {

namespace {

ModelInfo infoOf(const OnnxModel& model) {
    const ModelFacts& facts = model.facts();
    ModelInfo info;
    info.stems = facts.stems;
    info.sampleRate = facts.sampleRate;
    info.frameLength = facts.frameLength;
    info.hop = facts.hop;
    info.window = facts.window;
    info.frames = facts.frames;
    info.bins = facts.bins;
    info.context = facts.context;
    info.title = facts.title;
    info.licence = facts.licence;
    info.source = facts.source;
    info.provider = model.provider();
    info.notUsed = model.notUsed();
    return info;
}

// The bytes are needed while the model is made; a full expression keeps them as long.
OnnxModel load(const PlainBytes& bytes, const ModelOptions& options) {
    return OnnxModel(bytes.data(), bytes.size(), {options.providers, options.strict, options.threads});
}

const ModelData& required(const ModelData& model) {
    if (!model.data) throw std::invalid_argument("model data is null");
    return model;
}

}  // namespace

Model::Impl::Impl(const ModelData& model, const ModelOptions& options)
    : _model(load(PlainBytes(required(model)), options)), _info(infoOf(_model)) {}

Model::Model(const ModelData& model, const ModelOptions& options)
    : _impl(withHostExceptions([&] { return std::make_shared<Impl>(model, options); })) {}
Model::~Model() = default;
Model::Model(const Model&) = default;
Model& Model::operator=(const Model&) = default;

const ModelInfo& Model::info() const noexcept { return _impl->info(); }

std::vector<std::string> availableProviders() {
    return withHostExceptions([] { return offeredProviders(); });
}

}  // namespace tavrin
