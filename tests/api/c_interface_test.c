// The C interface as hosts use it: C11 and the shared library. That C and C++ give the same bits is for the examples'
// test to see, which runs a host in either language on the same song.
#include "tavrin/tavrin_c.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(claim) ((claim) ? (void)0 : exit((printf("line %d: %s\n%s\n", __LINE__, #claim, tavrin_last_error()), 1)))
#define REFUSES(call, status, word) CHECK(refused(call, TAVRIN_##status, word))
#define ALL_INVALID(...) \
    for (const int* status = (int[]){__VA_ARGS__, -1}; *status >= 0; ++status) CHECK(*status == TAVRIN_INVALID_ARGUMENT)

enum { N = 600000 };
static float song[2 * N], whole[2 * N], got[2 * N], block[2 * N], room[TAVRIN_OUTPUT_COUNT][2 * N];
static unsigned char data[9999];
static size_t written;
static tavrin_stream *stream, *none;
static tavrin_multi_model* model;
static tavrin_multi_stream* stems;

// Reads a model into `data` and scrambles it with a key of one byte; 0 leaves it plain.
static size_t readModel(const char* path, unsigned char key) {
    FILE* file = fopen(path, "rb");
    const size_t size = file ? fread(data, 1, sizeof data, file) : 0;
    for (size_t i = 0; i < size; ++i) data[i] ^= key;
    return file && fclose(file) == 0 ? size : 0;
}

// A refusal has a status, a word of its message, and no output.
static int refused(tavrin_status status, tavrin_status wanted, const char* word) {
    return status == wanted && !written && strstr(tavrin_last_error(), word) && *tavrin_status_text(status) == 'T';
}

// Sends the song through in pieces, each given too little room at first.
static void separate(int planar, size_t cut, float* out) {
    for (size_t from = 0, done = 0, n = 1, needed; n > 0; from += n, done += written, written = 0) {
        n = cut < N - from ? cut : N - from;
        for (size_t i = 0; i < 2 * n; ++i) block[planar ? i % 2 * n + i / 2 : i] = song[2 * from + i];
        CHECK(tavrin_stream_capacity(stream, n, &needed) == TAVRIN_OK && needed == from + n - done);
        for (size_t given = needed - 1; given <= needed; ++given) {
            const tavrin_status status = n > 0 ? tavrin_stream_process(stream, block, n, *room, given, &written)
                                               : tavrin_stream_finish(stream, *room, given, &written);
            CHECK(given < needed ? refused(status, TAVRIN_BUFFER_TOO_SMALL, "") : !status && (n || written == needed));
        }
        for (size_t i = 0; i < 2 * written; ++i) out[2 * done + i] = room[0][planar ? i % 2 * needed + i / 2 : i];
    }
    REFUSES(tavrin_stream_process(stream, song, 1, *room, N, &written), CLOSED, "has ended");
}

static void streamsGiveTheSameBitsInEveryLayoutAndCut(void) {
    for (int round = 0; round < 6; ++round) {  // interleaved, planar, and the rest; each once more after a reset
        const tavrin_stream_config config = {sizeof config, "passthrough", round / 4, round / 2 % 2};
        CHECK(!(round % 2 ? tavrin_stream_reset(stream) : tavrin_stream_create(&config, &stream)));
        separate(config.planar, round == 0 ? N : 70001, round == 0 ? whole : got);
        for (size_t i = 0; i < 2 * N && round > 0; ++i) CHECK(got[i] == (config.rest ? song[i] - whole[i] : whole[i]));
        if (round % 2) tavrin_stream_destroy(stream);
    }
}

static void stemsAreThoseOfTheModelAndAnOutputInUseMayNotBeNull(size_t size) {
    const tavrin_multi_stream_config config = {sizeof config, 1U << TAVRIN_VOCALS | 1U << TAVRIN_BASS, 1, 0};
    CHECK(tavrin_multi_model_create(data, size, NULL, 0, NULL, &model) == TAVRIN_OK);
    CHECK(tavrin_multi_stream_create(model, &config, &stems) == TAVRIN_OK);
    tavrin_multi_model_destroy(model);  // the stream keeps it
    float* out[] = {room[0], NULL, room[2], room[3], NULL, NULL, room[6]};
    const float *vocals = room[0], *bass = room[2], *off = room[3], *rest = room[6], *in = song, *pass = whole;
    for (int part = 0; part < 3; ++part, in += 2 * written, pass += 2 * written, written = 0) {
        if (part == 1) {  // in which the bass fades out
            CHECK(tavrin_multi_stream_select(stems, 1U << TAVRIN_VOCALS) == TAVRIN_OK);
            out[TAVRIN_BASS] = NULL;
            REFUSES(tavrin_multi_stream_process(stems, song, 1, out, N, &written), INVALID_ARGUMENT, "[2]");
        }
        out[TAVRIN_BASS] = part < 2 ? room[2] : NULL;
        CHECK(!(part < 2 ? tavrin_multi_stream_process(stems, song + part * N, N / 2, out, N, &written)
                         : tavrin_multi_stream_finish(stems, out, N, &written)));
        for (size_t i = 0; i < 2 * written; ++i) {  // the model's gains: a half, an eighth
            CHECK(vocals[i] == 0.5f * pass[i] && off[i] == 0.0f && (part > 0 || bass[i] == 0.125f * pass[i]));
            CHECK(part == 1 || rest[i] == in[i] - vocals[i] - (part == 0 ? bass[i] : 0.0f));
        }
    }
    CHECK(in == song + 2 * N && tavrin_multi_stream_reset(stems) == TAVRIN_OK);
    REFUSES(tavrin_multi_stream_select(stems, 64), INVALID_ARGUMENT, "64");
    tavrin_multi_stream_destroy(stems);
}

static void everyStatusComesWithItsReason(void) {
    tavrin_stream_config config[2] = {{2 * sizeof *config, "none", 0, 0}};  // the second stands for fields to come
    REFUSES(tavrin_stream_create(config, &none), NOT_LOADED, "'none'");
    config->tag = "small";
    REFUSES(tavrin_stream_create(config, &none), MODEL_REFUSED, "[1, 4, 8, 16]");
    config->tag = "failing";
    CHECK(tavrin_stream_create(config, &stream) == TAVRIN_OK);
    config[1].planar = 1;
    REFUSES(tavrin_stream_create(config, &none), INVALID_ARGUMENT, "newer");
    config->struct_size = 1;
    REFUSES(tavrin_stream_create(config, &none), INVALID_ARGUMENT, "struct_size is 1");
    REFUSES(tavrin_load("small", "no model", 8, NULL, 0), MODEL_REFUSED, "rotobuf");
    REFUSES(tavrin_load("small", song, SIZE_MAX, "key", 3), OUT_OF_MEMORY, "memory");
    REFUSES(tavrin_stream_process(stream, song, SIZE_MAX, *room, N, &written), INVALID_ARGUMENT, "more than");
    CHECK(tavrin_stream_process(stream, song, 1, *room, N, &written) == TAVRIN_OK);
    REFUSES(tavrin_stream_finish(stream, *room, N, &written), RUN_FAILED, "out of data bounds");
    REFUSES(tavrin_stream_process(stream, song, 1, *room, N, &written), CLOSED, "has failed");
    CHECK(!tavrin_stream_reset(stream) && !tavrin_stream_capacity(stream, 0, &written) && written == 0);
    if (!TAVRIN_SANITIZED)  // whose allocators would end the process
        REFUSES(tavrin_stream_process(stream, song, SIZE_MAX >> 14, *room, SIZE_MAX, &written), OUT_OF_MEMORY, "");
}

static void nothingMayBeNullUnlessItSaysSo(void) {
    const tavrin_stream_config config = {sizeof config, NULL, 0, 0};
    ALL_INVALID(
        tavrin_provider_count(NULL), tavrin_provider_name(0, NULL), tavrin_unload(NULL), tavrin_is_loaded(NULL),
        tavrin_load(NULL, song, 3, NULL, 0), tavrin_load("a", NULL, 3, NULL, 0), tavrin_load("a", song, 3, NULL, 3),
        tavrin_stream_create(NULL, &none), tavrin_stream_create(&config, NULL), tavrin_stream_create(&config, &none),
        tavrin_stream_reset(NULL), tavrin_stream_capacity(NULL, 0, &written), tavrin_stream_capacity(stream, 0, NULL),
        tavrin_stream_process(NULL, song, 1, *room, N, &written),
        tavrin_stream_process(stream, NULL, 1, *room, N, &written),
        tavrin_stream_process(stream, song, 1, NULL, N, &written),
        tavrin_stream_process(stream, song, 1, *room, N, NULL), tavrin_multi_stream_select(NULL, 1),
        tavrin_multi_stream_create(NULL, NULL, &stems), tavrin_multi_model_create(song, 3, NULL, 0, NULL, NULL),
        tavrin_multi_model_create(NULL, 3, NULL, 0, NULL, &model), tavrin_multi_stream_reset(NULL),
        tavrin_multi_stream_capacity(NULL, 0, &written), tavrin_multi_stream_process(NULL, song, 1, NULL, N, &written));
    CHECK(!none && !model && !stems);
    tavrin_stream_destroy(stream);
}

static void* failsElsewhere(void* wrong) { return *tavrin_last_error() || !tavrin_unload(NULL) ? wrong : NULL; }

// Arguments: the paths of the models, the one with several stems first; none beside a runtime that is too old.
int main(int argc, char** argv) {
    const char *tags[] = {NULL, NULL, "passthrough", "small", "failing"}, *name;
    if (argc == 1) return !refused(tavrin_provider_count(&written), TAVRIN_RUNTIME_TOO_OLD, "1.20.1");
    for (size_t i = 0; i < 2 * N; ++i) song[i] = (float)rand() / (float)RAND_MAX - 0.5f;
    for (unsigned char key = 2; key < argc; ++key)
        CHECK(tavrin_load(tags[key], data, readModel(argv[key], key), &key, 1) == TAVRIN_OK);
    streamsGiveTheSameBitsInEveryLayoutAndCut();
    stemsAreThoseOfTheModelAndAnOutputInUseMayNotBeNull(readModel(argv[1], 0));
    everyStatusComesWithItsReason();
    nothingMayBeNullUnlessItSaysSo();
    pthread_t thread;
    void* wrong;
    CHECK(tavrin_provider_name(99, &name) == TAVRIN_INVALID_ARGUMENT && tavrin_version() == TAVRIN_VERSION_NUMBER);
    CHECK(!pthread_create(&thread, NULL, failsElsewhere, song) && !pthread_join(thread, &wrong) && !wrong);
    CHECK(strstr(tavrin_last_error(), "no provider 99") && !tavrin_provider_count(&written));
    CHECK(!tavrin_provider_name(written - 1, &name) && strcmp(name, "CPUExecutionProvider") == 0);
    CHECK(!tavrin_unload("small") && tavrin_is_loaded("small") && !tavrin_unload_all() && tavrin_is_loaded("failing"));
}
