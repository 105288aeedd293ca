// A damaged model is refused, fails with an exception that the headers name, or works; anything else ends the process.
//     damaged_models FILE...    prints each file's name, then its outcome, to standard error
#include <unistd.h>

#include "stress/stress.h"

static const char* outcome(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
    const char* failure = "is refused";
    try {
        const tavrin::Model model = modelOf(bytes);
        failure = "throws";
        return separate(model, std::vector<float>(2 * 1000, 0.5f), {{model.info().stems.back()}, true}), "works";
    } catch (const std::invalid_argument&) {
        if (!bytes.empty()) throw;  // nothing is left of the file: no data
    } catch (const std::runtime_error&) {
    } catch (const std::bad_alloc&) {
    }
    return failure;
}

int main(int, char** argv) {
    while (*++argv) {
        alarm(30);  // seconds
        std::fprintf(stderr, "copy %s\n", *argv);
        std::fprintf(stderr, "it %s\n", outcome(*argv));
    }
}
