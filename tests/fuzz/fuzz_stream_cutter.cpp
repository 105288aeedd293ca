// However a stream is cut, the engine sees the same calls, and gives the same samples, one for each that came in.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>

#include "pipeline/chunk_processor.h"
#include "pipeline/stream_cutter.h"
#include "support/fake_inference.h"

// All that passes between cutter and engine, as bits, since NaN is not equal to itself. The stream comes in blocks as
// long as `cuts` say; what is left comes in one.
static std::vector<unsigned> trace(const float* song, size_t length, const std::vector<std::uint8_t>& cuts) {
    StreamCutter cutter(64, 16, 16);
    ChunkProcessor engine(std::make_shared<FakeInference>(), 2, 64, 16, 0, 16, false);
    std::vector<unsigned> bits;
    size_t in = 0, out = 0;
    const auto note = [&bits](const xt::xarray<float>& values) {
        for (const float value : values) bits.push_back(std::bit_cast<unsigned>(value));
    };
    const auto feed = [&](const xt::xarray<float>& block, bool eof, bool completesBlock) {
        if (completesBlock && !eof && block.shape(1) != engine.maxInputSize()) std::abort();
        const xt::xarray<float> result = engine.process(block, eof);
        if (completesBlock != (result.dimension() == 2)) std::abort();
        bits.insert(bits.end(), {unsigned(block.shape(1)), eof, completesBlock});
        note(block), note(result);
        in += block.shape(1), out += result.dimension() == 2 ? result.shape(1) : 0;
    };
    for (size_t i = 0, n = 0, left = length; i <= cuts.size(); ++i, song += 2 * n, left -= n) {
        n = i < cuts.size() ? std::min<size_t>(2 * cuts[i], left) : left;
        cutter.add(song, song + 1, 2, n, feed);
    }
    cutter.finish(feed);
    if (in != length || out != length) std::abort();
    return bits;
}

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
