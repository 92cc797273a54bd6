// Key-frame detection from the first bytes of a video frame. Every test
// stays within `length`: a header that would need a byte beyond it is
// treated as "not a key frame", which keeps the seek crawl from landing on
// a frame it cannot vouch for.
#include "common/qcmn_vkeyfrm.h"

namespace {

// MPEG-4 part 2: short-header (H.263-style) pictures and VOP headers.
int32_t mpeg4_key(const uint8_t *b, int32_t length) {
    if (length < 5) return 0;
    for (int32_t i = 0; i <= length - 5; ++i) {
        if (b[i] != 0 || b[i + 1] != 0) continue;
        if ((b[i + 2] & 0xFC) == 0x80) {
            if ((b[i + 3] & 3) != 2) return 0;
            // A source format of 7 is an extended header the test does not parse.
            if ((b[i + 4] & 0x1C) != 0x1C) return (b[i + 4] & 2) == 0 ? 1 : 0;
        } else if (b[i + 2] == 1 && b[i + 3] == 0xB6) {
            return b[i + 4] < 0x40 ? 1 : 0;  // vop_coding_type 0: I-VOP
        }
    }
    return 0;
}

// H.263 and Sorenson Spark picture headers.
int32_t h263_key(const uint8_t *b, int32_t length) {
    if (length < 7) return 0;
    for (int32_t i = 0; i <= length - 7; ++i) {
        if (b[i] != 0 || b[i + 1] != 0) continue;
        const int c = (b[i + 2] >> 2) & 0x3F;
        if (c == 0x21) {
            // Sorenson: the picture type sits after the size fields, whose
            // width depends on the size code.
            if (b[i + 3] != 0 || b[i + 4] >= 0x80) {
                if (i + 8 >= length) return 0;
                return (b[i + 8] & 0x60) == 0 ? 1 : 0;
            }
            return (b[i + 6] & 0x60) == 0 ? 1 : 0;
        }
        if (c == 0x20) {
            if ((b[i + 3] & 3) != 2) return 0;
            const uint8_t p = b[i + 4];
            if ((p & 0x1C) != 0x1C) return (p & 2) == 0 ? 1 : 0;
            // PLUSPTYPE: the update field tells whether the optional part is present.
            const int u = ((p & 3) << 1) | (b[i + 5] >> 7);
            if (u != 1) return (b[i + 5] & 0x70) == 0 ? 1 : 0;
            if (i + 7 >= length) return 0;
            return (b[i + 7] & 0x1C) == 0 ? 1 : 0;
        }
    }
    return 0;
}

// Start-code scan shared by H.264 and HEVC; `classify` returns 1 key,
// 0 not key, -1 keep scanning.
template <typename Classify>
int32_t annexb_key(const uint8_t *b, int32_t length, Classify classify) {
    if (length < 4) return 0;
    for (int32_t i = 0; i <= length - 4; ++i) {
        if (b[i] != 0 || b[i + 1] != 0 || b[i + 2] != 1) continue;
        const int r = classify(b[i + 3]);
        if (r >= 0) return r;
    }
    return 0;
}

int avc_nal(uint8_t h) {
    const int t = h & 0x1F;
    if (t == 1) return 0;  // non-IDR slice
    if (t == 5) return 1;  // IDR slice
    return -1;             // parameter sets, SEI, delimiters
}

int hevc_nal(uint8_t h) {
    const int t = (h >> 1) & 0x3F;
    if (t >= 16 && t <= 21) return 1;  // BLA, IDR, CRA
    if (t < 10) return 0;              // ordinary slices
    return -1;
}

}  // namespace

int32_t qcmn_is_vkeyfrm(qcmn_media_type media_type, const uint8_t *data, int32_t length) {
    const int mt = (int)media_type;
    if (mt < QCMN_MT_VIDEO_MPEG4 || mt > QCMN_MT_VIDEO_VP9) return 0;
    if (data == nullptr || length < 1) return 0;
    const uint8_t *b = data;
    switch (mt) {
    case QCMN_MT_VIDEO_MPEG4:
        return mpeg4_key(b, length);
    case QCMN_MT_VIDEO_H263:
    case QCMN_MT_VIDEO_SORENSON:
        return h263_key(b, length);
    case QCMN_MT_VIDEO_H264:
        return annexb_key(b, length, avc_nal);
    case QCMN_MT_VIDEO_HEVC:
        return annexb_key(b, length, hevc_nal);
    case QCMN_MT_VIDEO_WMV7:
    case QCMN_MT_VIDEO_DIVX3:
        return b[0] < 0x40 ? 1 : 0;
    case QCMN_MT_VIDEO_WMV8:
        return b[0] < 0x80 ? 1 : 0;
    case QCMN_MT_VIDEO_VP8:
        if (length < 6) return 0;
        return (b[3] == 0x9D && b[4] == 0x01 && b[5] == 0x2A) ? 1 : 0;
    case QCMN_MT_VIDEO_VP9:
        if (b[0] & 0x08) {
            if (length < 2) return 0;
            return b[1] < 0x80 ? 1 : 0;
        }
        return (b[0] & 0x04) == 0 ? 1 : 0;
    default:
        // WMV9, RealVideo, MPEG-4 v3 and VC-1 headers are not inspected.
        return 0;
    }
}
