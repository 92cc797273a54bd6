// Float-to-integer truncation that saturates instead of being undefined:
// files may hold NaN, negative or huge values where integers are expected.
#ifndef QMKVD_FLOAT_H_
#define QMKVD_FLOAT_H_

#include <stdint.h>

static inline uint32_t qmkvd_d2u32(double v) {
    if (!(v > 0)) return 0;
    if (v >= 4294967295.0) return UINT32_MAX;
    return (uint32_t)v;
}

static inline int32_t qmkvd_d2i32(double v) {
    if (v != v) return 0;
    if (v <= -2147483648.0) return INT32_MIN;
    if (v >= 2147483647.0) return INT32_MAX;
    return (int32_t)v;
}

static inline uint64_t qmkvd_d2u64(double v) {
    if (!(v > 0)) return 0;
    if (v >= 18446744073709551615.0) return UINT64_MAX;
    return (uint64_t)v;
}

static inline int64_t qmkvd_d2i64(double v) {
    if (v != v) return 0;
    if (v <= -9223372036854775808.0) return INT64_MIN;
    if (v >= 9223372036854775807.0) return INT64_MAX;
    return (int64_t)v;
}

#endif  // QMKVD_FLOAT_H_
