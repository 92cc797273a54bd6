// Rewriting of length-prefixed NAL units (AVC, HEVC) to start-code form,
// streamed from the file straight into the caller's buffer.
#ifndef QMKVD_NAL_H_
#define QMKVD_NAL_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_mfal.h"

// Reads `in_size` bytes of one frame at the file position and writes it to
// `out` with every length prefix replaced by 00 00 00 01; with `out` null
// only measures (the position is then restored). `out_cap` < 1 means no
// bound. Returns 0 (a malformed frame gives *out_size 0), -8 when the
// result does not fit (the file is left after the frame), or -1 when the
// position cannot be read or restored.
QCMN_API int32_t modify_nal_header2(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size,
                                    int32_t out_cap, uint32_t nal_length_size, uint32_t *out_size);
// The same for a header-stripped track: `prefix` begins the first length field.
QCMN_API int32_t modify_nal_header3(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size,
                                    int32_t out_cap, uint32_t nal_length_size, uint32_t *out_size,
                                    uint32_t prefix_size, const uint8_t *prefix);

// A frame with 4-byte length fields already in memory, rewritten in place
// (the output is the same length). Returns the output length, or 0 for a
// malformed frame, as the streaming rewriter would deliver it.
uint32_t qmkvd_nal_rewrite_in_place(uint8_t *frame, uint32_t size);
// The length that rewrite would give, without writing.
uint32_t qmkvd_nal_measure_in_place(const uint8_t *frame, uint32_t size);

#endif  // QMKVD_NAL_H_
