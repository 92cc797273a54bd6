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

// A big-endian 4-byte length field.
static inline uint32_t qmkvd_nal_length4(const uint8_t *p) {
    return (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3];
}

// The length that rewrite gives, measured wherever the frame's bytes are:
// `length_at(offset, &length)` fetches the 4-byte length field at that
// offset of the frame, false when it cannot. A field that cannot be read, or that leaves no byte
// of the frame after it, makes the frame malformed (0).
template <typename LengthAt>
uint32_t qmkvd_nal_measure(uint32_t size, LengthAt length_at) {
    uint64_t remaining = size;
    uint64_t offset = 0;
    while (remaining > 0) {
        uint32_t length = 0;
        if (remaining <= 4 || !length_at(offset, &length)) return 0;
        remaining -= 4;
        // A unit announced longer than the frame is cut at the frame's end.
        const uint64_t n = length < remaining ? length : remaining;
        offset += 4 + n;
        remaining -= n;
    }
    return size;
}

#endif  // QMKVD_NAL_H_
