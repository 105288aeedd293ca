#include "stems/separation.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "audio/resampler.h"

namespace tavrin::tool {

namespace {

void append(std::vector<float>& to, std::vector<float> samples) {
    if (to.empty()) return to.swap(samples);
    to.insert(to.end(), samples.begin(), samples.end());
}

std::vector<float> takeFront(std::vector<float>& from, std::size_t count) {
    if (count == 0) return {};
    std::vector<float> behind(from.begin() + static_cast<std::ptrdiff_t>(count), from.end());
    from.resize(count);
    return std::exchange(from, std::move(behind));
}

std::size_t placeOf(const std::string& name, const std::vector<std::string>& names) {
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

}  // namespace

std::vector<std::string> stemsOf(const std::vector<Model>& models) {
    std::vector<std::string> names;
    for (const Model& model : models) {
        for (const std::string& stem : model.info().stems) {
            if (placeOf(stem, names) == names.size()) names.push_back(stem);
        }
    }
    return names;
}

// One stage at work: song in, its stems and the rest out.
class Separation::Step {
public:
    Step(const Stage& stage, int songRate) : _stems(stage.stems.size()) {
        for (const Model& model : stage.models) {
            const int modelRate = static_cast<int>(model.info().sampleRate);
            SeparatorConfig config;
            config.latency = stage.latency;
            config.context = stage.context;
            std::vector<Lane> lanes;
            for (std::size_t stem = 0; stem < _stems; ++stem) {
                if (placeOf(stage.stems[stem], model.info().stems) == model.info().stems.size()) continue;
                config.stems.push_back(stage.stems[stem]);
                lanes.push_back({stem, {modelRate, songRate}, {}});
            }
            if (lanes.empty()) continue;
            _streams.push_back({Separator(model, config), {songRate, modelRate}, std::move(lanes)});
        }
    }

    Parts run(std::vector<float> song, bool isEnd) {
        _taken += static_cast<std::int64_t>(song.size() / 2);
        std::size_t ready = _song.size() + song.size();
        for (auto& [separator, toModel, lanes] : _streams) {
            std::vector<float> samples = toModel.process(song);
            if (isEnd) append(samples, toModel.finish());
            Parts stems = separator.process(samples);
            Parts last = isEnd ? separator.finish() : Parts(stems.size());
            for (std::size_t s = 0; s < stems.size(); ++s) {
                append(stems[s], std::move(last[s]));
                append(lanes[s].waiting, lanes[s].toSong.process(std::move(stems[s])));
                if (isEnd) append(lanes[s].waiting, lanes[s].toSong.finish(_taken));
                ready = std::min(ready, lanes[s].waiting.size());
            }
        }
        append(_song, std::move(song));
        return take(ready);
    }

private:
    struct Lane {
        std::size_t stem;  // its place among the stage's
        Resampler toSong;
        std::vector<float> waiting;
    };

    // A model at its own rate.
    struct Stream {
        Separator separator;
        Resampler toModel;
        std::vector<Lane> lanes;  // of its stems
    };

    Parts take(std::size_t count) {
        Parts parts(_stems);
        std::vector<float> models(_stems);  // that have the stem
        for (Stream& stream : _streams) {
            for (Lane& lane : stream.lanes) {
                std::vector<float> samples = takeFront(lane.waiting, count);
                std::vector<float>& sum = parts[lane.stem];
                if (++models[lane.stem] > 1)
                    std::transform(samples.begin(), samples.end(), sum.begin(), samples.begin(), std::plus());
                sum.swap(samples);
            }
        }
        std::vector<float> rest = takeFront(_song, count);
        for (std::size_t stem = 0; stem < _stems; ++stem) {
            if (models[stem] > 1)
                for (float& sample : parts[stem]) sample /= models[stem];
            std::transform(rest.begin(), rest.end(), parts[stem].begin(), rest.begin(), std::minus());
        }
        parts.push_back(std::move(rest));
        return parts;
    }

    std::size_t _stems;
    std::vector<Stream> _streams;
    std::vector<float> _song;  // from the first sample whose stems are not known yet
    std::int64_t _taken = 0;   // samples per channel
};

Separation::Separation(const std::vector<Stage>& stages, int songRate) {
    for (const Stage& stage : stages) _steps.push_back(std::make_unique<Step>(stage, songRate));
}

Separation::~Separation() = default;

Parts Separation::process(std::vector<float> song, bool isEnd) {
    std::size_t known = 0;  // stems of the stages so far
    for (const std::unique_ptr<Step>& step : _steps) {
        Parts parts = step->run(std::move(song), isEnd);
        song = std::move(parts.back());
        parts.pop_back();
        _waiting.resize(std::max(_waiting.size(), known + parts.size()));
        for (std::vector<float>& stem : parts) append(_waiting[known++], std::move(stem));
    }
    Parts parts;
    for (std::vector<float>& waiting : _waiting) parts.push_back(takeFront(waiting, song.size()));
    parts.push_back(std::move(song));
    return parts;
}

}  // namespace tavrin::tool
