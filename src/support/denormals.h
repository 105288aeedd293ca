/// @file
/// Protection of hot loops against denormal numbers.
#pragma once

#if defined(__SSE__) || defined(_M_X64)
#include <xmmintrin.h>
#endif

#include <cstdint>

namespace tavrin {

/// While one lives, the calling thread's arithmetic takes denormal numbers for zero.
///
/// They lie 750 dB below full scale, and a processor may take a hundred times as long for each: a fade into silence
/// would slow a stream down. Keep it off the model's run and off host code, which may want them. It promises speed and
/// no values: a compiler may move arithmetic across its ends.
class DenormalsAsZero {
public:
    DenormalsAsZero() : _before(mode()) { setMode(_before | kFlush); }
    ~DenormalsAsZero() { setMode(_before); }
    DenormalsAsZero(const DenormalsAsZero&) = delete;
    DenormalsAsZero& operator=(const DenormalsAsZero&) = delete;

private:
#if defined(__SSE__) || defined(_M_X64)
    using Mode = unsigned int;
    static constexpr Mode kFlush = 0x8040;  // results to zero, operands as zero
    static Mode mode() { return _mm_getcsr(); }
    static void setMode(Mode mode) { _mm_setcsr(mode); }
#elif defined(__aarch64__)
    using Mode = std::uint64_t;
    static constexpr Mode kFlush = Mode{1} << 24;
    static Mode mode() {
        Mode mode;
        asm volatile("mrs %0, fpcr" : "=r"(mode));
        return mode;
    }
    static void setMode(Mode mode) { asm volatile("msr fpcr, %0" : : "r"(mode) : "memory"); }
#else
    using Mode = unsigned int;
    static constexpr Mode kFlush = 0;
    static Mode mode() { return 0; }
    static void setMode(Mode /*mode*/) {}
#endif

    Mode _before;
};

}  // namespace tavrin
