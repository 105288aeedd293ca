// The C interface as hosts use it: C11 and the shared library. That C and C++ give the same bits is for the examples'
// test to see, which runs a host in either language on the same song.
#include "tavrin/tavrin_c.h"

#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(claim) ((claim) ? (void)0 : exit((printf("line %d: %s\n%s\n", __LINE__, #claim, tavrin_last_error()), 1)))
#define REFUSES(call, status, word) CHECK(refused(call, TAVRIN_##status, word))
#define ALL_INVALID(...) \
    for (const int* status = (int[]){__VA_ARGS__, -1}; *status >= 0; ++status) CHECK(*status == TAVRIN_INVALID_ARGUMENT)

enum { N = 600000 };
static float song[2][N], got[2][6][N];
static unsigned char data[9999];
static size_t written;
static tavrin_model *six, *failing;
static tavrin_separator *stream, *none;

// Loads a model, scrambled with a key of one byte; 0 leaves it plain.
static tavrin_model* load(const char* path, unsigned char key) {
    FILE* file = fopen(path, "rb");
    const size_t size = file ? fread(data, 1, sizeof data, file) : 0;
    for (size_t i = 0; i < size; ++i) data[i] ^= key;
    const tavrin_model_options options = {.struct_size = sizeof options, .threads = 1, .key = &key, .key_size = 1};
    tavrin_model* model = NULL;
    CHECK(file && !fclose(file) && !tavrin_model_create(data, size, &options, &model));
    return model;
}

// A refusal has a status, a word of its message, and no output.
static int refused(tavrin_status status, tavrin_status wanted, const char* word) {
    return status == wanted && !written && strstr(tavrin_last_error(), word) && *tavrin_status_text(status) == 'T';
}

// Sends the song through at once, given too little room at first; each output's channels follow one another.
static void separate(float (*out)[N]) {
    const float* const in[] = {song[0], song[1]};
    for (size_t last = 0, done = 0; last < 2; ++last, done += written, written = 0) {
        const size_t needed = last ? tavrin_separator_pending(stream) : tavrin_separator_output_for(stream, N);
        float* outputs[6];
        for (size_t o = 0; o < 6; ++o) outputs[o] = out[o] + done;
        for (size_t given = needed - 1; given <= needed; ++given) {
            const tavrin_status status = last ? tavrin_separator_finish(stream, outputs, given, &written)
                                              : tavrin_separator_process(stream, in, N, outputs, given, &written);
            CHECK(given < needed ? refused(status, TAVRIN_BUFFER_TOO_SMALL, "") : !status && written == needed);
        }
    }
    REFUSES(tavrin_separator_finish(stream, NULL, 0, &written), CLOSED, "");
}

// The other layout is that of the example in C, which is compared with one in C++.
static void namedStemsCanBeSwitchedAndTheLatencyChosen(void) {
    const char* const wanted[] = {"bass", "vocals"};  // an eighth and a half of the song
    const tavrin_separator_config config = {sizeof config, wanted, 2, .rest = 1, .planar = 1, .latency = 0.2};
    CHECK(!tavrin_separator_create(six, &config, &stream) && tavrin_separator_output_count(stream) == 3);
    CHECK(tavrin_separator_latency(stream) <= 8820 && tavrin_separator_step(stream) == 4);
    CHECK(!strcmp(tavrin_separator_output_name(stream, 2), "rest") && !tavrin_separator_output_name(stream, 3));
    separate(got[0]);
    CHECK(!tavrin_separator_reset(stream) && !tavrin_separator_select(stream, wanted, 1));
    REFUSES(tavrin_separator_select(stream, (const char*[]){"kazoo"}, 1), INVALID_ARGUMENT, "kazoo");
    separate(got[1]);
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < N; ++i) {
            const float bass = got[0][c][i], rest = got[1][4 + c][i];
            CHECK(got[0][2 + c][i] == 4 * bass && got[1][c][i] == bass && got[1][2 + c][i] == 0);
            CHECK(fabsf(rest + bass - song[c][i]) < 1e-6f);
        }
    tavrin_separator_destroy(stream);
}

static void aModelSaysWhatItIs(void) {
    tavrin_model_info info[2] = {{.struct_size = 2 * sizeof *info}};  // the second stands for fields to come
    info[1].bins = 9;
    CHECK(!tavrin_model_get_info(six, info) && info[1].bins == 0);
    CHECK(info->stem_count == 6 && !strcmp(*info->stems, "vocals") && info->sample_rate == 44100);
    CHECK(info->frame_length == 4096 && info->hop == 1024 && info->frames == 256 && info->bins == 2048);
    CHECK(info->context == 1 && !strcmp(info->window, "blackman") && !strcmp(info->provider, "CPUExecutionProvider"));
    CHECK(!*info->title && !*info->licence && !*info->source && (!info->not_used_count || info->not_used[0]));
    info->struct_size = 8;
    REFUSES(tavrin_model_get_info(six, info), INVALID_ARGUMENT, "struct_size is 8");
}

static void everyStatusComesWithItsReasonInWholeCharacters(void) {
    const char* const kazoo = "kazoo";
    const tavrin_model_options options = {.struct_size = sizeof options, .providers = &kazoo, .provider_count = 1};
    tavrin_model* model;
    REFUSES(tavrin_model_create(data, 9999, &options, &model), INVALID_ARGUMENT, "kazoo");
    REFUSES(tavrin_model_create("no model", 8, NULL, &model), MODEL_REFUSED, "no ONNX model");
    const tavrin_model_options scrambled = {.struct_size = sizeof scrambled, .key = "a", .key_size = 1};
    REFUSES(tavrin_model_create(song, SIZE_MAX, &scrambled, &model), OUT_OF_MEMORY, "memory");
    tavrin_separator_config config[2] = {{.struct_size = 2 * sizeof *config}};
    CHECK(!model && !tavrin_separator_create(failing, config, &stream));
    config[1].planar = 1;
    REFUSES(tavrin_separator_create(failing, config, &none), INVALID_ARGUMENT, "newer");
    config->struct_size = 1;
    REFUSES(tavrin_separator_create(failing, config, &none), INVALID_ARGUMENT, "struct_size is 1");

    const float* const in = *song;
    float* const out = **got;
    REFUSES(tavrin_separator_process(stream, &in, SIZE_MAX, &out, N, &written), INVALID_ARGUMENT, "more than");
    CHECK(!tavrin_separator_process(stream, &in, 1, NULL, 0, &written) && tavrin_separator_pending(stream) == 1);
    REFUSES(tavrin_separator_finish(stream, &out, N, &written), RUN_FAILED, "out of data bounds");
    REFUSES(tavrin_separator_process(stream, &in, 1, &out, N, &written), CLOSED, "");
    CHECK(!tavrin_separator_reset(stream) && !tavrin_separator_pending(stream));

    for (size_t shift = 0; shift < 4; ++shift) {  // characters of four bytes, cut at each
        char name[2048] = "stem";
        const char* const stem = name;
        for (size_t i = 0; i < 2000 - shift; ++i) name[shift + i] = "\xF0\x9F\x8E\xB5"[i % 4];
        const tavrin_separator_config wanting = {.struct_size = sizeof wanting, .stems = &stem, .stem_count = 1};
        REFUSES(tavrin_separator_create(six, &wanting, &none), INVALID_ARGUMENT, "\xF0\x9F\x8E\xB5");
        const size_t length = strlen(tavrin_last_error());
        CHECK(length > 1000 && !strcmp(tavrin_last_error() + length - 4, "\xF0\x9F\x8E\xB5"));
    }
}

static void nothingMayBeNullUnlessItSaysSo(void) {
    const float* const in[] = {*song, NULL};
    float* const out[] = {**got};
    tavrin_model* model;
    const tavrin_model_options noProviders = {.struct_size = sizeof noProviders, .provider_count = 1};
    const tavrin_model_options noKey = {.struct_size = sizeof noKey, .key_size = 1};
    const tavrin_separator_config noStem = {
        .struct_size = sizeof noStem, .stems = (const char*[]){NULL}, .stem_count = 1};
    CHECK(!tavrin_separator_process(stream, in, 1, NULL, 0, &written) && !written);
    ALL_INVALID(tavrin_provider_count(NULL), tavrin_provider_name(0, NULL), tavrin_model_create(NULL, 3, NULL, &model),
                tavrin_model_create(data, 3, NULL, NULL), tavrin_model_create(data, 3, &noProviders, &model),
                tavrin_model_create(data, 3, &noKey, &model), tavrin_model_get_info(NULL, NULL),
                tavrin_model_get_info(six, NULL), tavrin_separator_create(NULL, NULL, &none),
                tavrin_separator_create(six, NULL, NULL), tavrin_separator_create(six, &noStem, &none),
                tavrin_separator_process(NULL, in, 1, out, N, &written),
                tavrin_separator_process(stream, NULL, 1, out, N, &written),
                tavrin_separator_process(stream, in + 1, 1, out, N, &written),
                tavrin_separator_process(stream, in, 1, out, N, NULL),
                tavrin_separator_finish(stream, NULL, N, &written), tavrin_separator_finish(NULL, out, N, &written),
                tavrin_separator_select(NULL, NULL, 0), tavrin_separator_select(stream, NULL, 1),
                tavrin_separator_reset(NULL));
    CHECK(!none && !model && !tavrin_separator_pending(NULL) && !tavrin_separator_output_name(NULL, 0));
    tavrin_separator_destroy(stream);
    tavrin_separator_destroy(NULL);
}

static void* failsElsewhere(void* wrong) { return *tavrin_last_error() || !tavrin_provider_count(NULL) ? wrong : NULL; }

// Arguments: the paths of a model with six stems and of a failing one; none beside a runtime that is too old.
int main(int argc, char** argv) {
    if (argc == 1) return !refused(tavrin_provider_count(&written), TAVRIN_RUNTIME_TOO_OLD, "1.20.1");
    for (size_t i = 0; i < 2 * N; ++i) song[i % 2][i / 2] = (float)rand() / (float)RAND_MAX - 0.5f;
    six = load(argv[1], 0x55), failing = load(argv[2], 0);
    namedStemsCanBeSwitchedAndTheLatencyChosen();
    aModelSaysWhatItIs();
    everyStatusComesWithItsReasonInWholeCharacters();
    nothingMayBeNullUnlessItSaysSo();
    tavrin_model_destroy(six);
    tavrin_model_destroy(failing);

    pthread_t thread;
    void* wrong;
    const char* name;
    CHECK(tavrin_provider_name(99, &name) == TAVRIN_INVALID_ARGUMENT && tavrin_version() == TAVRIN_VERSION_NUMBER);
    CHECK(!pthread_create(&thread, NULL, failsElsewhere, song) && !pthread_join(thread, &wrong) && !wrong);
    CHECK(strstr(tavrin_last_error(), "no provider 99") && !tavrin_provider_count(&written));
    CHECK(!tavrin_provider_name(written - 1, &name) && strcmp(name, "CPUExecutionProvider") == 0);
}
