// Entry point of the video configuration parsers and the table of codec
// families that it shares with the device capability query.
#include <string.h>

#include "qextractorcmn/qcmn_config_error.h"
#include "qextractorcmn/qcmn_vcodec.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

namespace {

struct FamilyCode {
    char code[5];  // upper-case spelling; matching ignores case
    VFamily family;
};

// Every spelling the plug-in accepts, plus common aliases of the same codecs.
const FamilyCode kCodes[] = {
    {"AVC1", VFamily::kAvc},  {"AVCC", VFamily::kAvc},  {"H264", VFamily::kAvc},
    {"X264", VFamily::kAvc},  {"M264", VFamily::kAvc},  {"DAVC", VFamily::kAvc},
    {"HVC1", VFamily::kHevc}, {"HEV1", VFamily::kHevc}, {"HVCC", VFamily::kHevc},
    {"H265", VFamily::kHevc}, {"X265", VFamily::kHevc}, {"HEVC", VFamily::kHevc},
    {"MP4V", VFamily::kMpeg4}, {"FMP4", VFamily::kMpeg4}, {"XVID", VFamily::kMpeg4},
    {"DIVX", VFamily::kMpeg4}, {"DX50", VFamily::kMpeg4}, {"M4S2", VFamily::kMpeg4},
    {"H263", VFamily::kH263}, {"S263", VFamily::kH263}, {"D263", VFamily::kH263},
    {"MPG2", VFamily::kMpeg2}, {"MPEG", VFamily::kMpeg2}, {"MP2V", VFamily::kMpeg2},
    {"VP80", VFamily::kVp8},  {"VP90", VFamily::kVp9},  {"AV01", VFamily::kAv1},
    {"AV1C", VFamily::kAv1},  {"MP43", VFamily::kMsMpeg4v3}, {"DIV3", VFamily::kMsMpeg4v3},
};

char upper(char c) { return (c >= 'a' && c <= 'z') ? (char)(c - 'a' + 'A') : c; }

}  // namespace

VFamily vfamily_of_fourcc(uint32_t fourcc) {
    char s[4];
    for (int i = 0; i < 4; ++i) s[i] = upper((char)((fourcc >> (8 * i)) & 0xFF));
    for (const FamilyCode &c : kCodes) {
        if (memcmp(c.code, s, 4) == 0) return c.family;
    }
    return VFamily::kUnknown;
}

size_t find_start_code(const uint8_t *d, size_t n, size_t from) {
    for (size_t i = from; i + 3 <= n; ++i) {
        if (d[i + 2] > 1) {
            i += 2;  // none of the next two positions can start a code
            continue;
        }
        if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1) return i;
    }
    return n;
}

}  // namespace qcmn

using namespace qcmn;

namespace {

int32_t parse_family(VFamily family, const uint8_t *d, size_t n, qvid_config_out *out) {
    switch (family) {
        case VFamily::kAvc: return parse_avc_config(d, n, out);
        case VFamily::kHevc: return parse_hevc_config(d, n, out);
        case VFamily::kMpeg4: return parse_mpeg4_config(d, n, out);
        case VFamily::kH263: return parse_h263_config(d, n, out);
        case VFamily::kMpeg2: return parse_mpeg2_config(d, n, out);
        case VFamily::kVp8: return parse_vp8_config(d, n, out);
        case VFamily::kVp9: return parse_vp9_config(d, n, out);
        case VFamily::kAv1: return parse_av1_config(d, n, out);
        case VFamily::kMsMpeg4v3:
        case VFamily::kUnknown:
            break;
    }
    // No parser: configured, dimensions unknown (the caller keeps its own).
    return QVID_CFG_OK;
}

}  // namespace

QCMN_API int32_t qvid_config_parser(const qvid_config_in *in, qvid_config_out *out) {
    clear_config_error();
    if (in == nullptr || out == nullptr) return QVID_CFG_ERR_ARG;
    if (in->data == nullptr && in->size != 0) return QVID_CFG_ERR_ARG;
    const int32_t r = parse_family(vfamily_of_fourcc(in->fourcc), in->data, in->size, out);
    // A broken parameter set before a good one leaves no reason behind.
    if (r != QVID_CFG_ERR_MALFORMED) clear_config_error();
    return r;
}
