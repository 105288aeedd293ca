/// @file
/// The C interface of libtavrin_proc, for C and for every language that can call C. It is plain C11 and also valid
/// C++17; C++ hosts have stream_separator.h and multi_stem_separator.h.
///
/// Load a model, create a stream, feed it blocks of any size, finish it. A whole host is examples/separate.c.
///
///     tavrin_load("centre", bytes, size, NULL, 0);
///     tavrin_stream* stream;
///     const tavrin_stream_config config = {.struct_size = sizeof config, .tag = "centre"};
///     tavrin_stream_create(&config, &stream);
///     const size_t capacity = tavrin_latency() + block_size;  // enough for every call
///     float* out = malloc(2 * capacity * sizeof *out);
///     while ((n = read_block(in)) > 0) {
///         tavrin_stream_process(stream, in, n, out, capacity, &written);
///         write_block(out, written);
///     }
///     tavrin_stream_finish(stream, out, capacity, &written);
///     write_block(out, written);
///     tavrin_stream_destroy(stream);
///
/// Samples are counted per channel, so n samples are 2 · n floats. Interleaved buffers hold left, right, left, right, …
/// A planar buffer holds the channels one after the other: in n samples of input the right channel begins n floats
/// behind the left one; in an output buffer it begins `capacity` floats behind it, whatever is written.
///
/// Errors: a function that can fail returns a status. Unless that is TAVRIN_OK, tavrin_last_error() has a sentence with
/// the details, out parameters are set to 0 or NULL, and no output has been written. No C++ exception ever leaves. A
/// pointer that may be NULL says so; any other NULL gives TAVRIN_INVALID_ARGUMENT.
///
/// Ownership: what the caller passes is read during the call and not kept. Handles are the caller's, to be destroyed
/// once each. Returned strings are the library's, not to be freed.
///
/// Threads: a stream is for one thread at a time; streams on different threads may share a model. The registry has no
/// lock: serialise tavrin_load(), tavrin_unload(), tavrin_unload_all(), tavrin_is_loaded() and tavrin_stream_create().
/// Everything else may be called at any time. A call that completes a block runs the model, which takes as long as the
/// model takes: keep it off the audio thread.
///
/// Log: the first model load installs a console logger on standard output, as initializeModel() in tavrin_proc.h says.
///
/// Configurations grow: `struct_size` is the caller's sizeof of the structure, and a field that is 0 has its default.
/// Zero the structure, then set what differs. Fields that this version of the library does not know must be 0.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tavrin/export.h"

/// The version of this header.
#define TAVRIN_VERSION_MAJOR 0
#define TAVRIN_VERSION_MINOR 1
#define TAVRIN_VERSION_PATCH 0
/// The same in one number, to be compared with tavrin_version().
#define TAVRIN_VERSION_NUMBER (TAVRIN_VERSION_MAJOR * 10000 + TAVRIN_VERSION_MINOR * 100 + TAVRIN_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/// How a call went: one of the numbers below. They stay; later versions may add some.
typedef int tavrin_status;

enum tavrin_status_code {
    TAVRIN_OK = 0,
    TAVRIN_INVALID_ARGUMENT = 1,  ///< NULL, or a value outside its range; nothing has changed
    TAVRIN_BUFFER_TOO_SMALL = 2,  ///< less capacity than the call may need; nothing has changed
    TAVRIN_NOT_LOADED = 3,        ///< no model is loaded under the tag
    TAVRIN_MODEL_REFUSED = 4,     ///< not a model that the runtime can load, or one with other inputs and outputs
    TAVRIN_RUN_FAILED = 5,        ///< the model run failed; the stream is closed
    TAVRIN_CLOSED = 6,            ///< the stream has ended or failed; its reset function starts a new one
    TAVRIN_OUT_OF_MEMORY = 7,     ///< from a stream's process, finish or reset: the stream is closed
    TAVRIN_RUNTIME_TOO_OLD = 8    ///< the process has an ONNX Runtime older than the library needs
};

/// The name and the meaning of a status: "TAVRIN_CLOSED: the stream has ended or failed; …". Never NULL.
TAVRIN_EXPORT const char* tavrin_status_text(tavrin_status status);

/// What the last call that failed on this thread had to say, in one sentence; empty when none has. It lasts until
/// another call fails on this thread.
TAVRIN_EXPORT const char* tavrin_last_error(void);

/// The version of the library: 10000 · major + 100 · minor + patch.
TAVRIN_EXPORT uint32_t tavrin_version(void);

/// The number of execution providers that the runtime offers, CPUExecutionProvider among them.
TAVRIN_EXPORT tavrin_status tavrin_provider_count(size_t* count);

/// The name of one of them, as ONNX Runtime spells it. It lasts as long as the process.
/// @param index below tavrin_provider_count().
TAVRIN_EXPORT tavrin_status tavrin_provider_name(size_t index, const char** name);

/// The most samples that a stream ever holds back: 263167, which is 5.97 s at 44.1 kHz. It is a bound on the samples
/// taken but not yet returned, not a shift: sample k of the output belongs to sample k of the input.
TAVRIN_EXPORT size_t tavrin_latency(void);

// The model registry: models with one input and one output, by tag.

/// Loads a model and registers it under `tag`. A model that was registered under this tag is replaced; streams that use
/// the old one keep it. When the load fails, the registry stays as it was.
/// @param data,size the serialized ONNX model. Its contract: initializeModel() in tavrin_proc.h.
/// @param key,key_size cyclic XOR key that descrambles the model; NULL and 0 when it is plain.
TAVRIN_EXPORT tavrin_status tavrin_load(const char* tag, const void* data, size_t size, const void* key,
                                        size_t key_size);

/// Removes the model of `tag`, if there is one; streams that use it keep it.
TAVRIN_EXPORT tavrin_status tavrin_unload(const char* tag);

/// Removes every model.
TAVRIN_EXPORT tavrin_status tavrin_unload_all(void);

/// @return TAVRIN_OK when a model is registered under `tag`, TAVRIN_NOT_LOADED when none is.
TAVRIN_EXPORT tavrin_status tavrin_is_loaded(const char* tag);

/// Separates one stereo stream with a model of the registry. The output as a whole has exactly as many samples as the
/// input, and the same bits however the stream was cut.
typedef struct tavrin_stream tavrin_stream;

/// What a stream is to do.
typedef struct tavrin_stream_config {
    size_t struct_size;  ///< sizeof(tavrin_stream_config)
    const char* tag;     ///< of a model loaded with tavrin_load()
    int rest;            ///< not 0: return the input minus the separated signal (the rest of the mix)
    int planar;          ///< not 0: buffers are planar; 0: interleaved
} tavrin_stream_config;

/// @param stream receives the handle, to be given to tavrin_stream_destroy().
/// @return TAVRIN_NOT_LOADED, or TAVRIN_MODEL_REFUSED for a model without one input and one output of
///         float [1, 4, 256, 2048].
TAVRIN_EXPORT tavrin_status tavrin_stream_create(const tavrin_stream_config* config, tavrin_stream** stream);

/// Frees the stream. @param stream may be NULL.
TAVRIN_EXPORT void tavrin_stream_destroy(tavrin_stream* stream);

/// How many samples the next call may return: tavrin_stream_process() when given `samples` samples,
/// tavrin_stream_finish() when `samples` is 0. An output buffer must have room for as many.
/// At most tavrin_latency() + samples.
TAVRIN_EXPORT tavrin_status tavrin_stream_capacity(const tavrin_stream* stream, size_t samples, size_t* capacity);

/// Takes any number of samples, also none, and returns those that have become final, possibly none.
/// @param input 2 · samples floats; may be NULL when `samples` is 0.
/// @param output room for 2 · capacity floats; may be NULL when `capacity` is 0. It may be the input.
/// @param capacity at least what tavrin_stream_capacity() says; else TAVRIN_BUFFER_TOO_SMALL, and nothing has changed.
/// @param written receives the number of samples in `output`.
/// @return TAVRIN_RUN_FAILED, TAVRIN_OUT_OF_MEMORY: the stream is closed. TAVRIN_CLOSED.
TAVRIN_EXPORT tavrin_status tavrin_stream_process(tavrin_stream* stream, const float* input, size_t samples,
                                                  float* output, size_t capacity, size_t* written);

/// Ends the stream and returns the rest of the output, all samples that were held back. The stream is closed then.
/// Parameters and return value are those of tavrin_stream_process().
TAVRIN_EXPORT tavrin_status tavrin_stream_finish(tavrin_stream* stream, float* output, size_t capacity,
                                                 size_t* written);

/// Forgets the stream, whatever its state, and starts a new one with the same bits as a new handle.
TAVRIN_EXPORT tavrin_status tavrin_stream_reset(tavrin_stream* stream);

// Several stems at once, with a model that has one output per stem.

/// What a multi-stem stream can return: the stems in the model's order, then the rest. A set of stems is a number in
/// which stem s has the bit 1u << s.
typedef enum tavrin_output {
    TAVRIN_VOCALS = 0,
    TAVRIN_DRUMS = 1,
    TAVRIN_BASS = 2,
    TAVRIN_PIANO = 3,
    TAVRIN_ACOUSTIC_GUITAR = 4,
    TAVRIN_ELECTRIC_GUITAR = 5,
    TAVRIN_REST = 6  ///< the input minus all selected stems
} tavrin_output;

#define TAVRIN_STEM_COUNT 6
#define TAVRIN_OUTPUT_COUNT 7

/// A loaded multi-stem model. Any number of streams on any threads may use it; their model calls take turns. It may be
/// destroyed before its streams, which keep what they need.
typedef struct tavrin_multi_model tavrin_multi_model;

/// Loads a multi-stem model; multi_stem_separator.h names the inputs and outputs that it must have.
/// @param data,size,key,key_size as for tavrin_load().
/// @param provider execution provider to be tried before the others; NULL for the usual order.
/// @param model receives the handle, to be given to tavrin_multi_model_destroy().
TAVRIN_EXPORT tavrin_status tavrin_multi_model_create(const void* data, size_t size, const void* key, size_t key_size,
                                                      const char* provider, tavrin_multi_model** model);

/// Frees the model when its last stream is gone. @param model may be NULL.
TAVRIN_EXPORT void tavrin_multi_model_destroy(tavrin_multi_model* model);

/// Separates one stereo stream into several stems: tavrin_stream for multi-stem models.
typedef struct tavrin_multi_stream tavrin_multi_stream;

/// What a multi-stem stream is to do.
typedef struct tavrin_multi_stream_config {
    size_t struct_size;  ///< sizeof(tavrin_multi_stream_config)
    uint32_t stems;      ///< the set of stems wanted at first; 0 is allowed
    int rest;            ///< not 0: return the rest, too
    int planar;          ///< not 0: buffers are planar; 0: interleaved
} tavrin_multi_stream_config;

/// @param stream receives the handle, to be given to tavrin_multi_stream_destroy().
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_create(const tavrin_multi_model* model,
                                                       const tavrin_multi_stream_config* config,
                                                       tavrin_multi_stream** stream);

/// Frees the stream. @param stream may be NULL.
TAVRIN_EXPORT void tavrin_multi_stream_destroy(tavrin_multi_stream* stream);

/// Chooses another set of stems from the next model call on, also when the stream is closed. A stem that is switched on
/// fades in; one that is switched off fades out in the next block that has output.
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_select(tavrin_multi_stream* stream, uint32_t stems);

/// As tavrin_stream_capacity(), for each output buffer.
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_capacity(const tavrin_multi_stream* stream, size_t samples,
                                                         size_t* capacity);

/// As tavrin_stream_process(), with an output buffer for each stem and for the rest.
/// @param outputs TAVRIN_OUTPUT_COUNT pointers, each to room for 2 · capacity floats, indexed by tavrin_output. Every
///        buffer receives `written` samples; that of a stem that is off, silence. It may be NULL for a stem that is
///        off (which a stem is when its fade-out has been returned: give its buffer until then), and must be NULL for
///        the rest unless that is wanted. `outputs` itself may be NULL when `capacity` is 0.
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_process(tavrin_multi_stream* stream, const float* input, size_t samples,
                                                        float* const* outputs, size_t capacity, size_t* written);

/// As tavrin_stream_finish(), with the outputs of tavrin_multi_stream_process().
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_finish(tavrin_multi_stream* stream, float* const* outputs,
                                                       size_t capacity, size_t* written);

/// As tavrin_stream_reset(); the selection of stems stays.
TAVRIN_EXPORT tavrin_status tavrin_multi_stream_reset(tavrin_multi_stream* stream);

#ifdef __cplusplus
}
#endif
