// AVC and HEVC: find the sequence parameter set in a start-code stream, a
// decoder configuration record or 4-byte length-prefixed NAL units, and
// derive the displayed size from it.
#include "qextractorcmn/qcmn_bitreader.h"
#include "qextractorcmn/qcmn_config_error.h"
#include "qextractorcmn/qcmn_vcodec.h"

namespace qcmn {

namespace {

// Result of looking at one NAL unit: not a parameter set we want, a
// parsed one, or a broken one.
enum class Nal { kSkip, kDone, kBad };

using NalFn = Nal (*)(const uint8_t *nal, size_t n, qvid_config_out *out);

// A broken parameter set: why, or that it ended early when the reader ran
// out of bits.
Nal bad_nal(const BitReader &br, const char *cut_short, const char *why) {
    malformed(br.ok() ? why : cut_short);
    return Nal::kBad;
}

// Walks the NAL units of a start-code stream. The first good SPS wins; a
// broken SPS is remembered but a later good one still configures.
int32_t walk_annexb(const uint8_t *d, size_t n, NalFn fn, qvid_config_out *out, bool *found_start) {
    bool bad = false;
    size_t sc = find_start_code(d, n, 0);
    *found_start = sc < n;
    while (sc < n) {
        const size_t begin = sc + 3;
        const size_t next = find_start_code(d, n, begin);
        size_t end = next;
        // The zero of a 4-byte start code (and any trailing zeros) is not
        // part of this NAL unit.
        while (end > begin && d[end - 1] == 0) --end;
        const Nal r = fn(d + begin, end - begin, out);
        if (r == Nal::kDone) return QVID_CFG_OK;
        if (r == Nal::kBad) bad = true;
        sc = next;
    }
    return bad ? QVID_CFG_ERR_MALFORMED : QVID_CFG_NEED_MORE;
}

// True when the whole input splits into 4-byte big-endian length-prefixed
// units (frames whose prefixes were not rewritten).
bool is_length_prefixed(const uint8_t *d, size_t n) {
    size_t o = 0;
    if (n < 5) return false;
    while (o < n) {
        if (n - o < 4) return false;
        const uint32_t len = (uint32_t)d[o] << 24 | (uint32_t)d[o + 1] << 16 | (uint32_t)d[o + 2] << 8 | d[o + 3];
        o += 4;
        if (len == 0 || len > n - o) return false;
        o += len;
    }
    return true;
}

int32_t walk_length_prefixed(const uint8_t *d, size_t n, NalFn fn, qvid_config_out *out) {
    bool bad = false;
    size_t o = 0;
    while (n - o >= 4) {
        const uint32_t len = (uint32_t)d[o] << 24 | (uint32_t)d[o + 1] << 16 | (uint32_t)d[o + 2] << 8 | d[o + 3];
        o += 4;
        if (len > n - o) break;
        const Nal r = fn(d + o, len, out);
        if (r == Nal::kDone) return QVID_CFG_OK;
        if (r == Nal::kBad) bad = true;
        o += len;
    }
    return bad ? QVID_CFG_ERR_MALFORMED : QVID_CFG_NEED_MORE;
}

bool starts_with_start_code(const uint8_t *d, size_t n) {
    if (n >= 3 && d[0] == 0 && d[1] == 0 && d[2] == 1) return true;
    return n >= 4 && d[0] == 0 && d[1] == 0 && d[2] == 0 && d[3] == 1;
}

// Shared by both codecs once the record has been ruled out. A start code
// at the very beginning wins; length prefixes are tried when the bytes
// have no start code, or when a stream that could be read either way
// yields no SPS as a start-code stream.
int32_t walk_stream(const uint8_t *d, size_t n, NalFn fn, qvid_config_out *out) {
    if (n == 0) return QVID_CFG_NEED_MORE;
    const bool prefixed = is_length_prefixed(d, n);
    if (starts_with_start_code(d, n) || !prefixed) {
        bool found_start = false;
        const int32_t r = walk_annexb(d, n, fn, out, &found_start);
        // Neither start codes nor length prefixes: not this codec's stream.
        if (!found_start) return malformed("neither start codes nor NAL length prefixes: not a stream of this codec");
        if (r != QVID_CFG_NEED_MORE || !prefixed) return r;
    }
    return walk_length_prefixed(d, n, fn, out);
}

bool fits(uint64_t v) { return v >= 1 && v <= kMaxDimension; }

// ---------------------------------------------------------------- AVC

bool avc_scaling_list(BitReader &br, int size) {
    int last = 8, next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            const int32_t delta = br.se();
            if (!br.ok() || delta < -128 || delta > 127) return false;
            next = (last + delta + 256) % 256;
        }
        if (next != 0) last = next;
    }
    return br.ok();
}

bool avc_high_profile(uint32_t profile_idc) {
    switch (profile_idc) {
        case 100: case 110: case 122: case 244: case 44: case 83: case 86:
        case 118: case 128: case 138: case 139: case 134: case 135:
            return true;
        default:
            return false;
    }
}

Nal avc_sps(const uint8_t *nal, size_t n, qvid_config_out *out) {
    if (n < 1 || (nal[0] & 0x80) != 0 || (nal[0] & 0x1F) != 7) return Nal::kSkip;
    BitReader br(nal + 1, n - 1, true);
    auto bad = [&br](const char *why) { return bad_nal(br, "AVC SPS cut short", why); };
    const uint32_t profile_idc = br.bits(8);
    br.skip(8);  // constraint flags
    const uint32_t level_idc = br.bits(8);
    if (br.ue() > 31) return bad("AVC SPS: seq_parameter_set_id out of range");
    uint32_t chroma_format_idc = 1, bit_depth = 8;
    bool separate_planes = false;
    if (avc_high_profile(profile_idc)) {
        chroma_format_idc = br.ue();
        if (chroma_format_idc > 3) return bad("AVC SPS: chroma_format_idc out of range");
        if (chroma_format_idc == 3) separate_planes = br.bit() != 0;
        const uint32_t luma_minus8 = br.ue();
        const uint32_t chroma_minus8 = br.ue();
        if (luma_minus8 > 6 || chroma_minus8 > 6) return bad("AVC SPS: bit depth out of range");
        bit_depth = 8 + luma_minus8;
        br.skip(1);  // qpprime_y_zero_transform_bypass_flag
        if (br.bit()) {
            const int lists = chroma_format_idc != 3 ? 8 : 12;
            for (int i = 0; i < lists; ++i) {
                if (br.bit() && !avc_scaling_list(br, i < 6 ? 16 : 64)) return bad("AVC SPS: scaling list out of range");
            }
        }
    }
    if (br.ue() > 12) return bad("AVC SPS: log2_max_frame_num out of range");
    const uint32_t poc_type = br.ue();
    if (poc_type > 2) return bad("AVC SPS: pic_order_cnt_type out of range");
    if (poc_type == 0) {
        if (br.ue() > 12) return bad("AVC SPS: log2_max_pic_order_cnt_lsb out of range");
    } else if (poc_type == 1) {
        br.skip(1);  // delta_pic_order_always_zero_flag
        br.se();     // offset_for_non_ref_pic
        br.se();     // offset_for_top_to_bottom_field
        const uint32_t cycle = br.ue();
        if (cycle > 255) return bad("AVC SPS: num_ref_frames_in_pic_order_cnt_cycle out of range");
        for (uint32_t i = 0; i < cycle && br.ok(); ++i) br.se();
    }
    br.ue();     // max_num_ref_frames
    br.skip(1);  // gaps_in_frame_num_value_allowed_flag
    const uint64_t width_mbs = (uint64_t)br.ue() + 1;
    const uint64_t height_map_units = (uint64_t)br.ue() + 1;
    const uint32_t frame_mbs_only = br.bit();
    if (!frame_mbs_only) br.skip(1);  // mb_adaptive_frame_field_flag
    br.skip(1);                       // direct_8x8_inference_flag
    uint64_t crop_l = 0, crop_r = 0, crop_t = 0, crop_b = 0;
    if (br.bit()) {
        crop_l = br.ue();
        crop_r = br.ue();
        crop_t = br.ue();
        crop_b = br.ue();
    }
    br.skip(1);  // vui_parameters_present_flag: the last bit this parse needs
    if (!br.ok()) return bad("AVC SPS cut short");

    const uint64_t coded_w = width_mbs * 16;
    const uint64_t coded_h = height_map_units * 16 * (2 - frame_mbs_only);
    const uint32_t chroma_array_type = separate_planes ? 0 : chroma_format_idc;
    uint64_t unit_x = 1, unit_y = 2 - frame_mbs_only;
    if (chroma_array_type != 0) {
        unit_x = chroma_array_type == 3 ? 1 : 2;
        unit_y *= chroma_array_type == 1 ? 2 : 1;
    }
    const uint64_t crop_w = (crop_l + crop_r) * unit_x;
    const uint64_t crop_h = (crop_t + crop_b) * unit_y;
    if (!fits(coded_w) || !fits(coded_h) || crop_w >= coded_w || crop_h >= coded_h)
        return bad("AVC SPS: picture size or cropping out of range");
    out->width = (int32_t)(coded_w - crop_w);
    out->height = (int32_t)(coded_h - crop_h);
    out->profile = (int32_t)profile_idc;
    out->level = (int32_t)level_idc;
    out->bit_depth = (int32_t)bit_depth;
    out->chroma_format = (int32_t)chroma_format_idc;
    out->interlaced = frame_mbs_only ? 0 : 1;
    return Nal::kDone;
}

// AVCDecoderConfigurationRecord: both parameter-set arrays must fit the
// record; the first SPS entry configures.
int32_t avc_record(const uint8_t *d, size_t n, qvid_config_out *out) {
    const char *const cut = "AVC configuration record (avcC) cut short";
    if (n < 6) return malformed(cut);
    const uint8_t *sps[32];
    size_t sps_len[32];
    const unsigned num_sps = d[5] & 0x1F;
    size_t o = 6;
    for (unsigned i = 0; i < num_sps; ++i) {
        if (n - o < 2) return malformed(cut);
        sps_len[i] = (size_t)d[o] << 8 | d[o + 1];
        o += 2;
        if (sps_len[i] > n - o) return malformed(cut);
        sps[i] = d + o;
        o += sps_len[i];
    }
    {
        if (o >= n) return malformed(cut);
        const unsigned num_pps = d[o++];
        for (unsigned i = 0; i < num_pps; ++i) {
            if (n - o < 2) return malformed(cut);
            const size_t len = (size_t)d[o] << 8 | d[o + 1];
            o += 2;
            if (len > n - o) return malformed(cut);
            o += len;
        }
    }
    for (unsigned i = 0; i < num_sps; ++i) {
        const Nal r = avc_sps(sps[i], sps_len[i], out);
        if (r == Nal::kDone) return QVID_CFG_OK;
        if (r == Nal::kBad) return QVID_CFG_ERR_MALFORMED;
    }
    return QVID_CFG_NEED_MORE;
}

// ---------------------------------------------------------------- HEVC

bool hevc_profile_tier_level(BitReader &br, uint32_t max_sub_layers_minus1, uint32_t *profile, uint32_t *level) {
    br.skip(2 + 1);  // general_profile_space, general_tier_flag
    *profile = br.bits(5);
    br.skip(32);      // general_profile_compatibility_flag[32]
    br.skip(4 + 43 + 1);  // source flags, constraint flags, general_inbld/reserved
    *level = br.bits(8);
    bool profile_present[8] = {}, level_present[8] = {};
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        profile_present[i] = br.bit() != 0;
        level_present[i] = br.bit() != 0;
    }
    if (max_sub_layers_minus1 > 0) br.skip(2 * (8 - max_sub_layers_minus1));  // reserved_zero_2bits
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        if (profile_present[i]) br.skip(88);
        if (level_present[i]) br.skip(8);
    }
    return br.ok();
}

Nal hevc_sps(const uint8_t *nal, size_t n, qvid_config_out *out) {
    if (n < 2 || (nal[0] & 0x80) != 0) return Nal::kSkip;
    const unsigned type = (nal[0] >> 1) & 0x3F;
    const unsigned layer = ((nal[0] & 1) << 5) | (nal[1] >> 3);
    if (type != 33 || layer != 0) return Nal::kSkip;
    BitReader br(nal + 2, n - 2, true);
    auto bad = [&br](const char *why) { return bad_nal(br, "HEVC SPS cut short", why); };
    br.skip(4);  // sps_video_parameter_set_id
    const uint32_t max_sub_layers_minus1 = br.bits(3);
    if (max_sub_layers_minus1 > 6) return bad("HEVC SPS: sps_max_sub_layers out of range");
    br.skip(1);  // sps_temporal_id_nesting_flag
    uint32_t profile = 0, level = 0;
    if (!hevc_profile_tier_level(br, max_sub_layers_minus1, &profile, &level)) return bad("HEVC SPS cut short");
    if (br.ue() > 15) return bad("HEVC SPS: sps_seq_parameter_set_id out of range");
    const uint32_t chroma_format_idc = br.ue();
    if (chroma_format_idc > 3) return bad("HEVC SPS: chroma_format_idc out of range");
    bool separate_planes = false;
    if (chroma_format_idc == 3) separate_planes = br.bit() != 0;
    const uint64_t coded_w = br.ue();
    const uint64_t coded_h = br.ue();
    uint64_t crop_l = 0, crop_r = 0, crop_t = 0, crop_b = 0;
    if (br.bit()) {
        crop_l = br.ue();
        crop_r = br.ue();
        crop_t = br.ue();
        crop_b = br.ue();
    }
    const uint32_t luma_minus8 = br.ue();
    br.ue();  // bit_depth_chroma_minus8
    if (!br.ok() || luma_minus8 > 8) return bad("HEVC SPS: bit depth out of range");

    const uint32_t chroma_array_type = separate_planes ? 0 : chroma_format_idc;
    const uint64_t unit_x = (chroma_array_type == 1 || chroma_array_type == 2) ? 2 : 1;
    const uint64_t unit_y = chroma_array_type == 1 ? 2 : 1;
    const uint64_t crop_w = (crop_l + crop_r) * unit_x;
    const uint64_t crop_h = (crop_t + crop_b) * unit_y;
    if (!fits(coded_w) || !fits(coded_h) || crop_w >= coded_w || crop_h >= coded_h)
        return bad("HEVC SPS: picture size or conformance window out of range");
    out->width = (int32_t)(coded_w - crop_w);
    out->height = (int32_t)(coded_h - crop_h);
    out->profile = (int32_t)profile;
    out->level = (int32_t)level;
    out->bit_depth = (int32_t)(8 + luma_minus8);
    out->chroma_format = (int32_t)chroma_format_idc;
    return Nal::kDone;
}

// Walks the NAL units of an HEVCDecoderConfigurationRecord, calling `fn`
// on each until it returns true; false when the layout overruns the record.
template <typename Fn>
bool hevc_record_walk(const uint8_t *d, size_t n, Fn fn) {
    const unsigned arrays = d[22];
    size_t o = 23;
    for (unsigned a = 0; a < arrays; ++a) {
        if (n - o < 3) return false;
        const unsigned count = (unsigned)d[o + 1] << 8 | d[o + 2];
        o += 3;
        for (unsigned i = 0; i < count; ++i) {
            if (n - o < 2) return false;
            const size_t len = (size_t)d[o] << 8 | d[o + 1];
            o += 2;
            if (len > n - o) return false;
            if (fn(d + o, len)) return true;
            o += len;
        }
    }
    return true;
}

// The whole layout is checked first, so that a cut record is malformed
// even when its SPS survived; then the first good SPS configures.
int32_t hevc_record(const uint8_t *d, size_t n, qvid_config_out *out) {
    if (n < 23 || !hevc_record_walk(d, n, [](const uint8_t *, size_t) { return false; }))
        return malformed("HEVC configuration record (hvcC) cut short");
    int32_t result = QVID_CFG_NEED_MORE;
    hevc_record_walk(d, n, [&](const uint8_t *nal, size_t len) {
        const Nal r = hevc_sps(nal, len, out);
        if (r == Nal::kDone) result = QVID_CFG_OK;
        if (r == Nal::kBad) result = QVID_CFG_ERR_MALFORMED;
        return r == Nal::kDone;
    });
    return result;
}

}  // namespace

int32_t parse_avc_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) {
        // A record starts with configurationVersion 1; a stream with a zero
        // byte (start code or a length prefix below 16 MiB).
        if (n >= 1 && d[0] == 1) return avc_record(d, n, o);
        return walk_stream(d, n, avc_sps, o);
    });
}

int32_t parse_hevc_config(const uint8_t *d, size_t n, qvid_config_out *out) {
    return configure(out, [&](qvid_config_out *o) {
        if (n >= 1 && d[0] == 1) return hevc_record(d, n, o);
        return walk_stream(d, n, hevc_sps, o);
    });
}

}  // namespace qcmn
