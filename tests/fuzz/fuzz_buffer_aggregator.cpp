// The ring behaves as std::deque does, whatever is asked of it, and a refused call changes nothing.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <deque>

#include "pipeline/buffer_aggregator.h"

static void require(bool holds) { holds ? void() : std::abort(); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    FuzzedDataProvider fuzz(data, size);
    const auto upTo = [&fuzz](size_t most) { return fuzz.ConsumeIntegralInRange<size_t>(0, most); };
    const size_t batch = 1 + upTo(1), capacity = 1 + upTo(40);
    BufferAggregator queue(2, capacity, int(batch));
    std::deque<std::array<float, 2>> model;  // every batch row holds the same
    while (fuzz.remaining_bytes() > 0) {
        const size_t n = upTo(50), keep = upTo(60), length = model.size(), wanted = n > 0 ? n : length;
        const bool add = fuzz.ConsumeBool(), flush = keep > 50;
        require(queue.length() == length && queue.canAccept(n) == (length + n <= capacity));
        require(queue.canReturn(n) == (length > 0 && n <= length));
        try {
            auto block = xt::xarray<float>::from_shape({2, add ? n : 0});
            for (float& value : block) value = std::bit_cast<float>(fuzz.ConsumeIntegral<unsigned>());
            if (add) queue.add(block);
            for (size_t i = 0; i < block.shape(1); ++i) model.push_back({block(0, i), block(1, i)});
            if (add) continue;
            const xt::xarray<float> out = flush ? queue.flush() : queue.get(n, keep);
            const size_t count = flush ? length : wanted <= length ? wanted : 0;
            require(out.dimension() == 0 ? count == 0 : out.size() == 2 * batch * count);
            for (size_t i = 0; i < 2 * batch * count; ++i)  // bits, since NaN is not equal to itself
                require(std::memcmp(&out.data()[i], &model[i % count][i / count % 2], sizeof(float)) == 0);
            model.erase(model.begin(), model.begin() + std::ptrdiff_t(count - (flush ? 0 : std::min(keep, count))));
        } catch (const std::runtime_error&) {
            require(add && length + n > capacity);
        } catch (const std::invalid_argument&) {
            require(!add && !flush && wanted <= length && keep > wanted);
        }
    }
    return 0;
}
