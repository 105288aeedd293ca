/// @file
/// The C interface of libtavrin_proc, for C and for every language that can call C: separator.h in C. It is plain C11
/// and also valid C++17.
///
/// Load a model, create a separator, feed it blocks of any size, finish it. A whole host is examples/separate.c.
///
///     tavrin_model* model;
///     tavrin_separator* separator;
///     tavrin_model_create(bytes, size, NULL, &model);
///     tavrin_separator_create(model, NULL, &separator);       // every stem of the model, interleaved
///     const size_t capacity = tavrin_separator_latency(separator) + BLOCK;  // enough for every call
///     float* vocals = malloc(2 * capacity * sizeof *vocals);
///     float* const outputs[] = {vocals};                      // one for each output
///     const float* const input = block;
///     while ((n = read_block(block)) > 0) {
///         tavrin_separator_process(separator, &input, n, outputs, capacity, &written);
///         write_block(vocals, written);
///     }
///     tavrin_separator_finish(separator, outputs, capacity, &written);
///     write_block(vocals, written);
///     tavrin_separator_destroy(separator);
///     tavrin_model_destroy(model);
///
/// Samples are counted per channel. An interleaved signal of n samples is one pointer to 2 · n floats: left, right,
/// left, right, …; a planar one is two pointers to n floats each, left and right.
///
/// Errors: a function that can fail returns a status. Unless that is TAVRIN_OK, tavrin_last_error() has a sentence with
/// the details, and out parameters are set to 0 or NULL. No C++ exception ever leaves. A pointer that may be NULL says
/// so; any other NULL gives TAVRIN_INVALID_ARGUMENT. Functions that only tell something return it, and 0 or NULL for a
/// handle that is NULL.
///
/// Ownership: what the caller passes is read during the call and not kept. Handles are the caller's, to be destroyed
/// once each; a separator keeps what it needs of its model. Returned strings are the library's, not to be freed.
///
/// Threads: a separator is for one thread at a time; separators on different threads may share a model. Everything else
/// may be called at any time. A call that completes a step runs the model, which takes as long as the model takes: keep
/// it off the audio thread.
///
/// Structures grow: `struct_size` is the caller's sizeof of the structure. Zero the structure, then set what differs: a
/// field that is 0 has its default. Fields that this version of the library does not know must be 0.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tavrin/export.h"

/// The version of the library that this header belongs to. The build takes its version from here.
#define TAVRIN_VERSION_MAJOR 0
#define TAVRIN_VERSION_MINOR 2
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
    TAVRIN_BUFFER_TOO_SMALL = 2,  ///< less capacity than the call needs; nothing has changed
    TAVRIN_MODEL_REFUSED = 3,     ///< not a model that the library can run, or not on the wanted providers
    TAVRIN_RUN_FAILED = 4,        ///< the model call failed, or gave what is not finite; the stream is closed
    TAVRIN_CLOSED = 5,            ///< the stream has ended or failed; tavrin_separator_reset() starts a new one
    TAVRIN_OUT_OF_MEMORY = 6,     ///< from tavrin_separator_process() or _finish(): the stream is closed
    TAVRIN_RUNTIME_TOO_OLD = 7    ///< the process has an ONNX Runtime older than the library needs
};

/// The name and the meaning of a status: "TAVRIN_CLOSED: the stream has ended or failed; …". Never NULL.
TAVRIN_EXPORT const char* tavrin_status_text(tavrin_status status);

/// What the last call that failed on this thread had to say, in UTF-8; empty when none has. It lasts until another call
/// fails on this thread.
TAVRIN_EXPORT const char* tavrin_last_error(void);

/// The version of the library: 10000 · major + 100 · minor + patch.
TAVRIN_EXPORT uint32_t tavrin_version(void);

/// The number of execution providers that the runtime offers, CPUExecutionProvider among them.
TAVRIN_EXPORT tavrin_status tavrin_provider_count(size_t* count);

/// The name of one of them, as ONNX Runtime spells it. It lasts as long as the process.
/// @param index below tavrin_provider_count().
TAVRIN_EXPORT tavrin_status tavrin_provider_name(size_t index, const char** name);

/// A loaded model. Any number of separators on any threads may use it.
typedef struct tavrin_model tavrin_model;

/// How a model is to be run.
typedef struct tavrin_model_options {
    size_t struct_size;  ///< sizeof(tavrin_model_options)
    /// Execution providers in order of preference, as ONNX Runtime spells them or short ("cpu", "cuda"); the CPU stands
    /// behind them all. None: the accelerators that the runtime offers, then the CPU.
    const char* const* providers;
    size_t provider_count;
    int strict;       ///< not 0: an error unless one of `providers` runs the model
    size_t threads;   ///< threads of one model call; 0: the runtime's choice, one per core
    const void* key;  ///< cyclic XOR key that descrambles the model; NULL and 0 when it is plain
    size_t key_size;
} tavrin_model_options;

/// What a model says of itself, and how it is run. Everything that it points at lasts as long as the model's handle.
typedef struct tavrin_model_info {
    size_t struct_size;        ///< sizeof(tavrin_model_info), set by the caller
    const char* const* stems;  ///< names of the outputs, in the model's order
    size_t stem_count;
    uint32_t sample_rate;  ///< Hz that the model was made for
    size_t frame_length;   ///< samples of a frame
    size_t hop;            ///< samples between the starts of consecutive frames
    const char* window;    ///< "blackman" or "hann"
    size_t frames;         ///< frames of one model call
    size_t bins;           ///< frequency bins that the model sees, from DC up
    size_t context;        ///< frames that the model wants to see on both sides of a frame
    const char* title;     ///< for people; may be empty, as the next two
    const char* licence;
    const char* source;
    const char* provider;         ///< the execution provider that runs the model, as ONNX Runtime spells it
    const char* const* not_used;  ///< why preferred providers do not: "CUDAExecutionProvider: …", one line each
    size_t not_used_count;
} tavrin_model_info;

/// Loads a model. Which ones: docs/model-contract.md. Nothing is read from disk and nothing is printed.
/// @param data,size the serialized ONNX model.
/// @param options NULL: the defaults.
/// @param model receives the handle, to be given to tavrin_model_destroy().
/// @return TAVRIN_MODEL_REFUSED, TAVRIN_RUNTIME_TOO_OLD.
TAVRIN_EXPORT tavrin_status tavrin_model_create(const void* data, size_t size, const tavrin_model_options* options,
                                                tavrin_model** model);

/// Frees the model when its last separator is gone. @param model may be NULL.
TAVRIN_EXPORT void tavrin_model_destroy(tavrin_model* model);

/// @param info receives what the model says of itself. Its struct_size says how much of it the caller knows.
TAVRIN_EXPORT tavrin_status tavrin_model_get_info(const tavrin_model* model, tavrin_model_info* info);

/// Separates one stereo stream that arrives in blocks of any size. Each output as a whole has exactly as many samples
/// as the input, sample k of the one belongs to sample k of the other, and the bits are the same however the stream was
/// cut. Input samples that are not finite count as silence.
typedef struct tavrin_separator tavrin_separator;

/// What one stream is to do.
typedef struct tavrin_separator_config {
    size_t struct_size;        ///< sizeof(tavrin_separator_config)
    const char* const* stems;  ///< stems to give out, in this order; none: all, in the model's order
    size_t stem_count;
    int rest;        ///< not 0: the input minus all these stems, too, as the last output
    int planar;      ///< not 0: input and outputs are planar; 0: interleaved
    double latency;  ///< longest allowed latency in seconds; 0: the cheapest, which is the longest
    size_t context;  ///< frames to see on both sides of a frame; 0: as many as the model wants
} tavrin_separator_config;

/// @param config NULL: the defaults.
/// @param separator receives the handle, to be given to tavrin_separator_destroy().
/// @return TAVRIN_INVALID_ARGUMENT for a stem that the model does not have, a stem named twice, a context that leaves
/// no
///         frame of a model call, or a latency below the least possible one.
TAVRIN_EXPORT tavrin_status tavrin_separator_create(const tavrin_model* model, const tavrin_separator_config* config,
                                                    tavrin_separator** separator);

/// Frees the separator. @param separator may be NULL.
TAVRIN_EXPORT void tavrin_separator_destroy(tavrin_separator* separator);

/// The number of outputs: the configured stems, then the rest if it is wanted.
TAVRIN_EXPORT size_t tavrin_separator_output_count(const tavrin_separator* separator);

/// The name of an output, "rest" for the rest; NULL when there are not so many. It lasts as long as the separator.
TAVRIN_EXPORT const char* tavrin_separator_output_name(const tavrin_separator* separator, size_t index);

/// The most samples that are ever held back: a bound on the samples taken but not yet returned, not a shift.
TAVRIN_EXPORT size_t tavrin_separator_latency(const tavrin_separator* separator);

/// Frames from one model call to the next. A short latency costs model calls: one per step · hop samples.
TAVRIN_EXPORT size_t tavrin_separator_step(const tavrin_separator* separator);

/// How many samples tavrin_separator_process() will return for `samples` more; 0 when the stream is closed.
TAVRIN_EXPORT size_t tavrin_separator_output_for(const tavrin_separator* separator, size_t samples);

/// Samples taken and not yet returned: what tavrin_separator_finish() will return; 0 when the stream is closed.
TAVRIN_EXPORT size_t tavrin_separator_pending(const tavrin_separator* separator);

/// Takes any number of samples, also none, and writes those that have become final, possibly none.
/// @param input one pointer (interleaved) or two (planar); may be NULL when `samples` is 0.
/// @param outputs one pointer (interleaved) or two (planar) per output: planar output k is outputs[2k] and
///        outputs[2k + 1]. Each may be NULL: not written. `outputs` may be NULL when nothing becomes final. Outputs and
///        input may not overlap.
/// @param capacity room of each output, in samples: at least what tavrin_separator_output_for() says; always enough is
///        tavrin_separator_latency() + samples.
/// @param written receives the number of samples in each output.
/// @return TAVRIN_BUFFER_TOO_SMALL; TAVRIN_RUN_FAILED: the outputs hold silence; TAVRIN_OUT_OF_MEMORY; TAVRIN_CLOSED.
TAVRIN_EXPORT tavrin_status tavrin_separator_process(tavrin_separator* separator, const float* const* input,
                                                     size_t samples, float* const* outputs, size_t capacity,
                                                     size_t* written);

/// Ends the stream and writes the rest of the output, all samples that were held back. The stream is closed then.
/// @param capacity at least what tavrin_separator_pending() says.
/// @return as tavrin_separator_process().
TAVRIN_EXPORT tavrin_status tavrin_separator_finish(tavrin_separator* separator, float* const* outputs, size_t capacity,
                                                    size_t* written);

/// Switches to a choice of the configured stems, from the next model call on; they fade in and out. A stem that is off
/// is silent, and stays in the rest.
/// @param stems may be NULL when `stem_count` is 0: all off.
TAVRIN_EXPORT tavrin_status tavrin_separator_select(tavrin_separator* separator, const char* const* stems,
                                                    size_t stem_count);

/// Forgets the stream, whatever its state, and starts a new one with the same bits as a new separator of the present
/// selection.
TAVRIN_EXPORT tavrin_status tavrin_separator_reset(tavrin_separator* separator);

#ifdef __cplusplus
}
#endif
