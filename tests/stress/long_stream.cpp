// A separator needs no more memory in hours than in its first minute, and returns every sample.
//     long_stream MINUTES
#include <sys/resource.h>

#include "stress/stress.h"

int main(int, char** argv) {
    tavrin::Separator separator(modelOf(modelBytes("passthrough.onnx")), {{}, true});
    const auto block = noise(2 * 4410, 1);  // a tenth of a second
    size_t in = 0, out = 0;
    rusage early{}, late{};
    for (const size_t minute = 600 * block.size(); in < minute * std::stoul(argv[1]); in += block.size()) {
        if (in == minute) getrusage(RUSAGE_SELF, &early);
        out += separator.process(block).back().size();
    }
    out += separator.finish().back().size();
    getrusage(RUSAGE_SELF, &late);
    std::printf("long_stream: %zu samples in, %zu out; resident at most %ld KiB in the first minute, %ld in all\n",
                in / 2, out / 2, early.ru_maxrss, late.ru_maxrss);
    return in == out && late.ru_maxrss < early.ru_maxrss + 4096 ? 0 : 1;
}
