// MPEG-4 part 2, MPEG-2 and H.263: start-code delimited headers.
#include "qextractorcmn/qcmn_bitreader.h"
#include "qextractorcmn/qcmn_config_error.h"
#include "qextractorcmn/qcmn_vcodec.h"

namespace qcmn {

namespace {

// ---------------------------------------------------------------- H.263

// Offset of the first picture start code (22 bits 0000 0000 0000 0000
// 1000 00, byte aligned) at or after `from`, or n.
size_t find_h263_psc(const uint8_t *d, size_t n, size_t from) {
    for (size_t i = from; i + 3 <= n; ++i) {
        if (d[i] == 0 && d[i + 1] == 0 && (d[i + 2] & 0xFC) == 0x80) return i;
    }
    return n;
}

bool h263_standard_size(uint32_t format, int32_t *w, int32_t *h) {
    static const int32_t kSizes[6][2] = {{0, 0}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}};
    if (format < 1 || format > 5) return false;
    *w = kSizes[format][0];
    *h = kSizes[format][1];
    return true;
}

// Picture header at d (which starts with the picture start code).
int32_t h263_picture(const uint8_t *d, size_t n, qvid_config_out *out) {
    BitReader br(d, n);
    auto bad = [&br](const char *why) { return malformed(br.ok() ? why : "H.263 picture header cut short"); };
    br.skip(22 + 8);  // PSC, TR
    const uint32_t marker = br.bits(2);  // PTYPE bits 1-2: '10'
    br.skip(3);  // split screen, document camera, freeze picture release
    const uint32_t format = br.bits(3);
    if (!br.ok() || marker != 2) return bad("H.263 picture header: bad PTYPE marker bits");
    int32_t w = 0, h = 0;
    if (format != 7) {
        if (!h263_standard_size(format, &w, &h)) return bad("H.263 picture header: forbidden source format");
    } else {
        // PLUSPTYPE: the optional part, with the source format, is present
        // only when UFEP says so.
        const uint32_t ufep = br.bits(3);
        if (!br.ok()) return bad("H.263 picture header cut short");
        if (ufep == 0) return QVID_CFG_NEED_MORE;
        if (ufep != 1) return bad("H.263 picture header: UFEP out of range");
        const uint32_t plus_format = br.bits(3);
        br.skip(15);  // optional modes, marker, reserved
        br.skip(9);   // MPPTYPE
        if (br.bit()) br.skip(2);  // CPM, PSBI
        if (!br.ok()) return bad("H.263 picture header cut short");
        if (plus_format == 6) {
            const uint32_t par = br.bits(4);
            const uint32_t pwi = br.bits(9);
            const uint32_t one = br.bit();
            const uint32_t phi = br.bits(9);
            if (par == 15) br.skip(16);  // EPAR
            if (!br.ok() || one != 1 || phi == 0 || par == 0)
                return bad("H.263 picture header: bad custom picture format");
            w = (int32_t)((pwi + 1) * 4);
            h = (int32_t)(phi * 4);
        } else if (!h263_standard_size(plus_format, &w, &h)) {
            return bad("H.263 picture header: forbidden source format");
        }
    }
    out->width = w;
    out->height = h;
    out->bit_depth = 8;
    out->chroma_format = 1;
    return QVID_CFG_OK;
}

int32_t h263_stream(const uint8_t *d, size_t n, qvid_config_out *out) {
    const size_t at = find_h263_psc(d, n, 0);
    if (at >= n) return QVID_CFG_NEED_MORE;
    return h263_picture(d + at, n - at, out);
}

// ---------------------------------------------------------------- MPEG-4

struct Mpeg4State {
    uint32_t profile_level = 0;  // from the visual object sequence
    uint32_t vo_verid = 1;       // from the visual object, default for the VOL
};

int32_t mpeg4_vol(const uint8_t *d, size_t n, const Mpeg4State &st, qvid_config_out *out) {
    BitReader br(d, n);
    auto bad = [&br](const char *why) { return malformed(br.ok() ? why : "MPEG-4 VOL header cut short"); };
    br.skip(1);  // random_accessible_vol
    const uint32_t object_type = br.bits(8);
    uint32_t verid = st.vo_verid;
    if (br.bit()) {  // is_object_layer_identifier
        verid = br.bits(4);
        br.skip(3);  // video_object_layer_priority
    }
    if (br.bits(4) == 15) br.skip(16);  // aspect_ratio_info: extended PAR
    uint32_t chroma_format = 1;
    if (br.bit()) {  // vol_control_parameters
        chroma_format = br.bits(2);
        br.skip(1);  // low_delay
        if (br.bit()) br.skip(15 + 1 + 15 + 1 + 15 + 1 + 3 + 11 + 1 + 15 + 1);  // vbv_parameters
    }
    const uint32_t shape = br.bits(2);
    if (!br.ok()) return bad("MPEG-4 VOL header cut short");
    if (shape != 0) {
        // Not rectangular: the layer carries no frame size, and the rest of
        // its header depends on shape tools no decoder here supports.
        out->profile = (int32_t)object_type;
        out->level = (int32_t)st.profile_level;
        return QVID_CFG_OK;
    }
    br.skip(1);  // marker
    const uint32_t resolution = br.bits(16);
    br.skip(1);  // marker
    if (!br.ok() || resolution == 0) return bad("MPEG-4 VOL header: vop_time_increment_resolution is 0");
    if (br.bit()) {  // fixed_vop_rate
        unsigned increment_bits = 1;
        while (increment_bits < 16 && ((resolution - 1) >> increment_bits) != 0) ++increment_bits;
        br.skip(increment_bits);
    }
    br.skip(1);
    const uint32_t width = br.bits(13);
    br.skip(1);
    const uint32_t height = br.bits(13);
    br.skip(1);
    const uint32_t interlaced = br.bit();
    br.skip(1);  // obmc_disable
    const uint32_t sprite = br.bits(verid == 1 ? 1 : 2);
    if (sprite == 1 || sprite == 2) {  // static sprite or global motion compensation
        if (sprite != 2) br.skip(4 * 14);  // sprite size and offset with markers
        br.skip(6 + 2 + 1);  // warping points, accuracy, brightness change
        if (sprite != 2) br.skip(1);  // low_latency_sprite_enable
    }
    uint32_t bit_depth = 8;
    if (br.bit()) {  // not_8_bit
        br.skip(4);  // quant_precision
        bit_depth = br.bits(4);
    }
    if (br.bit()) {  // quant_type
        for (int m = 0; m < 2; ++m) {  // intra, then non-intra matrix
            if (!br.bit()) continue;
            for (int i = 0; i < 64 && br.ok(); ++i) {
                if (br.bits(8) == 0) break;  // a zero ends a shortened matrix
            }
        }
    }
    if (verid != 1) br.skip(1);  // quarter_sample
    if (!br.bit()) {  // complexity_estimation_disable == 0
        const uint32_t method = br.bits(2);
        if (method == 0 || method == 1) {
            if (!br.bit()) br.skip(6);  // shape complexity
            if (!br.bit()) br.skip(4);  // texture set 1
            br.skip(1);
            if (!br.bit()) br.skip(4);  // texture set 2
            if (!br.bit()) br.skip(6);  // motion compensation
            br.skip(1);
            if (method == 1 && !br.bit()) br.skip(2);  // version 2
        }
    }
    br.skip(1);  // resync_marker_disable
    const uint32_t data_partitioned = br.bit();
    if (!br.ok() || width == 0 || height == 0) return bad("MPEG-4 VOL header: frame size is 0");
    out->width = (int32_t)width;
    out->height = (int32_t)height;
    out->profile = (int32_t)object_type;
    out->level = (int32_t)st.profile_level;
    out->bit_depth = (int32_t)bit_depth;
    out->chroma_format = (int32_t)chroma_format;
    out->data_partitioned = (int32_t)data_partitioned;
    out->interlaced = (int32_t)interlaced;
    return QVID_CFG_OK;
}

int32_t mpeg4_stream(const uint8_t *d, size_t n, qvid_config_out *out) {
    Mpeg4State st;
    bool any_start_code = false;
    for (size_t sc = find_start_code(d, n, 0); sc < n; sc = find_start_code(d, n, sc + 3)) {
        any_start_code = true;
        if (n - sc < 4) break;
        const uint8_t code = d[sc + 3];
        const uint8_t *p = d + sc + 4;
        const size_t left = n - sc - 4;
        if (code == 0xB0) {  // visual_object_sequence
            if (left >= 1) st.profile_level = p[0];
        } else if (code == 0xB5) {  // visual_object
            BitReader br(p, left);
            if (br.bit()) {
                const uint32_t verid = br.bits(4);
                if (br.ok()) st.vo_verid = verid;
            }
        } else if (code >= 0x20 && code <= 0x2F) {  // video_object_layer
            return mpeg4_vol(p, left, st, out);
        }
    }
    // Short-header (H.263 baseline) pictures have no layer header; only a
    // picture that starts the input counts, since 00 00 8x may occur
    // inside ordinary VOP data.
    if (!any_start_code && n >= 3 && find_h263_psc(d, n, 0) == 0) return h263_picture(d, n, out);
    return QVID_CFG_NEED_MORE;
}

// ---------------------------------------------------------------- MPEG-2

int32_t mpeg2_stream(const uint8_t *d, size_t n, qvid_config_out *out) {
    size_t sc = find_start_code(d, n, 0);
    while (sc < n && !(n - sc >= 4 && d[sc + 3] == 0xB3)) sc = find_start_code(d, n, sc + 3);
    if (sc >= n) return QVID_CFG_NEED_MORE;
    BitReader br(d + sc + 4, n - sc - 4);
    uint32_t width = br.bits(12);
    uint32_t height = br.bits(12);
    if (!br.ok()) return malformed("MPEG-2 sequence header cut short");
    if (width == 0 || height == 0) return malformed("MPEG-2 sequence header: frame size is 0");
    uint32_t profile = 0, level = 0, chroma = 1, interlaced = 0;
    // The sequence extension (MPEG-2 only) follows before the first GOP or
    // picture and carries two more bits of each dimension.
    for (size_t e = find_start_code(d, n, sc + 4); e < n && n - e >= 4; e = find_start_code(d, n, e + 3)) {
        const uint8_t code = d[e + 3];
        if (code == 0xB5) {
            BitReader ext(d + e + 4, n - e - 4);
            if (ext.bits(4) != 1) continue;  // another extension
            const uint32_t profile_level = ext.bits(8);
            const uint32_t progressive = ext.bit();
            const uint32_t chroma_format = ext.bits(2);
            const uint32_t width_ext = ext.bits(2);
            const uint32_t height_ext = ext.bits(2);
            if (!ext.ok()) return malformed("MPEG-2 sequence extension cut short");
            width |= width_ext << 12;
            height |= height_ext << 12;
            profile = (profile_level >> 4) & 7;
            level = profile_level & 15;
            chroma = chroma_format;
            interlaced = progressive ? 0 : 1;
            break;
        }
        if (code == 0xB8 || code == 0x00 || code == 0xB3) break;  // GOP, picture, next sequence
    }
    out->width = (int32_t)width;
    out->height = (int32_t)height;
    out->profile = (int32_t)profile;
    out->level = (int32_t)level;
    out->bit_depth = 8;
    out->chroma_format = (int32_t)chroma;
    out->interlaced = (int32_t)interlaced;
    return QVID_CFG_OK;
}

}  // namespace

int32_t parse_mpeg4_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return mpeg4_stream(d, n, o); });
}

int32_t parse_h263_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return h263_stream(d, n, o); });
}

int32_t parse_mpeg2_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return mpeg2_stream(d, n, o); });
}

}  // namespace qcmn
