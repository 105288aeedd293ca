// Separates raw interleaved stereo floats at 44.1 kHz:  separate MODEL.onnx SONG.f32 STEM.f32
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

static void load(const char* tag, FILE* file) {
    fseek(file, 0, SEEK_END);
    const size_t size = (size_t)ftell(file);
    rewind(file);
    void* model = allocate(size);
    check(tavrin_load(tag, model, fread(model, 1, size, file), NULL, 0));
    free(model);  // the library has read it
    fclose(file);
}

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    load("centre", openFile(argv[1], "rb"));
    FILE* song = openFile(argv[2], "rb");
    FILE* stem = openFile(argv[3], "wb");

    tavrin_stream* stream;
    const tavrin_stream_config config = {.struct_size = sizeof config, .tag = "centre"};
    check(tavrin_stream_create(&config, &stream));
    const size_t capacity = tavrin_latency() + BLOCK;  // enough for every call
    float* in = allocate(2 * BLOCK * sizeof *in);
    float* out = allocate(2 * capacity * sizeof *out);
    size_t n, written;
    while ((n = fread(in, 2 * sizeof *in, BLOCK, song)) > 0) {
        check(tavrin_stream_process(stream, in, n, out, capacity, &written));
        fwrite(out, 2 * sizeof *out, written, stem);
    }
    check(tavrin_stream_finish(stream, out, capacity, &written));
    fwrite(out, 2 * sizeof *out, written, stem);

    tavrin_stream_destroy(stream);
    free(out);
    free(in);
    fclose(song);
    return fclose(stem) == 0 ? 0 : 4;
}
