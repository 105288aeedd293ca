/* A host in C: the bundled model separates a song of one sample. */
#include <stdio.h>
#include <tavrin/tavrin_c.h>

static unsigned char bytes[1 << 20];

int main(void) {
    FILE* file = fopen(TAVRIN_MODEL, "rb");
    const size_t size = file ? fread(bytes, 1, sizeof bytes, file) : 0;
    float song[2] = {0.5f, 0.5f}, *const samples = song;
    const float* const input = song;
    tavrin_model* model;
    tavrin_separator* separator;
    size_t written;
    if (tavrin_model_create(bytes, size, NULL, &model) || tavrin_separator_create(model, NULL, &separator) ||
        tavrin_separator_process(separator, &input, 1, NULL, 0, &written) ||
        tavrin_separator_finish(separator, &samples, 1, &written))
        return puts(tavrin_last_error()), 1;
    tavrin_separator_destroy(separator);
    tavrin_model_destroy(model);
    return written == 1 ? 0 : 2;
}
