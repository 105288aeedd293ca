#include "stems/separation.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "audio/resampler.h"

namespace tavrin::tool {

namespace {

void append(std::vector<float>& to, const std::vector<float>& samples) {
    to.insert(to.end(), samples.begin(), samples.end());
}

std::vector<float> takeFront(std::vector<float>& from, std::size_t count) {
    const auto end = from.begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<float> front(from.begin(), end);
    from.erase(from.begin(), end);
    return front;
}

std::size_t placeOf(const std::string& name, const std::vector<std::string>& names) {
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

// A model at work at its own rate, heard from outside at the song's.
class ModelStream {
public:
    ModelStream(const Model& model, const SeparatorConfig& config, int songRate)
        : _separator(model, config), _toModel(songRate, static_cast<int>(model.info().sampleRate)) {
        for (std::size_t stem = 0; stem < config.stems.size(); ++stem)
            _toSong.emplace_back(static_cast<int>(model.info().sampleRate), songRate);
    }

    Parts run(const std::vector<float>& song, bool isEnd) {
        _taken += static_cast<std::int64_t>(song.size() / 2);
        std::vector<float> samples = _toModel.process(song);
        if (isEnd) append(samples, _toModel.finish());
        Parts stems = _separator.process(samples);
        const Parts last = isEnd ? _separator.finish() : Parts(stems.size());
        for (std::size_t s = 0; s < stems.size(); ++s) {
            append(stems[s], last[s]);
            stems[s] = _toSong[s].process(std::move(stems[s]));
            if (isEnd) append(stems[s], _toSong[s].finish(_taken));
        }
        return stems;
    }

private:
    Separator _separator;
    Resampler _toModel;
    std::vector<Resampler> _toSong;  // one per stem
    std::int64_t _taken = 0;         // samples per channel
};

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
            SeparatorConfig config;
            config.latency = stage.latency;
            config.context = stage.context;
            std::vector<Lane> lanes;
            for (const std::string& stem : stage.stems) {
                if (placeOf(stem, model.info().stems) == model.info().stems.size()) continue;
                config.stems.push_back(stem);
                lanes.push_back({placeOf(stem, stage.stems), {}});
            }
            if (config.stems.empty()) continue;
            _streams.emplace_back(model, config, songRate);
            _lanes.push_back(std::move(lanes));
        }
    }

    Parts run(const std::vector<float>& song, bool isEnd) {
        append(_song, song);
        std::size_t ready = _song.size();
        for (std::size_t i = 0; i < _streams.size(); ++i) {
            const Parts stems = _streams[i].run(song, isEnd);
            for (std::size_t s = 0; s < stems.size(); ++s) {
                append(_lanes[i][s].waiting, stems[s]);
                ready = std::min(ready, _lanes[i][s].waiting.size());
            }
        }
        return take(ready);
    }

private:
    struct Lane {
        std::size_t stem;  // its place among the stage's
        std::vector<float> waiting;
    };

    Parts take(std::size_t count) {
        Parts parts(_stems, std::vector<float>(count));
        std::vector<float> models(_stems);  // that have the stem
        for (std::vector<Lane>& stream : _lanes) {
            for (Lane& lane : stream) {
                ++models[lane.stem];
                const std::vector<float> samples = takeFront(lane.waiting, count);
                for (std::size_t i = 0; i < count; ++i) parts[lane.stem][i] += samples[i];
            }
        }
        std::vector<float> rest = takeFront(_song, count);
        for (std::size_t stem = 0; stem < _stems; ++stem) {
            for (std::size_t i = 0; i < count; ++i) rest[i] -= parts[stem][i] /= models[stem];
        }
        parts.push_back(std::move(rest));
        return parts;
    }

    std::size_t _stems;
    std::vector<ModelStream> _streams;
    std::vector<std::vector<Lane>> _lanes;  // of every stream's stems
    std::vector<float> _song;               // from the first sample whose stems are not known yet
};

Separation::Separation(const std::vector<Stage>& stages, int songRate) {
    for (const Stage& stage : stages) _steps.push_back(std::make_unique<Step>(stage, songRate));
}

Separation::~Separation() = default;

Parts Separation::process(const std::vector<float>& song) { return run(song, false); }

Parts Separation::finish() { return run({}, true); }

Parts Separation::run(std::vector<float> song, bool isEnd) {
    Parts last;  // of the stage that ran last: its stems and the rest
    std::size_t stem = 0;
    for (const std::unique_ptr<Step>& step : _steps) {
        for (std::size_t s = 0; s + 1 < last.size(); ++s, ++stem) {
            _waiting.resize(std::max(_waiting.size(), stem + 1));
            append(_waiting[stem], last[s]);
        }
        last = step->run(song, isEnd);
        song = last.back();
    }
    Parts parts;
    for (std::vector<float>& waiting : _waiting) parts.push_back(takeFront(waiting, song.size()));
    std::move(last.begin(), last.end(), std::back_inserter(parts));
    _done += static_cast<std::int64_t>(song.size() / 2);
    return parts;
}

}  // namespace tavrin::tool
