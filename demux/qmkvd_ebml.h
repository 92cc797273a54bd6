// EBML variable-length integers (element IDs and sizes) and big-endian
// conversion. IDs keep their length-marker bit; sizes lose it. The unknown
// size gets no special meaning: it is returned as the number it encodes.
#ifndef QMKVD_EBML_H_
#define QMKVD_EBML_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_mfal.h"

QCMN_API int32_t qmkvd_get_clz(uint8_t byte);

// File readers: 0 on success, -1 on failure (read failure or malformed).
QCMN_API int32_t qmkvd_ebml_get_id_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint64_t *size);
QCMN_API int32_t qmkvd_ebml_get_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint64_t *size);
QCMN_API int32_t qmkvd_ebml_get_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size);
QCMN_API int32_t qmkvd_ebml_get_len32_rel(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size, uint32_t *length);
QCMN_API int32_t qmkvd_ebml_get_id_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint32_t *size);

// Memory reader: the header length (ID + size bytes) or -1.
QCMN_API int32_t qmkvd_ebml_get_id_len64_buff(const uint8_t *buf, int32_t length, uint32_t *id, uint64_t *size);

QCMN_API uint64_t qmkvd_b2v_u64(const uint8_t *bytes, int32_t count);
QCMN_API uint32_t qmkvd_b2v_u32(const uint8_t *bytes, int32_t count);

#endif  // QMKVD_EBML_H_
