/// @file
/// The sample queue between a host's blocks and the model's.
#pragma once

#include <cstddef>

#include "support/tensor.h"
#include "tavrin/export.h"

/// A queue of multi-channel samples with a fixed capacity, kept in a ring: held samples never move.
///
/// A plain value. The default-constructed queue is a placeholder, to be assigned to before use. Threads: one at a time.
class TAVRIN_EXPORT BufferAggregator {
public:
    /// The placeholder.
    BufferAggregator();
    /// @param channels rows of every block.
    /// @param size capacity in samples per channel, at least 1.
    /// @param batch rows of rows; with 2 or more, blocks are [batch, channels, samples], otherwise [channels, samples].
    /// @throws std::invalid_argument for a capacity of 0.
    BufferAggregator(size_t channels, size_t size, int batch);
    BufferAggregator(const BufferAggregator&);
    /// What has been moved from is an empty queue or a placeholder.
    BufferAggregator(BufferAggregator&&) noexcept;
    BufferAggregator& operator=(const BufferAggregator&);
    BufferAggregator& operator=(BufferAggregator&&) noexcept;
    ~BufferAggregator();

    /// Appends a block: [channels, n], which goes to every batch row, or [batch, channels, n].
    /// @throws std::runtime_error "Buffer overflow: …" when it does not fit, std::invalid_argument when it has another
    ///         shape; the queue is unchanged then.
    void add(xt::xarray<float> chunk);

    /// @return true when n more samples fit.
    bool canAccept(size_t n) const;

    /// @return true when n samples can be taken; never from an empty queue, not even none.
    bool canReturn(size_t n) const;

    /// Returns the oldest `size` samples (0: all) and keeps the newest `keep` of those queued, so that the next block
    /// begins with them.
    /// @return a fresh [channels, size] or [batch, channels, size] tensor; the rank-0 tensor, with a warning in the
    ///         log, when fewer samples are held.
    /// @throws std::invalid_argument when `keep` is larger than `size`; the queue is unchanged then.
    xt::xarray<float> get(size_t size, size_t keep);

    /// Returns everything held and empties the queue. From an empty queue: [batch, channels, 0], always rank 3.
    xt::xarray<float> flush();

    /// Samples held, per channel.
    size_t length() const;

    /// Samples per channel that fit in all; 0 for the placeholder.
    size_t capacity() const;

private:
    size_t wrapped(size_t position) const;
    void append(const float* rows, size_t batches, size_t n);
    xt::xarray<float> oldest(size_t size) const;

    xt::xarray<float> _buffer;  // [batch, channels, capacity]
    size_t _length = 0;
    size_t _start = 0;  // ring position of the oldest sample
    int _batch = 1;
};
