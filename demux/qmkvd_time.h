// Matroska ticks to the core's 100 ns units.
#ifndef QMKVD_TIME_H_
#define QMKVD_TIME_H_

#include <stdint.h>

// ticks x TimecodeScale / 100, truncating; the product wraps rather than
// overflowing on nonsense timecodes.
static inline int64_t qmkvd_ticks_to_100ns(int64_t ticks, uint32_t timecode_scale) {
    return (int64_t)((uint64_t)ticks * timecode_scale) / 100;
}

// Time arithmetic on values a damaged file can push to the limits of 64
// bits: two's-complement wrap-around instead of undefined overflow. Sane
// files never come near it.
static inline int64_t qmkvd_wrap_add(int64_t a, int64_t b) { return (int64_t)((uint64_t)a + (uint64_t)b); }
static inline int64_t qmkvd_wrap_sub(int64_t a, int64_t b) { return (int64_t)((uint64_t)a - (uint64_t)b); }
static inline int64_t qmkvd_wrap_mul(int64_t a, int64_t b) { return (int64_t)((uint64_t)a * (uint64_t)b); }

#endif  // QMKVD_TIME_H_
