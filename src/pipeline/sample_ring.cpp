#include "pipeline/sample_ring.h"

#include "dsp/row_loops.h"

void tavrin::SampleRing::append(const float* left, const float* right, size_t step, size_t n) {
    for (size_t written = 0; written < n;) {
        const size_t at = _end % _capacity;
        const size_t count = std::min(n - written, _capacity - at);
        float* const rows[] = {row(0) + at, row(1) + at};
        if (step == 2 && right == left + 1) {
            deinterleaveFinite(left + 2 * written, count, rows[0], rows[1]);
        } else {
            for (size_t i = 0; i < count; ++i) rows[0][i] = finiteOrSilence(left[(written + i) * step]);
            for (size_t i = 0; i < count; ++i) rows[1][i] = finiteOrSilence(right[(written + i) * step]);
        }
        written += count;
        _end += count;
    }
}
