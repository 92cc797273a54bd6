// VP8, VP9 and AV1: frame headers (VP8, VP9) and the sequence header OBU
// (AV1).
#include "qextractorcmn/qcmn_bitreader.h"
#include "qextractorcmn/qcmn_config_error.h"
#include "qextractorcmn/qcmn_vcodec.h"

namespace qcmn {

namespace {

// ---------------------------------------------------------------- VP8

int32_t vp8_frame(const uint8_t *d, size_t n, qvid_config_out *out) {
    if (n == 0) return QVID_CFG_NEED_MORE;
    if (n < 3) return malformed("VP8 frame header cut short");
    const uint32_t version = (d[0] >> 1) & 7;
    if (version > 3) return malformed("VP8 frame header: version out of range");
    if (d[0] & 1) return QVID_CFG_NEED_MORE;  // inter frame: no size in it
    if (n < 10) return malformed("VP8 key frame header cut short");
    if (d[3] != 0x9D || d[4] != 0x01 || d[5] != 0x2A) return malformed("VP8 key frame header: bad start code");
    // 14-bit sizes; the top two bits are an upscaling hint for display only.
    const int32_t w = (d[6] | d[7] << 8) & 0x3FFF;
    const int32_t h = (d[8] | d[9] << 8) & 0x3FFF;
    if (w == 0 || h == 0) return malformed("VP8 key frame header: frame size is 0");
    out->width = w;
    out->height = h;
    out->profile = (int32_t)version;
    out->bit_depth = 8;
    out->chroma_format = 1;
    return QVID_CFG_OK;
}

// ---------------------------------------------------------------- VP9

bool vp9_color_config(BitReader &br, uint32_t profile, qvid_config_out *out) {
    uint32_t bit_depth = 8;
    if (profile >= 2) bit_depth = br.bit() ? 12 : 10;
    uint32_t ss_x = 1, ss_y = 1;
    if (br.bits(3) != 7) {  // color_space other than sRGB
        br.skip(1);         // color_range
        if (profile == 1 || profile == 3) {
            ss_x = br.bit();
            ss_y = br.bit();
            br.skip(1);  // reserved_zero
        }
    } else {
        if (profile != 1 && profile != 3) return false;  // RGB needs 4:4:4 profiles
        ss_x = ss_y = 0;
        br.skip(1);  // reserved_zero
    }
    out->bit_depth = (int32_t)bit_depth;
    out->chroma_format = ss_x && ss_y ? 1 : ss_x ? 2 : ss_y ? 0 : 3;
    return br.ok();
}

int32_t vp9_frame(const uint8_t *d, size_t n, qvid_config_out *out) {
    if (n == 0) return QVID_CFG_NEED_MORE;
    BitReader br(d, n);
    auto bad = [&br](const char *why) { return malformed(br.ok() ? why : "VP9 frame header cut short"); };
    if (br.bits(2) != 2) return bad("VP9 frame header: bad frame_marker");
    const uint32_t low = br.bit();
    const uint32_t profile = br.bit() << 1 | low;
    if (profile == 3) br.skip(1);  // reserved_zero
    if (br.bit()) return br.ok() ? QVID_CFG_NEED_MORE : bad("VP9 frame header cut short");  // show_existing_frame
    const uint32_t frame_type = br.bit();
    const uint32_t show_frame = br.bit();
    const uint32_t error_resilient = br.bit();
    bool intra_only = false;
    if (frame_type != 0) {
        intra_only = show_frame ? false : br.bit() != 0;
        if (!error_resilient) br.skip(2);  // reset_frame_context
        if (!br.ok()) return bad("VP9 frame header cut short");
        if (!intra_only) return QVID_CFG_NEED_MORE;  // inter frame: size by reference
    }
    if (br.bits(24) != 0x498342) return bad("VP9 frame header: bad frame_sync_code");
    if (frame_type == 0 || profile > 0) {
        if (!vp9_color_config(br, profile, out)) return bad("VP9 frame header: RGB in a profile without 4:4:4");
    } else {
        out->bit_depth = 8;
        out->chroma_format = 1;
    }
    if (intra_only) br.skip(8);  // refresh_frame_flags
    const uint32_t w = br.bits(16) + 1;
    const uint32_t h = br.bits(16) + 1;
    if (!br.ok()) return bad("VP9 frame header cut short");
    out->width = (int32_t)w;
    out->height = (int32_t)h;
    out->profile = (int32_t)profile;
    return QVID_CFG_OK;
}

// A superframe (several frames in one block) ends with an index whose
// first and last bytes are the same marker 110 s s n n n.
int32_t vp9_block(const uint8_t *d, size_t n, qvid_config_out *out) {
    if (n >= 1 && (d[n - 1] & 0xE0) == 0xC0) {
        const uint8_t marker = d[n - 1];
        const size_t frames = (marker & 7) + 1;
        const size_t size_bytes = ((marker >> 3) & 3) + 1;
        const size_t index = 2 + size_bytes * frames;
        if (n >= index && d[n - index] == marker) {
            const uint8_t *p = d + n - index + 1;
            size_t o = 0;
            const size_t data_end = n - index;
            int32_t last = QVID_CFG_NEED_MORE;
            for (size_t f = 0; f < frames; ++f) {
                size_t len = 0;
                for (size_t b = 0; b < size_bytes; ++b) len |= (size_t)p[f * size_bytes + b] << (8 * b);
                if (len > data_end - o) return malformed("VP9 superframe index: a frame runs past the data");
                last = vp9_frame(d + o, len, out);
                if (last != QVID_CFG_NEED_MORE) return last;
                o += len;
            }
            return last;
        }
    }
    return vp9_frame(d, n, out);
}

// ---------------------------------------------------------------- AV1

bool av1_color_config(BitReader &br, uint32_t seq_profile, qvid_config_out *out) {
    const uint32_t high_bitdepth = br.bit();
    uint32_t bit_depth = high_bitdepth ? 10 : 8;
    if (seq_profile == 2 && high_bitdepth) bit_depth = br.bit() ? 12 : 10;
    const uint32_t mono = seq_profile == 1 ? 0 : br.bit();
    uint32_t primaries = 2, transfer = 2, matrix = 2;
    if (br.bit()) {  // color_description_present_flag
        primaries = br.bits(8);
        transfer = br.bits(8);
        matrix = br.bits(8);
    }
    uint32_t ss_x = 1, ss_y = 1;
    if (mono) {
        br.skip(1);  // color_range
        out->chroma_format = 0;
        out->bit_depth = (int32_t)bit_depth;
        return br.ok();
    }
    if (primaries == 1 && transfer == 13 && matrix == 0) {  // sRGB
        ss_x = ss_y = 0;
    } else {
        br.skip(1);  // color_range
        if (seq_profile == 1) {
            ss_x = ss_y = 0;
        } else if (seq_profile == 2) {
            ss_x = 1;
            ss_y = 0;
            if (bit_depth == 12) {
                ss_x = br.bit();
                ss_y = ss_x ? br.bit() : 0;
            }
        }
        if (ss_x && ss_y) br.skip(2);  // chroma_sample_position
    }
    br.skip(1);  // separate_uv_delta_q
    out->bit_depth = (int32_t)bit_depth;
    out->chroma_format = ss_x && ss_y ? 1 : ss_x ? 2 : 3;
    return br.ok();
}

int32_t av1_sequence_header(const uint8_t *d, size_t n, qvid_config_out *out) {
    BitReader br(d, n);
    const uint32_t seq_profile = br.bits(3);
    br.skip(1);  // still_picture
    const uint32_t reduced = br.bit();
    uint32_t level0 = 0;
    if (reduced) {
        level0 = br.bits(5);
    } else {
        uint32_t decoder_model_info = 0, buffer_delay_bits = 0;
        if (br.bit()) {  // timing_info_present_flag
            br.skip(32 + 32);  // num_units_in_display_tick, time_scale
            if (br.bit()) br.uvlc();  // equal_picture_interval: num_ticks_per_picture_minus_1
            decoder_model_info = br.bit();
            if (decoder_model_info) {
                buffer_delay_bits = br.bits(5) + 1;
                br.skip(32 + 5 + 5);  // decoding tick, removal/presentation time lengths
            }
        }
        const uint32_t initial_display_delay = br.bit();
        const uint32_t points = br.bits(5) + 1;
        for (uint32_t i = 0; i < points && br.ok(); ++i) {
            br.skip(12);  // operating_point_idc
            const uint32_t level = br.bits(5);
            if (i == 0) level0 = level;
            if (level > 7) br.skip(1);  // seq_tier
            if (decoder_model_info && br.bit()) br.skip(2 * buffer_delay_bits + 1);
            if (initial_display_delay && br.bit()) br.skip(4);
        }
    }
    const uint32_t width_bits = br.bits(4) + 1;
    const uint32_t height_bits = br.bits(4) + 1;
    const uint64_t w = (uint64_t)br.bits(width_bits) + 1;
    const uint64_t h = (uint64_t)br.bits(height_bits) + 1;
    if (!br.ok()) return malformed("AV1 sequence header cut short");
    if (seq_profile > 2) return malformed("AV1 sequence header: seq_profile out of range");
    // The remaining fields lead to the colour configuration (bit depth,
    // chroma subsampling).
    if (!reduced && br.bit()) br.skip(4 + 3);  // frame id numbers: lengths
    br.skip(3);  // 128x128 superblock, filter intra, intra edge filter
    if (!reduced) {
        br.skip(4);  // interintra, masked compound, warped motion, dual filter
        const uint32_t order_hint = br.bit();
        if (order_hint) br.skip(2);  // jnt_comp, ref_frame_mvs
        uint32_t force_screen_content = 2;  // "select"
        if (!br.bit()) force_screen_content = br.bit();
        if (force_screen_content > 0 && !br.bit()) br.skip(1);  // seq_force_integer_mv
        if (order_hint) br.skip(3);  // order_hint_bits_minus_1
    }
    br.skip(3);  // superres, cdef, restoration
    const bool colour = av1_color_config(br, seq_profile, out);
    br.skip(1);  // film_grain_params_present
    if (!colour || !br.ok()) return malformed("AV1 sequence header cut short");
    out->width = (int32_t)w;
    out->height = (int32_t)h;
    out->profile = (int32_t)seq_profile;
    out->level = (int32_t)level0;
    return QVID_CFG_OK;
}

// Low-overhead OBU stream: the first sequence header OBU configures.
int32_t av1_obus(const uint8_t *d, size_t n, qvid_config_out *out) {
    size_t o = 0;
    while (o < n) {
        const uint8_t h = d[o];
        if (h & 0x80) return malformed("AV1 OBU header: obu_forbidden_bit set");
        const uint32_t type = (h >> 3) & 15;
        const size_t header = (h & 4) ? 2 : 1;
        if (n - o < header) return malformed("AV1 OBU header cut short");
        o += header;
        size_t size = n - o;
        if (h & 2) {  // obu_has_size_field: leb128
            uint64_t v = 0;
            size_t i = 0;
            for (;; ++i) {
                if (i == 8 || o + i >= n) return malformed("AV1 OBU size field malformed");
                v |= (uint64_t)(d[o + i] & 0x7F) << (7 * i);
                if (!(d[o + i] & 0x80)) break;
            }
            o += i + 1;
            if (v > n - o) return malformed("AV1 OBU runs past the data");
            size = (size_t)v;
        }
        if (type == 1) return av1_sequence_header(d + o, size, out);
        o += size;
    }
    return QVID_CFG_NEED_MORE;
}

int32_t av1_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    if (n == 0) return QVID_CFG_NEED_MORE;
    // An av1C record starts with marker 1 and version 1; an OBU header can
    // never have its top bit set.
    if (d[0] & 0x80) {
        if (d[0] != 0x81 || n < 4) return malformed("AV1 configuration record (av1C) malformed");
        return av1_obus(d + 4, n - 4, out);
    }
    return av1_obus(d, n, out);
}

}  // namespace

int32_t parse_vp8_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return vp8_frame(d, n, o); });
}

int32_t parse_vp9_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return vp9_block(d, n, o); });
}

int32_t parse_av1_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) { return av1_config(d, n, o); });
}

}  // namespace qcmn
