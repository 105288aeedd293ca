#include "pipeline/buffer_aggregator.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/interleaving.h"
#include "support/log.h"

namespace {

constexpr const char* kConstructor = "BufferAggregator::BufferAggregator(size_t, size_t, int)";
constexpr const char* kCanAccept = "bool BufferAggregator::canAccept(size_t) const";
constexpr const char* kCanReturn = "bool BufferAggregator::canReturn(size_t) const";
constexpr const char* kGet = "xt::xarray<float> BufferAggregator::get(size_t, size_t)";

size_t requireCapacity(size_t size) {
    if (size == 0) throw std::invalid_argument("BufferAggregator: a queue of capacity 0 can hold nothing");
    return size;
}

[[noreturn]] void refuse(size_t rank, size_t values) {
    throw std::invalid_argument("BufferAggregator::add: a block of rank " + std::to_string(rank) + " with " +
                                std::to_string(values) + " values is not what this queue holds");
}

// Copies n samples of every row of `from` into rows at a distance of `stride`.
void copyRows(const AudioView& from, size_t n, float* to, size_t stride) {
    if (from.step == 2 && from.channels == 2) {
        deinterleave(from.data, n, to, to + stride);
        return;
    }
    for (size_t c = 0; c < from.channels; ++c)
        for (size_t i = 0; i < n; ++i) to[c * stride + i] = from.row(c)[i * from.step];
}

}  // namespace

BufferAggregator::BufferAggregator() = default;
BufferAggregator::BufferAggregator(const BufferAggregator&) = default;
BufferAggregator::BufferAggregator(BufferAggregator&&) noexcept = default;
BufferAggregator& BufferAggregator::operator=(const BufferAggregator&) = default;
BufferAggregator& BufferAggregator::operator=(BufferAggregator&&) noexcept = default;
BufferAggregator::~BufferAggregator() = default;

BufferAggregator::BufferAggregator(size_t channels, size_t size, int batch) : _batch(batch) {
    TAVRIN_LOG(plog::debug, kConstructor)
        << "BufferAggregator constructor - channels: " << channels << ", size: " << size << ", batch: " << batch;
    const auto rows = static_cast<size_t>(std::max(batch, 1));
    _buffer = xt::xarray<float>::from_shape({rows, channels, requireCapacity(size)});
    TAVRIN_LOG(plog::verbose, kConstructor)
        << "Buffer shape: [" << _buffer.shape(0) << ", " << _buffer.shape(1) << ", " << _buffer.shape(2) << "]";
    TAVRIN_LOG(plog::verbose, kConstructor) << "Buffer total size: " << _buffer.size() << " elements";
}

void BufferAggregator::add(xt::xarray<float> chunk) {
    const size_t rank = chunk.dimension();
    if (rank == 2) return append(viewOf(chunk));
    const bool fits = _buffer.dimension() == 3 && rank == 3 && chunk.shape(0) == _buffer.shape(0) &&
                      chunk.shape(1) == _buffer.shape(1);
    if (!fits) refuse(rank, chunk.size());
    appendRows({chunk.data(), chunk.shape(0) * chunk.shape(1), chunk.shape(2), chunk.shape(2)});
}

void BufferAggregator::append(const AudioView& chunk) {
    if (_buffer.dimension() != 3 || chunk.channels != _buffer.shape(1)) refuse(2, chunk.channels * chunk.samples);
    appendRows(chunk);
}

// Rows for the whole buffer, or those of one batch row for each.
void BufferAggregator::appendRows(const AudioView& chunk) {
    const size_t n = chunk.samples;
    if (!canAccept(n)) throw std::runtime_error("Buffer overflow: cannot accept chunk of size " + std::to_string(n));
    const size_t write = wrapped(_start + _length);
    const size_t first = std::min(n, capacity() - write);  // what fits before the ring's end
    const size_t rows = _buffer.shape(0) * _buffer.shape(1);
    for (size_t r = 0; r < rows && n > 0; r += chunk.channels) {
        float* ring = _buffer.data() + r * capacity();
        copyRows(chunk, first, ring + write, capacity());
        copyRows(chunk.dropFirst(first), n - first, ring, capacity());
    }
    _length += n;
}

bool BufferAggregator::canAccept(size_t n) const {
    const size_t space = capacity() - _length;
    TAVRIN_LOG(plog::verbose, kCanAccept) << "Can accept check - space: " << space << ", requested size: " << n;
    return space >= n;
}

bool BufferAggregator::canReturn(size_t n) const {
    TAVRIN_LOG(plog::verbose, kCanReturn) << "Can return check - length: " << _length << ", requested size: " << n;
    return _length != 0 && n <= _length;
}

xt::xarray<float> BufferAggregator::get(size_t size, size_t keep) {
    if (size == 0) size = _length;
    if (!isTakeable(size, keep)) return {};
    xt::xarray<float> out = copyOf(oldest(size));
    drop(size - keep);
    return out;
}

std::optional<SplitAudio> BufferAggregator::take(size_t size, size_t keep) {
    if (size == 0) size = _length;
    if (!isTakeable(size, keep)) return std::nullopt;
    const SplitAudio samples = oldest(size);
    drop(size - keep);
    return samples;
}

bool BufferAggregator::isTakeable(size_t size, size_t keep) const {
    if (!canReturn(size)) {
        TAVRIN_LOG(plog::warning, kGet) << "BufferAggregator::get - cannot return requested size: " << size
                                        << ", current length: " << _length;
        return false;
    }
    if (keep > size)
        throw std::invalid_argument("BufferAggregator::get: cannot keep " + std::to_string(keep) + " of " +
                                    std::to_string(size) + " samples");
    return true;
}

void BufferAggregator::drop(size_t count) {
    _start = wrapped(_start + count);
    _length -= count;
}

xt::xarray<float> BufferAggregator::flush() {
    if (_length == 0) return xt::xarray<float>::from_shape({_buffer.shape(0), _buffer.shape(1), size_t{0}});
    xt::xarray<float> out = copyOf(oldest(_length));
    takeAll();
    return out;
}

SplitAudio BufferAggregator::takeAll() {
    const SplitAudio samples = oldest(_length);
    _length = 0;
    _start = 0;
    return samples;
}

size_t BufferAggregator::length() const { return _length; }

// A ring position from one at most a whole ring too far.
size_t BufferAggregator::wrapped(size_t position) const {
    return position < capacity() ? position : position - capacity();
}

size_t BufferAggregator::capacity() const { return _buffer.dimension() == 3 ? _buffer.shape(2) : 0; }

// The oldest `size` samples of all rows.
SplitAudio BufferAggregator::oldest(size_t size) const {
    const size_t rows = _buffer.shape(0) * _buffer.shape(1);
    const size_t first = std::min(size, capacity() - _start);
    const float* ring = _buffer.data();
    return {{ring + _start, rows, first, capacity()}, {ring, rows, size - first, capacity()}};
}

// In the queue's own rank.
xt::xarray<float> BufferAggregator::copyOf(const SplitAudio& samples) const {
    std::vector<size_t> shape = {_buffer.shape(1), samples.samples()};
    if (_batch >= 2) shape.insert(shape.begin(), _buffer.shape(0));
    auto out = xt::xarray<float>::from_shape(shape);
    for (size_t r = 0; r < samples.channels(); ++r)
        samples.copy(r, 0, samples.samples(), out.data() + r * samples.samples());
    return out;
}
