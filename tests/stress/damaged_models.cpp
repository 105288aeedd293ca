// A damaged model is refused, fails with an exception that the headers name, or works; anything else ends the process.
//     damaged_models FILE...    prints each file's name, then its outcome, to standard error
#include <unistd.h>

#include "stress/stress.h"

static const char* outcome(const std::string& file) try {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
    const std::vector<float> song(2 * 1000, 0.5f);
    if (file.find("six_stems") != std::string::npos) {
        tavrin::MultiStemSeparator separator(tavrin::MultiStemModel(dataOf(bytes)), {.stems = {tavrin::Stem::bass}});
        return separator.process(song), separator.finish(), "works";
    }
    if (!tavrin::initializeModel("model", dataOf(bytes))) return "is refused";
    return tavrin::separate({.modelTag = "model"}, song), "works";
} catch (const std::runtime_error&) {
    return "throws";
} catch (const std::bad_alloc&) {
    return "throws";
}

int main(int, char** argv) {
    while (*++argv) {
        alarm(30);  // seconds
        std::fprintf(stderr, "copy %s\n", *argv);
        std::fprintf(stderr, "it %s\n", outcome(*argv));
    }
}
