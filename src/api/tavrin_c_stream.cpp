#include <vector>

#include "api/c_call.h"
#include "api/c_models.h"
#include "api/c_stream_state.h"
#include "tavrin/stream_separator.h"
#include "tavrin/tavrin_c.h"

struct tavrin_stream {
    explicit tavrin_stream(const tavrin_stream_config& config)
        : separator({.modelTag = config.tag, .subtractFromInput = config.rest != 0, .interleaved = config.planar == 0}),
          state(config.planar != 0) {}

    tavrin::StreamSeparator separator;
    CStreamState state;
};

namespace {

tavrin_status separate(tavrin_stream* stream, const float* input, size_t samples, bool last, float* output,
                       size_t capacity, size_t* written) {
    return guarded(TAVRIN_RUN_FAILED, [&] {
        required(written, "written") = 0;
        CStreamState& state = required(stream, "stream").state;
        if (samples > 0) required(input, "input");
        if (capacity > 0) required(output, "output");
        state.admit(samples, capacity);
        *written = state.carryOut(samples, last, [&] {
            const std::vector<float> result =
                last ? stream->separator.finish() : stream->separator.process({input, input + 2 * samples});
            state.write(result, result.size() / 2, output, capacity);
            return result.size() / 2;
        });
    });
}

}  // namespace

tavrin_status tavrin_stream_create(const tavrin_stream_config* config, tavrin_stream** stream) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        required(stream, "stream") = nullptr;
        requireKnownFields(config, required(config, "config").struct_size, sizeof *config);
        requireLoaded(&required(config->tag, "config->tag"));
        *stream = new tavrin_stream(*config);
    });
}

void tavrin_stream_destroy(tavrin_stream* stream) { delete stream; }

tavrin_status tavrin_stream_capacity(const tavrin_stream* stream, size_t samples, size_t* capacity) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] {
        required(capacity, "capacity") = 0;
        *capacity = required(stream, "stream").state.capacityFor(samples);
    });
}

tavrin_status tavrin_stream_process(tavrin_stream* stream, const float* input, size_t samples, float* output,
                                    size_t capacity, size_t* written) {
    return separate(stream, input, samples, false, output, capacity, written);
}

tavrin_status tavrin_stream_finish(tavrin_stream* stream, float* output, size_t capacity, size_t* written) {
    return separate(stream, nullptr, 0, true, output, capacity, written);
}

tavrin_status tavrin_stream_reset(tavrin_stream* stream) {
    return guarded(TAVRIN_RUN_FAILED,
                   [&] { required(stream, "stream").state.reset([&] { stream->separator.reset(); }); });
}
