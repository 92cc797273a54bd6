// Internal: video codec families behind four-character codes, and the
// per-family configuration parsers behind qvid_config_parser.
#ifndef QEXTRACTORCMN_QCMN_VCODEC_H_
#define QEXTRACTORCMN_QCMN_VCODEC_H_

#include <stddef.h>
#include <stdint.h>

#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

enum class VFamily {
    kUnknown = 0,
    kAvc,
    kHevc,
    kMpeg4,
    kH263,
    kMpeg2,
    kVp8,
    kVp9,
    kAv1,
    kMsMpeg4v3,  // MP43/DIV3: known, but no parser and no decoder by default
};

// Family of a four-character code; letters compare without regard to case.
VFamily vfamily_of_fourcc(uint32_t fourcc);

// Each parser returns QVID_CFG_* and fills `out` only on QVID_CFG_OK.
int32_t parse_avc_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_hevc_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_mpeg4_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_h263_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_mpeg2_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_vp8_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_vp9_config(const uint8_t *d, size_t n, qvid_config_out *out);
int32_t parse_av1_config(const uint8_t *d, size_t n, qvid_config_out *out);

// Dimensions above this are taken for corrupt data.
constexpr uint32_t kMaxDimension = 65536;

// Offset of the next 00 00 01 start code at or after `from`, or n.
size_t find_start_code(const uint8_t *d, size_t n, size_t from);

// Runs `fn` on a copy of the caller's record and copies it back only on
// success, so a failed parse leaves the record as the caller zeroed it.
template <typename Fn>
int32_t configure(qvid_config_out *out, Fn fn) {
    qvid_config_out tmp = *out;
    const int32_t r = fn(&tmp);
    if (r == QVID_CFG_OK) *out = tmp;
    return r;
}

}  // namespace qcmn

#endif  // QEXTRACTORCMN_QCMN_VCODEC_H_
