/* A host in C: the bundled model's stem is as long as the song. */
#include <stdio.h>
#include <tavrin/tavrin_c.h>

enum { samples = 50000, capacity = 320000 };
static unsigned char model[1 << 20];
static float song[2 * samples], stem[2 * capacity];

int main(void) {
    FILE* file = fopen(TAVRIN_MODEL, "rb");
    const size_t size = file ? fread(model, 1, sizeof model, file) : 0;
    if (tavrin_load("centre", model, size, NULL, 0) != TAVRIN_OK) return 1;
    const tavrin_stream_config config = {.struct_size = sizeof config, .tag = "centre"};
    tavrin_stream* stream;
    size_t written, rest;
    if (tavrin_stream_create(&config, &stream) != TAVRIN_OK) return 2;
    if (tavrin_stream_process(stream, song, samples, stem, capacity, &written) != TAVRIN_OK) return 3;
    if (tavrin_stream_finish(stream, stem, capacity, &rest) != TAVRIN_OK) return 4;
    tavrin_stream_destroy(stream);
    return written + rest == samples ? 0 : 5;
}
