#include "tavrin/multi_stem_separator.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "api/engine.h"
#include "api/host_exceptions.h"
#include "api/logging.h"
#include "api/multi_stem_stream.h"
#include "api/plain_bytes.h"
#include "inference/inference_onnx.h"
#include "inference/model_contract.h"
#include "inference/runtime.h"
#include "pipeline/stream_cutter.h"

namespace tavrin {

namespace {

static_assert(kStemCount == kStemNames.size());

std::vector<bool> selection(const std::vector<Stem>& stems) {
    std::vector<bool> wanted(kStemCount);
    for (const Stem stem : stems) {
        const auto index = static_cast<size_t>(stem);
        if (index >= kStemCount) throw std::invalid_argument("there is no stem " + std::to_string(index));
        wanted[index] = true;
    }
    return wanted;
}

std::vector<std::string> outputNames() {
    std::vector<std::string> names;
    names.reserve(kStemCount);
    for (const StemNames& stem : kStemNames) names.emplace_back(stem.output);
    return names;
}

}  // namespace

class MultiStemModel::Impl {
public:
    Impl(const ModelData& model, const std::string& provider) {
        setUpLogging();
        const PlainBytes bytes(model);
        _inference = InferenceONNX::createMultiStem(bytes.data(), bytes.size(), {}, outputNames(), provider);
    }

    // Flags and run are one piece of state, so that streams on several threads take turns.
    bool run(const std::vector<bool>& wanted, const float* input, std::vector<float*> outputs, const Shape& shape) {
        const std::lock_guard lock(_turn);
        InferenceONNX::setStemFlags(_inference, {wanted[0], wanted[1], wanted[2], wanted[3], wanted[4], wanted[5]});
        return _inference->run(input, std::move(outputs), shape);
    }

private:
    std::shared_ptr<IInference> _inference;
    std::mutex _turn;
};

MultiStemModel::MultiStemModel(const ModelData& model, const std::string& provider)
    : _impl(withHostExceptions([&] { return std::make_shared<Impl>(model, provider); })) {}
MultiStemModel::~MultiStemModel() = default;
MultiStemModel::MultiStemModel(const MultiStemModel&) = default;
MultiStemModel& MultiStemModel::operator=(const MultiStemModel&) = default;

class MultiStemSeparator::Impl {
public:
    Impl(std::shared_ptr<MultiStemModel::Impl> model, const MultiStemConfig& config)
        : _view(std::make_shared<StreamsView>(std::move(model), selection(config.stems))),
          _stream(_view, config.rest, config.interleaved) {}

    void selectStems(const std::vector<Stem>& stems) { _view->wanted = selection(stems); }

    SeparatedStems process(const std::vector<float>& samples, bool last) {
        return _stream.process(samples, last, _view->wanted);
    }

    void reset() { _stream.reset(); }

private:
    /// The shared model as one stream sees it: with this stream's choice of stems.
    struct StreamsView : IInference {
        StreamsView(std::shared_ptr<MultiStemModel::Impl> shared, std::vector<bool> stems)
            : model(std::move(shared)), wanted(std::move(stems)) {}

        bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override {
            return model->run(wanted, input, std::move(outputs), shape);
        }

        std::shared_ptr<MultiStemModel::Impl> model;
        std::vector<bool> wanted;
    };

    std::shared_ptr<StreamsView> _view;
    MultiStemStream _stream;
};

MultiStemSeparator::MultiStemSeparator(const MultiStemModel& model, MultiStemConfig config)
    : _impl(std::make_unique<Impl>(model._impl, config)) {}
MultiStemSeparator::~MultiStemSeparator() = default;
MultiStemSeparator::MultiStemSeparator(MultiStemSeparator&&) noexcept = default;
MultiStemSeparator& MultiStemSeparator::operator=(MultiStemSeparator&&) noexcept = default;

void MultiStemSeparator::selectStems(const std::vector<Stem>& stems) { _impl->selectStems(stems); }

SeparatedStems MultiStemSeparator::process(const std::vector<float>& samples) { return _impl->process(samples, false); }

SeparatedStems MultiStemSeparator::finish() { return _impl->process({}, true); }

void MultiStemSeparator::reset() { _impl->reset(); }

std::size_t MultiStemSeparator::latency() noexcept {
    return StreamCutter::latency(Geometry::kFrameLength, Geometry::kHop, Geometry::kFrames);
}

}  // namespace tavrin
