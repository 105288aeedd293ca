// However a stream is cut, the engine sees the same calls, and gives the same samples, one for each that came in.
#include <fuzzer/FuzzedDataProvider.h>

#include "support/cutter_trace.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    FuzzedDataProvider fuzz(data, size);
    const auto cuts = fuzz.ConsumeBytes<std::uint8_t>(fuzz.ConsumeIntegralInRange<size_t>(0, 30));
    const auto length = fuzz.ConsumeIntegralInRange<size_t>(0, 1500);
    std::vector<float> song(2 * (length + 1));
    const auto period = std::min(fuzz.remaining_bytes() / sizeof(float), song.size());
    fuzz.ConsumeData(song.data(), period * sizeof(float));
    if (period > 0)
        for (size_t i = period; i < song.size(); ++i) song[i] = song[i - period];
    if (trace(song.data(), length, cuts) != trace(song.data(), length, {})) std::abort();
    return 0;
}
