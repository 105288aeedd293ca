#include "pipeline/buffer_aggregator.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

}  // namespace

BufferAggregator::BufferAggregator() = default;
BufferAggregator::BufferAggregator(const BufferAggregator&) = default;
BufferAggregator::BufferAggregator(BufferAggregator&& other) noexcept { *this = std::move(other); }
BufferAggregator& BufferAggregator::operator=(const BufferAggregator&) = default;
BufferAggregator& BufferAggregator::operator=(BufferAggregator&& other) noexcept {
    std::swap(_buffer, other._buffer);
    _length = std::exchange(other._length, 0);
    _start = std::exchange(other._start, 0);
    std::swap(_batch, other._batch);
    return *this;
}
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
    const bool fits = _buffer.dimension() == 3 && (rank == 2 || rank == 3) &&
                      chunk.shape(rank - 2) == _buffer.shape(1) && (rank == 2 || chunk.shape(0) == _buffer.shape(0));
    if (!fits) refuse(rank, chunk.size());
    const size_t n = chunk.shape(rank - 1);
    if (!canAccept(n)) throw std::runtime_error("Buffer overflow: cannot accept chunk of size " + std::to_string(n));
    append(chunk.data(), rank == 3 ? chunk.shape(0) : 1, n);
}

// Appends rows of n samples; those of one batch row go to every one.
void BufferAggregator::append(const float* rows, size_t batches, size_t n) {
    const size_t write = wrapped(_start + _length);
    const size_t first = std::min(n, capacity() - write);  // what fits before the ring's end
    const size_t channels = _buffer.shape(1);
    for (size_t r = 0; r < _buffer.shape(0) * channels; ++r) {
        const float* row = rows + r % (batches * channels) * n;
        float* ring = _buffer.data() + r * capacity();
        std::copy_n(row, first, ring + write);
        std::copy_n(row + first, n - first, ring);
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
    if (!canReturn(size)) {
        TAVRIN_LOG(plog::warning, kGet) << "BufferAggregator::get - cannot return requested size: " << size
                                        << ", current length: " << _length;
        return {};
    }
    if (keep > size)
        throw std::invalid_argument("BufferAggregator::get: cannot keep " + std::to_string(keep) + " of " +
                                    std::to_string(size) + " samples");
    xt::xarray<float> out = oldest(size);
    _start = wrapped(_start + size - keep);
    _length -= size - keep;
    return out;
}  // namespace

xt::xarray<float> BufferAggregator::flush() {
    if (_length == 0) return xt::xarray<float>::from_shape({_buffer.shape(0), _buffer.shape(1), size_t{0}});
    xt::xarray<float> out = oldest(_length);
    _length = 0;
    _start = 0;
    return out;
}

size_t BufferAggregator::length() const { return _length; }

// A ring position from one at most a whole ring too far.
size_t BufferAggregator::wrapped(size_t position) const {
    return position < capacity() ? position : position - capacity();
}

size_t BufferAggregator::capacity() const { return _buffer.dimension() == 3 ? _buffer.shape(2) : 0; }

// A copy of the oldest `size` samples, in the queue's own rank.
xt::xarray<float> BufferAggregator::oldest(size_t size) const {
    const size_t channels = _buffer.shape(1);
    std::vector<size_t> shape = {channels, size};
    if (_batch >= 2) shape.insert(shape.begin(), _buffer.shape(0));
    auto out = xt::xarray<float>::from_shape(shape);
    const size_t first = std::min(size, capacity() - _start);
    for (size_t r = 0; r < out.size() / std::max(size, size_t{1}); ++r) {
        const float* ring = _buffer.data() + r * capacity();
        std::copy_n(ring, size - first, std::copy_n(ring + _start, first, out.data() + r * size));
    }
    return out;
}
