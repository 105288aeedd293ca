#include "tavrin/separator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

#include "api/model.h"
#include "dsp/window.h"
#include "pipeline/stream_engine.h"

namespace tavrin {

namespace {

constexpr const char* kRest = "rest";

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// The position of a name. @throws std::invalid_argument that names what there is.
size_t positionOf(const std::string& stem, const std::vector<std::string>& stems, const char* whose) {
    const auto found = std::find(stems.begin(), stems.end(), stem);
    if (found == stems.end())
        throw std::invalid_argument("there is no stem '" + stem + "'; " + whose + " has " + joined(stems));
    return static_cast<size_t>(found - stems.begin());
}

std::vector<StreamPlan::Stem> stemsOf(const ModelInfo& model, const SeparatorConfig& config) {
    std::vector<StreamPlan::Stem> stems;
    for (const std::string& name : config.stems.empty() ? model.stems : config.stems) {
        for (const StreamPlan::Stem& earlier : stems)
            if (earlier.name == name) throw std::invalid_argument("the stem '" + name + "' is wanted twice");
        stems.push_back({name, positionOf(name, model.stems, "the model")});
    }
    return stems;
}

std::vector<float> windowOf(const ModelInfo& model) {
    const auto length = static_cast<int>(model.frameLength);
    return model.window == "hann" ? periodicHannWindow(length) : getWindow(WindowType::Blackman, length);
}

std::string secondsOf(double samples, const ModelInfo& model) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", std::ceil(samples * 1000.0 / model.sampleRate) / 1000.0);
    std::replace(text, text + sizeof text, ',', '.');  // a host's locale is not ours
    return text;
}

size_t contextOf(const ModelInfo& model, const SeparatorConfig& config) {
    const size_t context = config.context > 0 ? config.context : model.context;
    const size_t largest = (model.frames - 1) / 2;
    if (context > largest)
        throw std::invalid_argument("a context of " + std::to_string(context) + " frames leaves none of the model's " +
                                    std::to_string(model.frames) + " to use; the largest is " +
                                    std::to_string(largest));
    return context;
}

StreamPlan planOf(const ModelInfo& model, const SeparatorConfig& config) {
    StreamPlan plan;
    plan.hop = model.hop;
    plan.frames = model.frames;
    plan.bins = model.bins;
    plan.context = contextOf(model, config);
    plan.step = plan.frames - 2 * plan.context;
    plan.window = windowOf(model);
    plan.modelOutputs = model.stems.size();
    plan.stems = stemsOf(model, config);
    plan.rest = config.rest;
    plan.sampleRate = model.sampleRate;
    if (!std::isfinite(config.latency) || config.latency < 0.0)
        throw std::invalid_argument("a latency must be a number of seconds, 0 or more");
    if (config.latency == 0.0) return plan;

    // The largest step that keeps the wanted latency.
    const size_t largest = plan.step;
    plan.step = 1;
    const double wanted = config.latency * model.sampleRate, least = static_cast<double>(plan.latency());
    if (wanted < least)
        throw std::invalid_argument("a latency of " + secondsOf(wanted, model) + " s cannot be kept; the least is " +
                                    secondsOf(least, model) + " s with this model and a context of " +
                                    std::to_string(plan.context));
    const double more = std::floor((wanted - least) / static_cast<double>(plan.hop));
    plan.step += static_cast<size_t>(std::min(more, static_cast<double>(largest - 1)));
    return plan;
}

}  // namespace

class Separator::Impl {
public:
    Impl(std::shared_ptr<Model::Impl> model, const SeparatorConfig& config, StreamPlan plan)
        : _model(std::move(model)),
          _interleaved(config.layout == Layout::interleaved),
          _latency(plan.latency()),
          _step(plan.step),
          _targets(plan.outputs()),
          _pointers(plan.outputs() * (_interleaved ? 1 : 2)),
          _engine(_model->spectral(), plan) {
        for (const StreamPlan::Stem& stem : plan.stems) _stems.push_back(stem.name);
        _outputs = _stems;
        if (plan.rest) _outputs.emplace_back(kRest);
    }

    const std::vector<std::string>& outputs() const { return _outputs; }
    size_t latency() const { return _latency; }
    size_t step() const { return _step; }
    size_t outputFor(size_t samples) const { return _state == State::open ? _engine.outputFor(samples) : 0; }
    size_t pending() const { return _state == State::open ? _engine.pending() : 0; }

    size_t process(const float* const* input, size_t samples, float* const* outputs, size_t capacity) {
        requireOpen();
        const size_t finished = _engine.outputFor(samples);
        const StreamEngine::Output* targets = targetsFor(outputs, finished, capacity);
        StreamEngine::Input in{};
        if (samples > 0) {
            if (!input || !input[0] || (!_interleaved && !input[1]))
                throw std::invalid_argument("the input is a null pointer");
            if (_interleaved)
                in = {input[0], input[0] + 1, 2};
            else
                in = {input[0], input[1], 1};
        }
        carryOut(finished, State::open, [&] { _engine.process(in, samples, targets); });
        return finished;
    }

    size_t finish(float* const* outputs, size_t capacity) {
        requireOpen();
        const size_t finished = _engine.pending();
        const StreamEngine::Output* targets = targetsFor(outputs, finished, capacity);
        carryOut(finished, State::finished, [&] { _engine.finish(targets); });
        return finished;
    }

    std::vector<std::vector<float>> process(const std::vector<float>& samples, bool last) {
        requireOpen();
        const size_t n = samples.size() / 2;
        if (samples.size() % 2 != 0)
            throw std::invalid_argument("an input of " + std::to_string(samples.size()) +
                                        " values cannot be split into two channels of equal length");
        const size_t finished = last ? _engine.pending() : _engine.outputFor(n);
        _state = State::failed;  // should memory run out
        std::vector<std::vector<float>> results(_outputs.size(), std::vector<float>(2 * finished));
        _state = State::open;
        for (size_t o = 0; o < results.size(); ++o) {
            float* out = results[o].data();
            if (_interleaved) {
                _pointers[o] = out;
            } else {
                _pointers[2 * o] = out;
                _pointers[2 * o + 1] = out + finished;
            }
        }
        const float* const input[] = {samples.data(), samples.data() + n};
        if (last)
            finish(_pointers.data(), finished);
        else
            process(input, n, _pointers.data(), finished);
        return results;
    }

    void select(const std::vector<std::string>& stems) {
        std::vector<bool> wanted(_stems.size());
        for (const std::string& stem : stems) wanted[positionOf(stem, _stems, "this separator")] = true;
        _engine.select(wanted);
    }

    void reset() {
        _engine.reset();
        _state = State::open;
    }

private:
    enum class State { open, finished, failed };

    void requireOpen() const {
        if (_state == State::finished) throw std::logic_error("the stream has ended; reset() starts a new one");
        if (_state == State::failed) throw std::logic_error("the stream has failed; reset() starts a new one");
    }

    const StreamEngine::Output* targetsFor(float* const* outputs, size_t finished, size_t capacity) {
        if (capacity < finished)
            throw std::invalid_argument("the outputs have room for " + std::to_string(capacity) +
                                        " samples; this call gives " + std::to_string(finished));
        if (finished > 0 && !outputs) throw std::invalid_argument("the list of outputs is a null pointer");
        for (size_t o = 0; finished > 0 && o < _targets.size(); ++o) {
            if (_interleaved)
                _targets[o] = {outputs[o], outputs[o] ? outputs[o] + 1 : nullptr, 2};
            else
                _targets[o] = {outputs[2 * o], outputs[2 * o + 1], 1};
            if (!_targets[o].left != !_targets[o].right)
                throw std::invalid_argument("one channel of '" + _outputs[o] + "' is a null pointer, the other is not");
        }
        return _targets.data();
    }

    // Runs the engine; what it had already written is silenced when it fails.
    template <class Action>
    void carryOut(size_t finished, State afterwards, const Action& action) {
        _state = State::failed;
        try {
            action();
        } catch (...) {
            for (size_t o = 0; finished > 0 && o < _targets.size(); ++o)
                for (size_t i = 0; _targets[o].left && i < finished; ++i)
                    _targets[o].left[i * _targets[o].step] = _targets[o].right[i * _targets[o].step] = 0.0f;
            throw;
        }
        _state = afterwards;
    }

    std::shared_ptr<Model::Impl> _model;
    bool _interleaved;
    size_t _latency;
    size_t _step;
    std::vector<std::string> _stems;
    std::vector<std::string> _outputs;           // and the rest
    std::vector<StreamEngine::Output> _targets;  // of the present call
    std::vector<float*> _pointers;               // into the vectors of the present call
    StreamEngine _engine;
    State _state = State::open;
};

Separator::Separator(const Model& model, const SeparatorConfig& config)
    : _impl(std::make_unique<Impl>(model._impl, config, planOf(model.info(), config))) {}
Separator::~Separator() = default;
Separator::Separator(Separator&&) noexcept = default;
Separator& Separator::operator=(Separator&&) noexcept = default;

const std::vector<std::string>& Separator::outputs() const noexcept { return _impl->outputs(); }

std::size_t Separator::latency() const noexcept { return _impl->latency(); }

std::size_t Separator::step() const noexcept { return _impl->step(); }

std::size_t Separator::outputFor(std::size_t samples) const noexcept { return _impl->outputFor(samples); }

std::size_t Separator::pending() const noexcept { return _impl->pending(); }

std::size_t Separator::process(const float* const* input, std::size_t samples, float* const* outputs,
                               std::size_t capacity) {
    return _impl->process(input, samples, outputs, capacity);
}

std::size_t Separator::finish(float* const* outputs, std::size_t capacity) { return _impl->finish(outputs, capacity); }

std::vector<std::vector<float>> Separator::process(const std::vector<float>& samples) {
    return _impl->process(samples, false);
}

std::vector<std::vector<float>> Separator::finish() { return _impl->process({}, true); }

void Separator::select(const std::vector<std::string>& stems) { _impl->select(stems); }

void Separator::reset() { _impl->reset(); }

std::vector<std::vector<float>> separate(const Model& model, const std::vector<float>& samples,
                                         const SeparatorConfig& config) {
    Separator separator(model, config);
    std::vector<std::vector<float>> results = separator.process(samples);
    const std::vector<std::vector<float>> rest = separator.finish();
    for (size_t o = 0; o < results.size(); ++o) {
        std::vector<float>& whole = results[o];
        const auto half = static_cast<ptrdiff_t>(config.layout == Layout::planar ? whole.size() / 2 : whole.size());
        const auto restHalf = static_cast<ptrdiff_t>(config.layout == Layout::planar ? rest[o].size() / 2 : 0);
        whole.insert(whole.begin() + half, rest[o].begin(), rest[o].begin() + restHalf);
        whole.insert(whole.end(), rest[o].begin() + restHalf, rest[o].end());
    }
    return results;
}

}  // namespace tavrin
