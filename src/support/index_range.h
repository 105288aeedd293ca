/// @file
/// Half-open index ranges with the tensor library's rules for bounds.
#pragma once

#include <algorithm>
#include <cstddef>

namespace tavrin {

/// Positions begin … end - 1 of an axis.
struct IndexRange {
    size_t begin;
    size_t end;

    size_t count() const { return end - begin; }
};

/// Applies the tensor library's range rules: a negative bound counts from the end of the axis, then every bound is
/// clamped into [0, length], and a range that does not end beyond its start is empty.
inline IndexRange clampRange(ptrdiff_t begin, ptrdiff_t end, size_t length) {
    const auto extent = static_cast<ptrdiff_t>(length);
    const auto clampBound = [extent](ptrdiff_t bound) {
        return static_cast<size_t>(std::clamp(bound < 0 ? bound + extent : bound, ptrdiff_t{0}, extent));
    };
    const size_t first = clampBound(begin);
    return {first, std::max(first, clampBound(end))};
}

}  // namespace tavrin
