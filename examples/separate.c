// Separates raw interleaved stereo floats into a model's first stem:  separate MODEL.onnx SONG.f32 STEM.f32
#include <stdio.h>
#include <stdlib.h>

#include "tavrin/tavrin_c.h"

enum { BLOCK = 4096 };  // samples per channel; any size will do

static FILE* openFile(const char* path, const char* mode) {
    FILE* file = fopen(path, mode);
    if (file) return file;
    perror(path);
    exit(1);
}

static void* allocate(size_t bytes) {
    void* memory = malloc(bytes);
    if (memory) return memory;
    perror("separate");
    exit(1);
}

static void check(tavrin_status status) {
    if (status == TAVRIN_OK) return;
    fprintf(stderr, "separate: %s\n", tavrin_last_error());
    exit(3);
}

static tavrin_model* load(FILE* file) {
    fseek(file, 0, SEEK_END);
    const size_t size = (size_t)ftell(file);
    rewind(file);
    void* bytes = allocate(size);
    tavrin_model* model;
    check(tavrin_model_create(bytes, fread(bytes, 1, size, file), NULL, &model));
    free(bytes);  // the library has read it
    fclose(file);
    return model;
}

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    tavrin_model* model = load(openFile(argv[1], "rb"));
    FILE* song = openFile(argv[2], "rb");
    FILE* stem = openFile(argv[3], "wb");

    tavrin_model_info info = {.struct_size = sizeof info};
    check(tavrin_model_get_info(model, &info));
    const tavrin_separator_config config = {.struct_size = sizeof config, .stems = info.stems, .stem_count = 1};
    tavrin_separator* separator;
    check(tavrin_separator_create(model, &config, &separator));
    const size_t capacity = tavrin_separator_latency(separator) + BLOCK;  // enough for every call
    float* const in = allocate(2 * BLOCK * sizeof *in);
    float* const out = allocate(2 * capacity * sizeof *out);
    const float* const input = in;
    size_t n, written;
    while ((n = fread(in, 2 * sizeof *in, BLOCK, song)) > 0) {
        check(tavrin_separator_process(separator, &input, n, &out, capacity, &written));
        fwrite(out, 2 * sizeof *out, written, stem);
    }
    check(tavrin_separator_finish(separator, &out, capacity, &written));
    fwrite(out, 2 * sizeof *out, written, stem);

    tavrin_separator_destroy(separator);
    tavrin_model_destroy(model);
    free(out);
    free(in);
    fclose(song);
    return fclose(stem) == 0 ? 0 : 4;
}
