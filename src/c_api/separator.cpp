#include "tavrin/separator.h"

#include <cstdint>
#include <string>

#include "c_api/call.h"
#include "c_api/model.h"
#include "tavrin/tavrin_c.h"

using tavrin::c_api::guarded;
using tavrin::c_api::required;

struct tavrin_separator {
    tavrin::Separator separator;
    bool planar;
};

namespace {

constexpr size_t kMostSamples = PTRDIFF_MAX / (2 * sizeof(float));  // that memory can hold

void requireInput(const float* const* input, size_t samples, bool planar) {
    if (samples > kMostSamples)
        throw std::invalid_argument(std::to_string(samples) + " samples are more than memory can hold");
    if (samples == 0) return;
    required(input, "input");
    required(input[0], "input[0]");
    if (planar) required(input[1], "input[1]");
}

// A call of process(), or with `last` of finish().
tavrin_status separate(tavrin_separator* handle, const float* const* input, size_t samples, bool last,
                       float* const* outputs, size_t capacity, size_t* written) {
    size_t needed = 0;
    const tavrin_status status = guarded(TAVRIN_RUN_FAILED, [&] {
        required(written, "written") = 0;
        tavrin::Separator& separator = required(handle, "separator").separator;
        requireInput(input, samples, handle->planar);
        needed = last ? separator.pending() : separator.outputFor(samples);
        if (needed > 0 && capacity >= needed) required(outputs, "outputs");
        *written = last ? separator.finish(outputs, capacity) : separator.process(input, samples, outputs, capacity);
    });
    return status == TAVRIN_INVALID_ARGUMENT && capacity < needed ? TAVRIN_BUFFER_TOO_SMALL : status;
}

}  // namespace

tavrin_status tavrin_separator_create(const tavrin_model* model, const tavrin_separator_config* config,
                                      tavrin_separator** separator) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        required(separator, "separator") = nullptr;
        const tavrin_separator_config wanted = tavrin::c_api::orDefaults(config, "config");
        const bool planar = wanted.planar != 0;
        *separator = new tavrin_separator{
            tavrin::Separator(
                required(model, "model").model,
                {tavrin::c_api::names(wanted.stems, wanted.stem_count, "config->stems"), wanted.rest != 0,
                 planar ? tavrin::Layout::planar : tavrin::Layout::interleaved, wanted.latency, wanted.context}),
            planar};
    });
}

void tavrin_separator_destroy(tavrin_separator* separator) { delete separator; }

size_t tavrin_separator_output_count(const tavrin_separator* separator) {
    return separator ? separator->separator.outputs().size() : 0;
}

const char* tavrin_separator_output_name(const tavrin_separator* separator, size_t index) {
    return index < tavrin_separator_output_count(separator) ? separator->separator.outputs()[index].c_str() : nullptr;
}

size_t tavrin_separator_latency(const tavrin_separator* separator) {
    return separator ? separator->separator.latency() : 0;
}

size_t tavrin_separator_step(const tavrin_separator* separator) { return separator ? separator->separator.step() : 0; }

size_t tavrin_separator_output_for(const tavrin_separator* separator, size_t samples) {
    return separator ? separator->separator.outputFor(samples) : 0;
}

size_t tavrin_separator_pending(const tavrin_separator* separator) {
    return separator ? separator->separator.pending() : 0;
}

tavrin_status tavrin_separator_process(tavrin_separator* separator, const float* const* input, size_t samples,
                                       float* const* outputs, size_t capacity, size_t* written) {
    return separate(separator, input, samples, false, outputs, capacity, written);
}

tavrin_status tavrin_separator_finish(tavrin_separator* separator, float* const* outputs, size_t capacity,
                                      size_t* written) {
    return separate(separator, nullptr, 0, true, outputs, capacity, written);
}

tavrin_status tavrin_separator_select(tavrin_separator* separator, const char* const* stems, size_t stem_count) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] {
        required(separator, "separator").separator.select(tavrin::c_api::names(stems, stem_count, "stems"));
    });
}

tavrin_status tavrin_separator_reset(tavrin_separator* separator) {
    return guarded(TAVRIN_RUN_FAILED, [&] { required(separator, "separator").separator.reset(); });
}
