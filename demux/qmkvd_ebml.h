// EBML variable-length integers (element IDs and sizes) and big-endian
// conversion. IDs keep their length-marker bit; sizes lose it. The unknown
// size gets no special meaning: it is returned as the number it encodes.
#ifndef QMKVD_EBML_H_
#define QMKVD_EBML_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_mfal.h"

QCMN_API int32_t qmkvd_get_clz(uint8_t byte);

// Longest element header: a 4-byte ID and an 8-byte size.
#define QMKVD_MAX_HEADER 12

// File readers: 0 on success, -1 on failure (read failure or malformed).
QCMN_API int32_t qmkvd_ebml_get_id_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint64_t *size);
QCMN_API int32_t qmkvd_ebml_get_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint64_t *size);
QCMN_API int32_t qmkvd_ebml_get_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size);
QCMN_API int32_t qmkvd_ebml_get_len32_rel(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size, uint32_t *length);
QCMN_API int32_t qmkvd_ebml_get_id_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint32_t *size);

// Memory reader: the header length (ID + size bytes) or -1.
QCMN_API int32_t qmkvd_ebml_get_id_len64_buff(const uint8_t *buf, int32_t length, uint32_t *id, uint64_t *size);

// The same decoding, inline for the loops that walk whole indexes and
// clusters from memory. `buf` must not be null.
static inline int32_t qmkvd_ebml_header_in(const uint8_t *buf, uint64_t length, uint32_t *id, uint64_t *size) {
    if (length < 2 || buf[0] == 0) return -1;
    if ((buf[0] & buf[1]) >= 0x80) {  // the common 1-byte ID with a 1-byte size
        *id = buf[0];
        *size = buf[1] & 0x7F;
        return 2;
    }
    const int32_t n = __builtin_clz((uint32_t)buf[0]) - 24;  // ID bytes after the first
    if (n > 3 || (uint64_t)n + 2 > length) return -1;
    const uint8_t lead = buf[n + 1];
    if (lead == 0) return -1;
    const int32_t m = __builtin_clz((uint32_t)lead) - 24;  // size bytes after the first
    if ((uint64_t)(n + m) + 2 > length) return -1;
    uint32_t i = buf[0];
    for (int32_t k = 1; k <= n; ++k) i = i << 8 | buf[k];
    uint64_t s = lead & (0x7F >> m);
    for (int32_t k = 0; k < m; ++k) s = s << 8 | buf[n + 2 + k];
    *id = i;
    *size = s;
    return n + m + 2;
}

QCMN_API uint64_t qmkvd_b2v_u64(const uint8_t *bytes, int32_t count);

// qmkvd_b2v_u64, inline.
static inline uint64_t qmkvd_b2v_in(const uint8_t *bytes, int32_t count) {
    uint64_t v = 0;
    for (int32_t i = 0; i < count; ++i) v = v << 8 | bytes[i];
    return v;
}
QCMN_API uint32_t qmkvd_b2v_u32(const uint8_t *bytes, int32_t count);

#endif  // QMKVD_EBML_H_
