/* A host in C: the bundled model's stem is as long as the song. */
#include <stdio.h>
#include <tavrin/tavrin_c.h>

enum { samples = 50000, capacity = 320000 };
static unsigned char bytes[1 << 20];
static float song[2 * samples], stem[2 * capacity];

int main(void) {
    FILE* file = fopen(TAVRIN_MODEL, "rb");
    const size_t size = file ? fread(bytes, 1, sizeof bytes, file) : 0;
    const float* const input = song;
    float* const output = stem;
    tavrin_model* model;
    tavrin_separator* separator;
    size_t written, rest;
    if (tavrin_model_create(bytes, size, NULL, &model) != TAVRIN_OK) return 1;
    if (tavrin_separator_create(model, NULL, &separator) != TAVRIN_OK) return 2;
    if (tavrin_separator_process(separator, &input, samples, &output, capacity, &written) != TAVRIN_OK) return 3;
    if (tavrin_separator_finish(separator, &output, capacity, &rest) != TAVRIN_OK) return 4;
    tavrin_separator_destroy(separator);
    tavrin_model_destroy(model);
    return written + rest == samples ? 0 : 5;
}
