#include <cstdint>
#include <string>
#include <vector>

#include "api/c_call.h"
#include "api/c_models.h"
#include "api/c_stream_state.h"
#include "tavrin/multi_stem_separator.h"
#include "tavrin/tavrin_c.h"

static_assert(TAVRIN_STEM_COUNT == tavrin::kStemCount && TAVRIN_REST == TAVRIN_STEM_COUNT);
static_assert(TAVRIN_ELECTRIC_GUITAR == static_cast<int>(tavrin::Stem::electricGuitar));

namespace {

// A set has a bit for each of its members.
bool contains(uint32_t set, size_t member) { return (set >> member & 1U) != 0; }

std::vector<tavrin::Stem> stemsOf(uint32_t set) {
    if (set >> TAVRIN_STEM_COUNT != 0)
        throw Refusal(TAVRIN_INVALID_ARGUMENT, "the set of stems is " + std::to_string(set) +
                                                   "; it can have the bits 0 to 5, one for each stem");
    std::vector<tavrin::Stem> stems;
    for (size_t stem = 0; stem < TAVRIN_STEM_COUNT; ++stem)
        if (contains(set, stem)) stems.push_back(static_cast<tavrin::Stem>(stem));
    return stems;
}

}  // namespace

struct tavrin_multi_model {
    tavrin::MultiStemModel model;
};

struct tavrin_multi_stream {
    tavrin_multi_stream(const tavrin::MultiStemModel& model, const tavrin_multi_stream_config& config)
        : separator(model, {stemsOf(config.stems), config.rest != 0, config.planar == 0}),
          state(config.planar != 0),
          hasRest(config.rest != 0),
          selected(config.stems) {}

    // Refuses outputs in which samples would have no place.
    void requireOutputs(float* const* outputs) const {
        required(outputs, "outputs");
        for (size_t stem = 0; stem < TAVRIN_STEM_COUNT; ++stem)
            if (!outputs[stem] && contains(selected | sounding, stem))
                throw Refusal(TAVRIN_INVALID_ARGUMENT,
                              "outputs[" + std::to_string(stem) + "] is NULL, but this stem is on or still fades out");
        if ((outputs[TAVRIN_REST] != nullptr) != hasRest)
            throw Refusal(TAVRIN_INVALID_ARGUMENT, hasRest
                                                       ? "outputs[TAVRIN_REST] is NULL, but the rest is wanted"
                                                       : "outputs[TAVRIN_REST] is not NULL, but config->rest was 0");
    }

    tavrin::MultiStemSeparator separator;
    CStreamState state;
    bool hasRest;
    uint32_t selected;
    uint32_t sounding = 0;  // the stems that were on in the last model call: what is switched off since fades out
};

namespace {

tavrin_status separate(tavrin_multi_stream* stream, const float* input, size_t samples, bool last,
                       float* const* outputs, size_t capacity, size_t* written) {
    return guarded(TAVRIN_RUN_FAILED, [&] {
        required(written, "written") = 0;
        CStreamState& state = required(stream, "stream").state;
        if (samples > 0) required(input, "input");
        if (capacity > 0) stream->requireOutputs(outputs);
        state.admit(samples, capacity);
        *written = state.carryOut(samples, last, [&] {
            const tavrin::SeparatedStems result =
                last ? stream->separator.finish() : stream->separator.process({input, input + 2 * samples});
            if (result.samples == 0) return result.samples;
            for (size_t stem = 0; stem < TAVRIN_STEM_COUNT; ++stem)
                if (outputs[stem]) state.write(result.stems[stem], result.samples, outputs[stem], capacity);
            if (outputs[TAVRIN_REST]) state.write(result.rest, result.samples, outputs[TAVRIN_REST], capacity);
            stream->sounding = stream->selected;
            return result.samples;
        });
    });
}

}  // namespace

tavrin_status tavrin_multi_model_create(const void* data, size_t size, const void* key, size_t key_size,
                                        const char* provider, tavrin_multi_model** model) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        required(model, "model") = nullptr;
        const CModelData bytes(data, size, key, key_size);
        *model = new tavrin_multi_model{tavrin::MultiStemModel(bytes.view(), provider ? provider : "")};
    });
}

void tavrin_multi_model_destroy(tavrin_multi_model* model) { delete model; }

tavrin_status tavrin_multi_stream_create(const tavrin_multi_model* model, const tavrin_multi_stream_config* config,
                                         tavrin_multi_stream** stream) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        required(stream, "stream") = nullptr;
        requireKnownFields(config, required(config, "config").struct_size, sizeof *config);
        *stream = new tavrin_multi_stream(required(model, "model").model, *config);
    });
}

void tavrin_multi_stream_destroy(tavrin_multi_stream* stream) { delete stream; }

tavrin_status tavrin_multi_stream_select(tavrin_multi_stream* stream, uint32_t stems) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] {
        required(stream, "stream").separator.selectStems(stemsOf(stems));
        stream->selected = stems;
    });
}

tavrin_status tavrin_multi_stream_capacity(const tavrin_multi_stream* stream, size_t samples, size_t* capacity) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] {
        required(capacity, "capacity") = 0;
        *capacity = required(stream, "stream").state.capacityFor(samples);
    });
}

tavrin_status tavrin_multi_stream_process(tavrin_multi_stream* stream, const float* input, size_t samples,
                                          float* const* outputs, size_t capacity, size_t* written) {
    return separate(stream, input, samples, false, outputs, capacity, written);
}

tavrin_status tavrin_multi_stream_finish(tavrin_multi_stream* stream, float* const* outputs, size_t capacity,
                                         size_t* written) {
    return separate(stream, nullptr, 0, true, outputs, capacity, written);
}

tavrin_status tavrin_multi_stream_reset(tavrin_multi_stream* stream) {
    return guarded(TAVRIN_RUN_FAILED, [&] {
        required(stream, "stream").state.reset([&] { stream->separator.reset(); });
        stream->sounding = 0;
    });
}
