// PCM sample-format conversions. `count` is a number of samples. Each
// routine also works in place (destination at the source's address);
// any other overlap is unsupported.
#ifndef QCMN_PCM_H_
#define QCMN_PCM_H_

#include <stddef.h>
#include <stdint.h>

#include "common/qcmn_export.h"

// Widening (in place from the last sample back).
QCMN_API void memcpy_to_i16_from_u8(int16_t *dst, const uint8_t *src, size_t count);
QCMN_API void memcpy_to_float_from_i16(float *dst, const int16_t *src, size_t count);
QCMN_API void memcpy_to_float_from_u8(float *dst, const uint8_t *src, size_t count);
// `src` is packed 24-bit, three bytes per sample, least significant first.
QCMN_API void memcpy_to_float_from_p24(float *dst, const uint8_t *src, size_t count);

// Narrowing or same width (in place from the first sample on).
QCMN_API void memcpy_to_i16_from_i32(int16_t *dst, const int32_t *src, size_t count);
// Saturates, rounds half away from zero; NaN gives 32767.
QCMN_API void memcpy_to_i16_from_float(int16_t *dst, const float *src, size_t count);
QCMN_API void memcpy_to_i16_from_p24(int16_t *dst, const uint8_t *src, size_t count);
QCMN_API void memcpy_to_float_from_i32(float *dst, const int32_t *src, size_t count);

#endif  // QCMN_PCM_H_
