#include "api/model.h"

#include <stdexcept>
#include <utility>

#include "api/host_exceptions.h"
#include "api/plain_bytes.h"
#include "inference/onnx_model.h"

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
std::unique_ptr<OnnxModel> load(const PlainBytes& bytes, const ModelOptions& options) {
    return std::make_unique<OnnxModel>(bytes.data(), bytes.size(),
                                       ProviderWish{options.providers, options.strict, options.threads});
}

const ModelData& required(const ModelData& model) {
    if (!model.data) throw std::invalid_argument("model data is null");
    return model;
}

}  // namespace

Model::Impl::Impl(const ModelData& model, const ModelOptions& options) {
    std::unique_ptr<OnnxModel> loaded = load(PlainBytes(required(model)), options);
    _info = infoOf(*loaded);
    _model = std::move(loaded);
}

Model::Impl::Impl(std::unique_ptr<ISpectralModel> model, ModelInfo info)
    : _model(std::move(model)), _info(std::move(info)) {}

Model ModelAccess::handleOf(std::unique_ptr<ISpectralModel> model, ModelInfo info) {
    return Model(std::make_shared<Model::Impl>(std::move(model), std::move(info)), Model::Made{});
}

Model::Model(const ModelData& model, const ModelOptions& options)
    : _impl(withHostExceptions([&] { return std::make_shared<Impl>(model, options); })) {}
Model::Model(std::shared_ptr<Impl> impl, Made) : _impl(std::move(impl)) {}
Model::~Model() = default;
Model::Model(const Model&) = default;
Model& Model::operator=(const Model&) = default;

const ModelInfo& Model::info() const noexcept { return _impl->info(); }

std::vector<std::string> availableProviders() {
    return withHostExceptions([] { return offeredProviders(); });
}

}  // namespace tavrin
