// The common extractor helpers: video configuration parsing over crafted
// and ffmpeg-made bitstreams, AAC configuration parsing, the device
// profile and its queries, the codec code to media type mapping.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <media/stagefright/foundation/MediaDefs.h>

#include "qextractorcmn/qcmn_fcc2mime.h"
#include "qextractorcmn/qcmn_device_profile.h"
#include "qextractorcmn/qextractorcmn.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"
#include "tests/support/ebml_writer.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

using qmkv_test::AvVideoParams;
using qmkv_test::Bytes;
using qmkv_test::cat;
using qmkv_test::avProbeVideo;
using qmkv_test::LogCapture;
using qmkv_test::TempDir;

namespace {

// First character in the lowest byte.
uint32_t fcc(const char *s) {
    return (uint32_t)(uint8_t)s[0] | (uint32_t)(uint8_t)s[1] << 8 | (uint32_t)(uint8_t)s[2] << 16 |
           (uint32_t)(uint8_t)s[3] << 24;
}

const uint32_t kAvc = fcc("AVC1"), kHevc = fcc("hev1"), kMp4v = fcc("MP4V"), kMpg2 = fcc("mpg2"),
               kH263 = fcc("H263"), kAv1 = fcc("av01"), kVp8 = fcc("VP80"), kVp9 = fcc("VP90");

// ------------------------------------------------------------------ writers

// MSB-first bit writer for crafting headers.
struct BitWriter {
    Bytes out;
    size_t bits = 0;
    BitWriter &u(unsigned n, uint64_t v) {
        while (n-- > 0) {
            if (bits % 8 == 0) out.push_back(0);
            if ((v >> n) & 1) out.back() |= (uint8_t)(0x80 >> (bits % 8));
            ++bits;
        }
        return *this;
    }
    BitWriter &ue(uint32_t v) {
        const uint64_t x = (uint64_t)v + 1;
        unsigned len = 0;
        while ((x >> (len + 1)) != 0) ++len;
        return u(len, 0).u(len + 1, x);
    }
    BitWriter &se(int32_t v) { return ue(v <= 0 ? (uint32_t)(-2LL * v) : (uint32_t)(2LL * v - 1)); }
    BitWriter &align(int fill = 0) {
        while (bits % 8) u(1, fill);
        return *this;
    }
    BitWriter &trailing() { return u(1, 1).align(); }
};

// Inserts emulation prevention bytes into an RBSP.
Bytes escape(const Bytes &rbsp) {
    Bytes out;
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}

Bytes startCode(const Bytes &nal) { return cat({{0, 0, 0, 1}, nal}); }

// A default-built header description changed by `f`.
template <typename T, typename F>
T with(F f) {
    T t;
    f(t);
    return t;
}

// `build` over a default header description changed by `f`.
template <typename T, typename F>
Bytes make(Bytes (*build)(const T &), F f) {
    return build(with<T>(f));
}

// --------------------------------------------------------------- AVC SPS

// Defaults: constrained baseline 1080p, coded as 1088 lines with 8 cropped.
struct AvcSps {
    uint32_t profile = 66, chroma = 1, poc_type = 0, width_mbs = 120, height_units = 68;
    int32_t poc_offset = 0;
    bool separate_planes = false, scaling = false, frame_mbs_only = true, cropping = true, vui = false;
    uint32_t crop[4] = {0, 0, 0, 4};  // left, right, top, bottom
};

void scalingList(BitWriter &w, int size, int seed) {
    int last = 8, next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            int delta = j == 3 ? 127 : j == 4 ? -128 : ((j * 7 + seed) % 11) - 5;
            if (delta == 0) delta = 1;
            w.se(delta);
            next = (last + delta + 256) % 256;
        }
        if (next != 0) last = next;
    }
}

Bytes avcSpsNal(const AvcSps &s) {
    BitWriter w;
    w.u(8, s.profile).u(8, 0).u(8, 40).ue(0);
    if (s.profile != 66) {
        w.ue(s.chroma);
        if (s.chroma == 3) w.u(1, s.separate_planes);
        w.ue(0).ue(0).u(1, 0).u(1, s.scaling);
        for (int i = 0; s.scaling && i < (s.chroma != 3 ? 8 : 12); ++i) {
            if (i % 3 == 2) {
                w.u(1, 0);  // not present
            } else if (i == 1) {
                w.u(1, 1).se(-8);  // first delta reaching 0: use the default list
            } else {
                scalingList(w.u(1, 1), i < 6 ? 16 : 64, i);
            }
        }
    }
    w.ue(0).ue(s.poc_type);
    if (s.poc_type == 0) w.ue(2);
    if (s.poc_type == 1) w.u(1, 0).se(s.poc_offset).se(-s.poc_offset).ue(3).se(1).se(-2).se(3);
    w.ue(4).u(1, 0).ue(s.width_mbs - 1).ue(s.height_units - 1).u(1, s.frame_mbs_only);
    if (!s.frame_mbs_only) w.u(1, 1);
    w.u(1, 1).u(1, s.cropping);
    if (s.cropping) w.ue(s.crop[0]).ue(s.crop[1]).ue(s.crop[2]).ue(s.crop[3]);
    w.u(1, s.vui);
    if (s.vui) w.u(1, 1).u(8, 255).u(16, 1).u(16, 1).u(6, 0);
    return cat({{0x67}, escape(w.trailing().out)});
}

// SPS, then a PPS and an IDR slice header's first bytes.
Bytes avc(const AvcSps &s) {
    const Bytes pps = {0x68, 0xEE, 0x3C, 0x80}, idr = {0x65, 0x88, 0x84, 0x00, 0x33};
    return cat({startCode(avcSpsNal(s)), startCode(pps), startCode(idr)});
}

// AVCDecoderConfigurationRecord with one SPS and one PPS.
Bytes avcC(const Bytes &sps, const Bytes &pps) {
    return cat({{1, sps[1], sps[2], sps[3], 0xFF, 0xE1, (uint8_t)(sps.size() >> 8), (uint8_t)sps.size()}, sps,
                {1, (uint8_t)(pps.size() >> 8), (uint8_t)pps.size()}, pps});
}

// --------------------------------------------------------------- HEVC SPS

// Defaults: Main 1080p, coded as 1088 lines with 8 cut by the window.
struct HevcSps {
    uint32_t max_sub_layers_minus1 = 0, profile = 1, chroma = 1, width = 1920, height = 1088;
    uint32_t layer_id = 0;
    bool sub_profile[7] = {}, sub_level[7] = {}, separate_planes = false, conformance = true;
    uint32_t win[4] = {0, 0, 0, 4};
};

Bytes hevcSpsNal(const HevcSps &s) {
    BitWriter w;
    w.u(4, 0).u(3, s.max_sub_layers_minus1).u(1, 1);
    w.u(2, 0).u(1, 0).u(5, s.profile).u(32, 1u << (31 - s.profile)).u(4, 0x9).u(43, 0).u(1, 0).u(8, 93);
    for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) w.u(1, s.sub_profile[i]).u(1, s.sub_level[i]);
    for (uint32_t i = s.max_sub_layers_minus1; s.max_sub_layers_minus1 > 0 && i < 8; ++i) w.u(2, 0);
    for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) {
        if (s.sub_profile[i]) w.u(44, 0x12345678ABCull).u(44, 0xFEDCBA98765ull);
        if (s.sub_level[i]) w.u(8, 0xFF);
    }
    w.ue(0).ue(s.chroma);
    if (s.chroma == 3) w.u(1, s.separate_planes);
    w.ue(s.width).ue(s.height).u(1, s.conformance);
    if (s.conformance) w.ue(s.win[0]).ue(s.win[1]).ue(s.win[2]).ue(s.win[3]);
    w.ue(0).ue(0).ue(4).u(1, 1).ue(1).ue(0).ue(0);
    const uint8_t h0 = (uint8_t)(33 << 1 | (s.layer_id >> 5)), h1 = (uint8_t)((s.layer_id & 31) << 3 | 1);
    return cat({{h0, h1}, escape(w.trailing().out)});
}

const Bytes kHevcVps = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60};
const Bytes kHevcPps = {0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40};

Bytes hevc(const HevcSps &s) {
    const Bytes idr = {0x26, 0x01, 0xAF, 0x1D};
    return cat({startCode(kHevcVps), startCode(hevcSpsNal(s)), startCode(kHevcPps), startCode(idr)});
}

// HEVCDecoderConfigurationRecord holding VPS, SPS and PPS arrays.
Bytes hvcC(const Bytes &sps) {
    Bytes r = {1, 0x01, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 93, 0xF0, 0x00, 0xFC, 0xFD, 0xF8, 0xF8, 0, 0, 0x0F, 3};
    for (const Bytes *nal : {&kHevcVps, &sps, &kHevcPps})
        r = cat({r, {(uint8_t)(0x80 | (((*nal)[0] >> 1) & 0x3F)), 0, 1, (uint8_t)(nal->size() >> 8)},
                 {(uint8_t)nal->size()}, *nal});
    return r;
}

// ----------------------------------------------------------- MPEG-4 VOL

struct Vol {
    bool vos = true, vo = true;
    uint32_t vo_verid = 1;   // visual_object_verid (VO header)
    uint32_t vol_verid = 0;  // 0: no is_object_layer_identifier
    uint32_t aspect = 1;     // 15: extended PAR follows
    bool control = false, vbv = false, fixed_rate = false, interlaced = false, not_8_bit = false;
    uint32_t shape = 0, resolution = 25, width = 176, height = 144, sprite = 0;
    bool quant_type = false, intra_matrix = false, inter_matrix = false, data_partitioned = false;
    int complexity = -1;  // -1 disabled, else the estimation method
};

Bytes mpeg4(const Vol &v) {
    Bytes out;
    if (v.vos) out = {0, 0, 1, 0xB0, 0xF5};
    if (v.vo) {
        BitWriter w;
        w.u(1, v.vo_verid != 1);
        if (v.vo_verid != 1) w.u(4, v.vo_verid).u(3, 1);
        w.u(4, 1).u(1, 0).u(1, 0).align(1);  // video object type, no signal type, stuffing
        out = cat({out, {0, 0, 1, 0xB5}, w.out, {0, 0, 1, 0x00}});
    }
    BitWriter w;
    w.u(1, 0).u(8, 1);
    const uint32_t verid = v.vol_verid ? v.vol_verid : v.vo_verid;
    w.u(1, v.vol_verid != 0);
    if (v.vol_verid) w.u(4, v.vol_verid).u(3, 1);
    w.u(4, v.aspect);
    if (v.aspect == 15) w.u(8, 12).u(8, 11);
    w.u(1, v.control);
    if (v.control) w.u(2, 1).u(1, 1).u(1, v.vbv);
    if (v.vbv) w.u(15, 0x7FFF).u(1, 1).u(15, 0x1234).u(1, 1).u(15, 0x7FFF).u(1, 1).u(3, 5).u(11, 0x7FF).u(1, 1);
    if (v.vbv) w.u(15, 0x7FFF).u(1, 1);
    w.u(2, v.shape).u(1, 1).u(16, v.resolution).u(1, 1).u(1, v.fixed_rate);
    if (v.fixed_rate) {
        unsigned bits = 1;
        while (bits < 16 && ((v.resolution - 1) >> bits) != 0) ++bits;
        w.u(bits, 1);
    }
    if (v.shape == 0) {
        w.u(1, 1).u(13, v.width).u(1, 1).u(13, v.height).u(1, 1).u(1, v.interlaced).u(1, 1);
        w.u(verid == 1 ? 1 : 2, v.sprite);
        if (v.sprite == 1) w.u(13, 320).u(1, 1).u(13, 240).u(1, 1).u(13, 7).u(1, 1).u(13, 9).u(1, 1);
        if (v.sprite == 1 || v.sprite == 2) w.u(6, 3).u(2, 1).u(1, 0);
        if (v.sprite == 1) w.u(1, 0);
        w.u(1, v.not_8_bit);
        if (v.not_8_bit) w.u(4, 5).u(4, 10);
        w.u(1, v.quant_type);
        if (v.quant_type) {
            w.u(1, v.intra_matrix);
            for (int i = 0; v.intra_matrix && i < 64; ++i) w.u(8, 8 + i);
            w.u(1, v.inter_matrix);
            if (v.inter_matrix) w.u(8, 16).u(8, 17).u(8, 0);  // shortened by a zero
        }
        if (verid != 1) w.u(1, 0);  // quarter_sample
        w.u(1, v.complexity < 0);
        if (v.complexity >= 0) w.u(2, (uint64_t)v.complexity);
        if (v.complexity == 0 || v.complexity == 1)
            w.u(1, 0).u(6, 0x3F).u(1, 0).u(4, 0xF).u(1, 1).u(1, 0).u(4, 0xF).u(1, 0).u(6, 0x3F).u(1, 1);
        if (v.complexity == 1) w.u(1, 0).u(2, 3);
        w.u(1, 0).u(1, v.data_partitioned);  // resync markers on, data partitioning
        if (v.data_partitioned) w.u(1, 0);
        if (verid != 1) w.u(1, 0).u(1, 0);  // newpred, reduced resolution
        w.u(1, 0);                           // scalability
    }
    w.u(1, 0).align(1);  // next_start_code stuffing
    return cat({out, {0, 0, 1, 0x20}, w.out, {0, 0, 1, 0xB6, 0x10, 0x20, 0x30}});
}

// ------------------------------------------------------------- H.263

struct H263 {
    uint32_t format = 2;  // 1-5 standard, 7 PLUSPTYPE
    uint32_t ufep = 1, plus_format = 6, par = 1, width = 200, height = 120;  // the last four: custom format
    bool cpm = false;
};

Bytes h263(const H263 &p) {
    BitWriter w;
    w.u(22, 0x20).u(8, 7).u(1, 1).u(1, 0).u(3, 0).u(3, p.format);
    if (p.format != 7) {
        w.u(1, 0).u(4, 0).u(5, 10).u(1, 0).u(1, 0);
    } else {
        w.u(3, p.ufep);
        if (p.ufep == 1) w.u(3, p.plus_format).u(11, 0).u(1, 1).u(3, 0);
        w.u(3, 0).u(1, 0).u(1, 0).u(1, 0).u(2, 0).u(1, 1).u(1, p.cpm);  // MPPTYPE, CPM
        if (p.cpm) w.u(2, 1);
        if (p.ufep == 1 && p.plus_format == 6) w.u(4, p.par).u(9, p.width / 4 - 1).u(1, 1).u(9, p.height / 4);
        if (p.ufep == 1 && p.plus_format == 6 && p.par == 15) w.u(8, 10).u(8, 11);
        w.u(5, 10).u(1, 0);
    }
    return w.u(24, 0xABCDEF).align().out;
}

// ------------------------------------------------------------- MPEG-2

Bytes mpeg2(uint32_t w, uint32_t h, bool extension) {
    BitWriter s;
    s.u(12, w & 0xFFF).u(12, h & 0xFFF).u(4, 1).u(4, 3).u(18, 5000).u(1, 1).u(10, 112).u(3, 0);
    Bytes out = cat({{0, 0, 1, 0xB3}, s.out});
    BitWriter e;
    e.u(4, 1).u(8, 0x48).u(1, 1).u(2, 1).u(2, w >> 12).u(2, h >> 12).u(12, 0).u(1, 1).u(16, 0);
    if (extension) out = cat({out, {0, 0, 1, 0xB5}, e.out});
    return cat({out, {0, 0, 1, 0xB8, 0x00, 0x08, 0x00, 0x00, 0, 0, 1, 0x00, 0x00, 0x0F}});
}

// ------------------------------------------------------------- AV1

struct Av1Seq {
    uint32_t profile = 0, points = 1, level = 8, width = 200, height = 120;
    bool reduced = false, timing = false, decoder_model = false, display_delay = false;
    bool frame_ids = false, order_hint = true, choose_sct = true, force_sct = true;
    bool srgb = false;
};

Bytes av1Seq(const Av1Seq &s) {
    BitWriter w;
    w.u(3, s.profile).u(1, s.reduced).u(1, s.reduced);
    if (s.reduced) w.u(5, s.level);
    if (!s.reduced) {
        w.u(1, s.timing);
        if (s.timing) w.u(32, 1).u(32, 25).u(1, 1).ue(0).u(1, s.decoder_model);  // uvlc(0) is ue(0)'s code
        if (s.timing && s.decoder_model) w.u(5, 9).u(32, 1).u(5, 20).u(5, 20);
        w.u(1, s.display_delay).u(5, s.points - 1);
        for (uint32_t i = 0; i < s.points; ++i) {
            w.u(12, i == 0 ? 0 : 0x103).u(5, s.level + i);
            if (s.level + i > 7) w.u(1, 0);
            if (s.timing && s.decoder_model) w.u(1, 1).u(10, 0x155).u(10, 0x2AA).u(1, 0);
            if (s.display_delay) w.u(1, 1).u(4, 9);
        }
    }
    unsigned wb = 1, hb = 1;
    while ((s.width - 1) >> wb) ++wb;
    while ((s.height - 1) >> hb) ++hb;
    w.u(4, wb - 1).u(4, hb - 1).u(wb, s.width - 1).u(hb, s.height - 1);
    if (!s.reduced) w.u(1, s.frame_ids);
    if (s.frame_ids) w.u(4, 13).u(3, 2);
    w.u(1, 0).u(1, 1).u(1, 1);
    if (!s.reduced) {
        w.u(4, 0xF).u(1, s.order_hint);
        if (s.order_hint) w.u(1, 1).u(1, 1);
        w.u(1, s.choose_sct);
        if (!s.choose_sct) w.u(1, s.force_sct);
        if (s.choose_sct || s.force_sct) w.u(1, 0).u(1, 1);  // choose_integer_mv 0, force_integer_mv 1
        if (s.order_hint) w.u(3, 6);
    }
    // Then the colour configuration: 8 bits, not monochrome.
    w.u(1, 0).u(1, 1).u(1, 1).u(1, 0);
    if (s.profile != 1) w.u(1, 0);
    w.u(1, s.srgb);
    if (s.srgb) w.u(8, 1).u(8, 13).u(8, 0);  // sRGB: no subsampling bits
    if (!s.srgb) w.u(1, 0);
    if (!s.srgb && s.profile == 0) w.u(2, 0);
    w.u(1, 0);  // separate_uv_delta_q
    return w.u(1, 0).trailing().out;
}

// type: OBU type; size_field: write obu_size; extension: write an extension byte.
Bytes obu(uint32_t type, const Bytes &payload, bool size_field = true, bool extension = false) {
    Bytes out = {(uint8_t)(type << 3 | (extension ? 4 : 0) | (size_field ? 2 : 0))};
    if (extension) out.push_back(0x20);
    for (size_t v = payload.size(); size_field; v >>= 7) {  // leb128
        out.push_back((uint8_t)((v & 0x7F) | (v > 0x7F ? 0x80 : 0)));
        if (v <= 0x7F) break;
    }
    return cat({out, payload});
}

Bytes av1(const Av1Seq &s) { return obu(1, av1Seq(s)); }

// ------------------------------------------------------------- VP9 / VP8

struct Vp9 {
    uint32_t profile = 0, frame_type = 0, ten_or_twelve = 0, color_space = 1, ss_x = 1, ss_y = 1;
    uint32_t width = 200, height = 120, sync = 0x498342;
    bool show_existing = false, show = true, error_res = false, intra_only = false;
};

Bytes vp9(const Vp9 &f) {
    BitWriter w;
    w.u(2, 2).u(1, f.profile & 1).u(1, f.profile >> 1);
    if (f.profile == 3) w.u(1, 0);
    w.u(1, f.show_existing);
    if (f.show_existing) return w.u(3, 2).align().out;
    w.u(1, f.frame_type).u(1, f.show).u(1, f.error_res);
    const bool intra = f.frame_type == 0 || (!f.show && f.intra_only);
    if (f.frame_type != 0 && !f.show) w.u(1, f.intra_only);
    if (f.frame_type != 0 && !f.error_res) w.u(2, 0);
    if (!intra) return w.u(3, 0).u(8, 0x55).align().out;
    w.u(24, f.sync);
    if (f.frame_type == 0 || f.profile > 0) {  // color config
        if (f.profile >= 2) w.u(1, f.ten_or_twelve);
        w.u(3, f.color_space);
        if (f.color_space != 7) w.u(1, 0);
        if (f.profile == 1 || f.profile == 3) {
            if (f.color_space != 7) w.u(1, f.ss_x).u(1, f.ss_y);
            w.u(1, 0);
        }
    }
    if (f.frame_type != 0) w.u(8, 0x01);
    w.u(16, f.width - 1).u(16, f.height - 1).u(1, 0).u(12, 0xABC).align();
    return cat({w.out, Bytes(20, 0x5A)});
}

Bytes vp8(bool key, uint32_t w, uint32_t h, uint32_t version = 0) {
    const uint32_t tag = (key ? 0 : 1) | version << 1 | 1 << 4 | 40 << 5;  // first partition: 40 bytes
    Bytes out = {(uint8_t)tag, (uint8_t)(tag >> 8), (uint8_t)(tag >> 16)};
    if (key) out = cat({out, {0x9D, 0x01, 0x2A, (uint8_t)w, (uint8_t)(w >> 8), (uint8_t)h, (uint8_t)(h >> 8)}});
    return cat({out, Bytes(48, 0x11)});
}

// ------------------------------------------------------------ video cases

// Optional expectations; -1: not checked.
struct Props {
    int32_t profile = -1, level = -1, bit_depth = -1, chroma = -1, interlaced = -1;
};

struct VCase {
    std::string name;
    uint32_t fourcc;
    Bytes data;
    int32_t result;  // 0, or the sign of the expected result
    int32_t width = 0, height = 0, dp = 0;
    Props p{};
    // Prefixes that are complete headers in their own right may configure
    // differently (e.g. a sequence header without its extension).
    int32_t alt_width = -1, alt_height = -1;
    const char *why = nullptr;  // the parser's reason for a malformed input, when checked
};

int sign(int32_t v) { return v > 0 ? 1 : v < 0 ? -1 : 0; }

// The result and record of `parser` over an exact-size heap copy of the
// first `len` bytes of `d`, so that the sanitizer sees any read past them.
template <typename In, typename Out>
std::pair<int32_t, Out> parse(int32_t (*parser)(const In *, Out *), In in, const Bytes &d, size_t len) {
    const Bytes exact(d.begin(), d.begin() + (long)std::min(len, d.size()));
    in.data = exact.data();
    in.size = (uint32_t)exact.size();
    Out out = {};
    const int32_t r = parser(&in, &out);
    return {r, out};
}

std::pair<int32_t, qvid_config_out> parseVideo(uint32_t code, const Bytes &d, size_t len = SIZE_MAX) {
    return parse(qvid_config_parser, qvid_config_in{nullptr, 0, code, {}}, d, len);
}

std::vector<VCase> videoCases() {
    std::vector<VCase> v;
    auto ok = [&](std::string name, uint32_t code, Bytes data, int32_t w, int32_t h, int32_t dp = 0, Props p = {}) {
        v.push_back(VCase{std::move(name), code, std::move(data), 0, w, h, dp, p});
    };
    auto fails = [&](std::string name, uint32_t code, Bytes data, int32_t result_sign, const char *why = nullptr) {
        v.push_back(VCase{std::move(name), code, std::move(data), result_sign});
        v.back().why = why;
    };

    // AVC: the crop unit depends on chroma format and field coding.
    ok("avc_high_scaling_lists", kAvc, make(avc, [](auto &s) { s.profile = 100, s.scaling = s.vui = true; }), 1920,
       1080, 0, {100, -1, 8, 1});
    ok("avc_monochrome_crop_1x1", kAvc,
       make(avc, [](auto &s) { s.profile = 100, s.chroma = 0, s.crop[3] = 8, s.crop[0] = 1; }), 1919, 1080);
    ok("avc_separate_planes_crop_1x1", kAvc,
       make(avc, [](auto &s) { s.profile = 244, s.chroma = 3, s.separate_planes = true, s.crop[3] = 8; }), 1920, 1080);
    // Long codes: the RBSP needs emulation prevention.
    ok("avc_poc_type1_escaped", kAvc, make(avc, [](auto &s) { s.poc_type = 1, s.poc_offset = 1 << 20; }), 1920, 1080);
    const Bytes nal = avcSpsNal(
        with<AvcSps>([](auto &s) { s.poc_type = 2, s.width_mbs = 11, s.height_units = 9, s.cropping = false; }));
    const Bytes record = avcC(nal, {0x68, 0xCE, 0x38, 0x80});
    ok("avc_3byte_start_code", kAvc, cat({{0, 0, 1}, nal, {0, 0, 1, 0x68, 0xCE}}), 176, 144);
    ok("avc_leading_garbage", kAvc, cat({{0x12, 0x34}, startCode(nal)}), 176, 144);
    ok("avc_avcC_record", kAvc, record, 176, 144);
    ok("avc_length_prefixed", kAvc, cat({{0, 0, 0, (uint8_t)nal.size()}, nal, {0, 0, 0, 4, 0x68, 0xCE, 0x38, 0x80}}),
       176, 144);
    fails("avc_avcC_without_sps", kAvc, {1, 0x42, 0, 0x1E, 0xFF, 0xE0, 0}, 1);
    fails("avc_avcC_pps_cut", kAvc, Bytes(record.begin(), record.end() - 1), -1,
          "AVC configuration record (avcC) cut short");
    fails("avc_sps_cut", kAvc, cat({{0, 0, 0, 1}, Bytes(nal.begin(), nal.begin() + 4)}), -1, "AVC SPS cut short");
    fails("avc_avcC_sps_overruns", kAvc, cat({{1, 0x42, 0, 0x1E, 0xFF, 0xE1, 0x01, 0x00}, nal}), -1);
    fails("avc_frame_without_sps", kAvc, cat({startCode({0x09, 0xF0}), startCode({0x41, 0x9A, 0x02, 0x0C})}), 1);
    fails("avc_no_start_code", kAvc, {0x65, 0x88, 0x84, 0x21, 0xA0}, -1,
          "neither start codes nor NAL length prefixes: not a stream of this codec");
    fails("avc_crop_too_large", kAvc, make(avc, [](auto &s) { s.crop[3] = 600; }), -1);
    fails("avc_bad_chroma_format", kAvc, make(avc, [](auto &s) { s.profile = 100, s.chroma = 4; }), -1,
          "AVC SPS: chroma_format_idc out of range");

    // HEVC
    ok("hevc_sub_layers_ptl", kHevc, make(hevc, [](auto &s) {
           s.max_sub_layers_minus1 = 6;  // every combination of the two flags
           for (int i = 0; i < 6; ++i) s.sub_profile[i] = i % 3 != 1, s.sub_level[i] = i % 2 == 0;
       }), 1920, 1080);
    ok("hevc_separate_planes", kHevc, make(hevc, [](auto &s) {
           s.profile = 4, s.chroma = 3, s.separate_planes = true, s.win[0] = 3, s.win[3] = 8;
       }), 1917, 1080);
    HevcSps qcif = with<HevcSps>([](auto &s) { s.width = 176, s.height = 144, s.conformance = false; });
    const Bytes sps = hevcSpsNal(qcif), hrec = hvcC(sps);
    ok("hevc_hvcC_record", kHevc, hrec, 176, 144);
    ok("hevc_length_prefixed", kHevc, cat({{0, 0, 0, (uint8_t)sps.size()}, sps}), 176, 144);
    fails("hevc_hvcC_cut", kHevc, Bytes(hrec.begin(), hrec.end() - 3), -1, "HEVC configuration record (hvcC) cut short");
    qcif.layer_id = 1;
    fails("hevc_sps_of_other_layer", kHevc, startCode(hevcSpsNal(qcif)), 1);
    fails("hevc_frame_without_sps", kHevc, startCode({0x26, 0x01, 0xAF, 0x1D, 0x80}), 1);
    fails("hevc_window_too_large", kHevc, make(hevc, [](auto &s) { s.win[2] = s.win[3] = 540; }), -1);

    // MPEG-4 visual (DivX, Xvid)
    Vol vol;
    ok("mpeg4_simple_vol", kMp4v, mpeg4(vol), 176, 144, 0, {1});
    vol.data_partitioned = true;
    vol.vos = vol.vo = false;
    ok("mpeg4_vol_alone", fcc("XVID"), mpeg4(vol), 176, 144, 1);
    // GMC: two sprite bits with version 2.
    ok("mpeg4_asp_gmc_vbv_par", fcc("DIVX"), make(mpeg4, [](auto &v) {
           v.vol_verid = 2, v.sprite = 2, v.aspect = 15, v.control = v.vbv = v.fixed_rate = true, v.resolution = 30000;
           v.width = 720, v.height = 480, v.interlaced = v.data_partitioned = true;
       }), 720, 480, 1, {-1, -1, -1, -1, 1});
    // Version 2 inherited from the VO header; a static sprite has size and warping fields.
    vol = with<Vol>([](auto &v) {
        v.vo_verid = 2, v.sprite = 1, v.not_8_bit = v.quant_type = v.intra_matrix = v.inter_matrix = true;
        v.complexity = 1, v.width = 352, v.height = 288, v.data_partitioned = true;
    });
    ok("mpeg4_sprite_matrices_complexity", fcc("FMP4"), mpeg4(vol), 352, 288, 1, {-1, -1, 10});
    vol.complexity = 0, vol.data_partitioned = false;
    ok("mpeg4_complexity_method0", fcc("fmp4"), mpeg4(vol), 352, 288, 0);
    vol.complexity = 2, vol.data_partitioned = true;  // a method with no further fields
    ok("mpeg4_complexity_method2", fcc("xvid"), mpeg4(vol), 352, 288, 1);
    ok("mpeg4_binary_shape_no_size", kMp4v, make(mpeg4, [](auto &v) { v.shape = 1; }), 0, 0);
    fails("mpeg4_zero_time_resolution", kMp4v, make(mpeg4, [](auto &v) { v.resolution = 0; }), -1);
    fails("mpeg4_vop_only", kMp4v, {0, 0, 1, 0xB6, 0x10, 0x20, 0x30, 0x40}, 1);
    ok("mpeg4_short_header", fcc("mp4v"), h263({}), 176, 144);

    // MPEG-2
    ok("mpeg2_size_extension", fcc("MPG2"), mpeg2(4112, 4100, true), 4112, 4100);
    v.back().alt_width = 16;  // the sequence header alone is a complete MPEG-1 header
    v.back().alt_height = 4;
    fails("mpeg2_picture_only", kMpg2, {0, 0, 1, 0x00, 0x00, 0x0F, 0xFF, 0xF8}, 1);
    fails("mpeg2_zero_width", kMpg2, mpeg2(0, 576, true), -1, "MPEG-2 sequence header: frame size is 0");

    // H.263: the standard formats in a PLUSPTYPE, which ffmpeg does not write.
    const int32_t kStd[6][2] = {{0, 0}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}};
    for (uint32_t f = 1; f <= 5; ++f)
        ok("h263_plus_format_" + std::to_string(f), fcc("s263"),
           make(h263, [&](auto &p) { p.format = 7, p.plus_format = f; }), kStd[f][0], kStd[f][1]);
    H263 p;
    p.format = 7;
    p.par = 15, p.cpm = true, p.width = 2048, p.height = 1152;
    ok("h263_custom_epar_cpm", fcc("h263"), h263(p), 2048, 1152);
    p.ufep = 0;
    fails("h263_no_format_update", kH263, h263(p), 1);
    p.ufep = 1, p.plus_format = 0;
    fails("h263_forbidden_plus_format", kH263, h263(p), -1);
    fails("h263_forbidden_format", fcc("S263"), make(h263, [](auto &q) { q.format = 0; }), -1);
    ok("h263_after_stuffing", kH263, cat({{0x00, 0x7F}, h263({})}), 176, 144);
    fails("h263_no_picture", kH263, {0x12, 0x34, 0x56, 0x78}, 1);

    // AV1
    const Bytes seq = av1({});
    ok("av1_av1C_record", kAv1, cat({{0x81, 0x08, 0x0C, 0x00}, seq}), 200, 120);
    fails("av1_av1C_without_obus", kAv1, {0x81, 0x08, 0x0C, 0x00}, 1);
    fails("av1_av1C_bad_version", kAv1, cat({{0x82, 0x08, 0x0C, 0x00}, seq}), -1);
    ok("av1_extension_header", kAv1, obu(1, av1Seq({}), true, true), 200, 120);
    ok("av1_no_size_field", kAv1, cat({obu(2, {}), obu(1, av1Seq({}), false)}), 200, 120);
    fails("av1_frame_only", kAv1, cat({obu(2, {}), obu(6, Bytes(30, 0x44))}), 1);
    fails("av1_obu_overruns", kAv1, cat({{0x0A, 0x40}, av1Seq({})}), -1);
    fails("av1_forbidden_bit", kAv1, {0x12, 0x00, 0x8A, 0x01, 0x00}, -1, "AV1 OBU header: obu_forbidden_bit set");
    Av1Seq a = with<Av1Seq>([](auto &s) {
        s.timing = s.decoder_model = s.display_delay = s.frame_ids = true, s.points = 3, s.level = 12;
        s.width = 3840, s.height = 2160;
    });
    ok("av1_timing_decoder_model_points", kAv1, av1(a), 3840, 2160, 0, {-1, 12});
    a.timing = a.order_hint = a.choose_sct = a.force_sct = false;
    ok("av1_no_order_hint_no_sct", kAv1, av1(a), 3840, 2160);
    fails("av1_reserved_profile", kAv1, make(av1, [](auto &s) { s.profile = 3, s.srgb = true; }), -1,
          "AV1 sequence header: seq_profile out of range");
    ok("av1_reduced_still", kAv1, make(av1, [](auto &s) { s.reduced = true, s.width = 65536, s.height = 1; }), 65536,
       1);

    // VP9: most profiles and chroma formats come from libvpx below.
    Vp9 vf = with<Vp9>([](auto &f) { f.profile = 3, f.ten_or_twelve = 1, f.ss_x = f.ss_y = 0, f.color_space = 7; });
    ok("vp9_profile3_rgb", kVp9, vp9(vf), 200, 120, 0, {3, -1, 12, 3});
    vf.profile = 0;
    fails("vp9_profile0_rgb", kVp9, vp9(vf), -1, "VP9 frame header: RGB in a profile without 4:4:4");
    ok("vp9_largest_size", kVp9, make(vp9, [](auto &f) { f.width = 65536, f.height = 1; }), 65536, 1);
    vf = with<Vp9>([](auto &f) { f.frame_type = 1, f.show = false, f.intra_only = true; });
    ok("vp9_intra_only_profile0", kVp9, vp9(vf), 200, 120);
    vf.profile = 1, vf.error_res = true, vf.ss_x = vf.ss_y = 0;
    ok("vp9_intra_only_profile1", kVp9, vp9(vf), 200, 120);
    fails("vp9_inter_frame", kVp9, make(vp9, [](auto &f) { f.frame_type = 1; }), 1);
    fails("vp9_show_existing", kVp9, make(vp9, [](auto &f) { f.show_existing = true; }), 1);
    fails("vp9_bad_sync_code", kVp9, make(vp9, [](auto &f) { f.sync = 0x498343; }), -1);
    fails("vp9_bad_frame_marker", kVp9, {0x40, 0x00, 0x00}, -1);
    // A superframe: a hidden inter frame, then a key frame, then the index.
    const Bytes hidden = make(vp9, [](auto &f) { f.frame_type = 1, f.show = false; }), key = vp9({});
    const uint8_t marker = 0xC0 | (1 << 3) | 1;  // 2-byte sizes, 2 frames
    const Bytes index = {marker, (uint8_t)hidden.size(), (uint8_t)(hidden.size() >> 8), (uint8_t)key.size(),
                         (uint8_t)(key.size() >> 8), marker};
    ok("vp9_superframe", kVp9, cat({hidden, key, index}), 200, 120);

    // VP8
    ok("vp8_scaling_bits_ignored", kVp8, vp8(true, 0xC000 | 640, 0x4000 | 360, 3), 640, 360);
    fails("vp8_inter_frame", kVp8, vp8(false, 0, 0), 1);
    Bytes bad = vp8(true, 200, 120);
    bad[4] = 0x02;
    fails("vp8_bad_start_code", kVp8, bad, -1, "VP8 key frame header: bad start code");
    fails("vp8_zero_width", kVp8, vp8(true, 0, 120), -1);
    fails("vp8_bad_version", kVp8, vp8(true, 200, 120, 5), -1);

    // Codes without a parser keep the caller's dimensions.
    ok("mp43_not_parsed", fcc("MP43"), {0x12, 0x34}, 0, 0);
    ok("unknown_code_not_parsed", fcc("WMV3"), {0, 0, 1, 0xB3, 0x0B, 0x00, 0x90}, 0, 0);
    return v;
}

template <typename T>
bool allZero(const T &v) {
    const uint8_t *b = reinterpret_cast<const uint8_t *>(&v);
    return std::all_of(b, b + sizeof(v), [](uint8_t x) { return x == 0; });
}

// What every parse must show: a reason exactly with a malformed result (`why`
// when given), and after a failure an untouched record. True on success.
template <typename Out>
bool parsed(int32_t r, const Out &out, const char *why = nullptr) {
    const char *reason = qcmn_config_error();
    EXPECT_EQ(r == -1, reason != nullptr) << "a reason exactly with a malformed result";
    EXPECT_STREQ(why != nullptr ? why : reason, reason);
    EXPECT_TRUE(r == 0 || allZero(out)) << "a failed parse must leave the record untouched";
    return r == 0;
}

class VideoCase : public ::testing::TestWithParam<VCase> {};

// The whole input as expected; then every cut-short input: no crash, and a success only
// with the same size (or, for headers complete in themselves, the documented alternative).
TEST_P(VideoCase, ParsesAndEveryPrefixFailsOrAgrees) {
    const VCase &c = GetParam();
    const auto [r, out] = parseVideo(c.fourcc, c.data);
    ASSERT_EQ(sign(r), c.result) << "result " << r;
    if (parsed(r, out, c.why)) {
        EXPECT_EQ(std::make_tuple(c.width, c.height, c.dp), std::make_tuple(out.width, out.height, out.data_partitioned));
        const int32_t want[] = {c.p.profile, c.p.level, c.p.bit_depth, c.p.chroma, c.p.interlaced};
        const int32_t got[] = {out.profile, out.level, out.bit_depth, out.chroma_format, out.interlaced};
        for (size_t i = 0; i < 5; ++i) EXPECT_TRUE(want[i] < 0 || got[i] == want[i]) << "field " << i << ": " << got[i];
    }
    for (size_t len = 0; len < c.data.size(); ++len) {
        const auto [r, out] = parseVideo(c.fourcc, c.data, len);
        SCOPED_TRACE("prefix " + std::to_string(len));
        if (!parsed(r, out)) continue;
        const bool same = out.width == c.width && out.height == c.height && out.data_partitioned == c.dp;
        const bool alt = out.width == c.alt_width && out.height == c.alt_height;
        EXPECT_TRUE(c.result == 0 && (same || alt))
            << "prefix " << len << " of " << c.data.size() << " configured " << out.width << "x" << out.height;
    }
}

INSTANTIATE_TEST_SUITE_P(Crafted, VideoCase, ::testing::ValuesIn(videoCases()),
                         [](const ::testing::TestParamInfo<VCase> &i) { return i.param.name; });

// Every spelling the plug-in whitelists reaches a parser (MP43 has none:
// see mp43_not_parsed).
TEST(VideoConfig, WhitelistedSpellings) {
    const std::vector<std::pair<std::string, Bytes>> families = {
        {"MPG2 mpg2", mpeg2(176, 144, true)},
        {"H263 S263 h263 s263", h263({})},
        {"AVC1 avc1 H264 X264 h264 x264",
         make(avc, [](auto &s) { s.width_mbs = 11, s.height_units = 9, s.cropping = false; })},
        {"hvc1 hev1", make(hevc, [](auto &s) { s.width = 176, s.height = 144, s.conformance = false; })},
        {"VP80", vp8(true, 176, 144)},
        {"VP90", make(vp9, [](auto &f) { f.width = 176, f.height = 144; })},
        {"av01", make(av1, [](auto &s) { s.width = 176, s.height = 144; })},
        {"FMP4 fmp4 XVID xvid MP4V mp4v DIVX", mpeg4({})},
    };
    for (const auto &f : families) {
        std::istringstream codes(f.first);
        for (std::string code; codes >> code;) {
            const auto [r, out] = parseVideo(fcc(code.c_str()), f.second);
            EXPECT_EQ(std::make_tuple(0, 176, 144), std::make_tuple(r, out.width, out.height)) << code;
        }
    }
}

// ---------------------------------------------------------------- AAC

struct ACase {
    std::string name;
    uint32_t tag;
    Bytes data;
    int32_t result;
    int32_t profile = 0, rate = 0, channels = 0, object_type = 0, frame_length = 0, ext_type = 0, ext_rate = 0;
    const char *why = nullptr;  // the parser's reason for a malformed input, when checked
    // Bytes of the configuration that already form a complete one with a
    // different (core-only) profile: prefixes of at least this length may
    // configure with the core values.
    size_t core_complete = SIZE_MAX;
};

std::pair<int32_t, qaud_config_out> parseAudio(uint32_t tag, const Bytes &d, size_t len = SIZE_MAX) {
    return parse(qaud_config_parser, qaud_config_in{nullptr, 0, tag}, d, len);
}

BitWriter &aot(BitWriter &w, uint32_t type) { return type >= 32 ? w.u(5, 31).u(6, type - 32) : w.u(5, type); }

BitWriter asc(uint32_t type) {
    BitWriter w;
    return aot(w, type);
}

std::vector<ACase> audioCases() {
    std::vector<ACase> v;
    // ext: the SBR (5) or PS (29) extension and its output rate.
    auto ok = [&](std::string name, Bytes data, int32_t profile, int32_t rate, int32_t ch, int32_t type,
                  int32_t frame_length = 1024, int32_t ext = 0, int32_t ext_rate = 0, uint32_t tag = 0xFF) {
        v.push_back(
            ACase{std::move(name), tag, std::move(data), 0, profile, rate, ch, type, frame_length, ext, ext_rate});
    };
    auto bad = [&](std::string name, Bytes d, int32_t result = -1, uint32_t tag = 0xFF) {
        v.push_back(ACase{std::move(name), tag, std::move(d), result});
    };
    ok("lc_44100_stereo", {0x12, 0x10}, 2, 44100, 2, 2);
    ok("lc_48000_mono", {0x11, 0x88}, 2, 48000, 1, 2);
    ok("lc_7350_960", {0x16, 0x0C}, 2, 7350, 1, 2, 960);
    ok("main_96000_51", {0x08, 0x30}, 1, 96000, 6, 1);
    ok("ltp_8000_71", {0x25, 0xB8}, 4, 8000, 8, 4);
    ok("mp4a_tag", {0x12, 0x10}, 2, 44100, 2, 2, 1024, 0, 0, fcc("mp4a"));
    ok("MP4A_tag", {0x12, 0x10}, 2, 44100, 2, 2, 1024, 0, 0, fcc("MP4A"));
    ok("unspecified_tag", {0x12, 0x10}, 2, 44100, 2, 2, 1024, 0, 0, 0);
    // Explicit frequency (index 15) with a 24-bit value.
    ok("explicit_frequency", asc(2).u(4, 15).u(24, 44056).u(4, 2).u(3, 0).out, 2, 44056, 2, 2);
    // HE-AAC, hierarchical: object type 5 or 29, the SBR rate, then LC.
    ok("he_aac_explicit", asc(5).u(4, 6).u(4, 2).u(4, 3).u(5, 2).u(3, 0).out, 5, 24000, 2, 2, 1024, 5, 48000);
    ok("he_aac_v2_explicit", asc(29).u(4, 8).u(4, 1).u(4, 5).u(5, 2).u(3, 0).out, 29, 16000, 1, 2, 1024, 29, 32000);
    ok("he_aac_explicit_frequencies", asc(5).u(4, 15).u(24, 22000).u(4, 2).u(4, 15).u(24, 44000).u(5, 2).u(3, 0).out, 5,
       22000, 2, 2, 1024, 5, 44000);
    // Backward-compatible signalling: LC, then sync extension 0x2B7
    // announcing SBR and 0x548 announcing PS.
    BitWriter w = asc(2).u(4, 6).u(4, 1).u(3, 0);
    const size_t core = w.bits / 8;
    aot(w.u(11, 0x2B7), 5).u(1, 1).u(4, 3).u(11, 0x548).u(1, 1).align();
    ok("he_aac_v2_backward_compatible", w.out, 29, 24000, 1, 2, 1024, 29, 48000);
    v.back().core_complete = core;
    ok("sync_extension_sbr_absent", aot(asc(2).u(4, 6).u(4, 2).u(3, 0).u(11, 0x2B7), 5).u(1, 0).align().out, 2, 24000,
       2, 2);
    // Escape object types: ER AAC ELD (39), USAC (42); ER AAC LD (23) with
    // 480-sample frames and the resilience flags.
    ok("eld_escape", asc(39).u(4, 3).u(4, 2).u(1, 1).u(3, 0).u(1, 0).u(4, 0).align().out, 39, 48000, 2, 39, 480);
    ok("usac_escape", asc(42).u(4, 4).u(4, 2).u(16, 0xABCD).out, 42, 44100, 2, 42, 0);
    ok("ld_480", asc(23).u(4, 3).u(4, 1).u(1, 1).u(1, 0).u(1, 1).u(3, 0).u(1, 0).u(2, 0).out, 23, 48000, 1, 23, 480);
    // Channel configuration 0: a program config element lays out 5.1
    // (front SCE 0 + CPE 1, back CPE 2, LFE 0), then a 3-byte comment.
    w = asc(2).u(4, 3).u(4, 0).u(3, 0);
    w.u(4, 0).u(2, 1).u(4, 3).u(4, 2).u(4, 0).u(4, 1).u(2, 1).u(3, 0).u(4, 0).u(3, 0);
    w.u(5, 0).u(1, 1).u(4, 1).u(1, 1).u(4, 2).u(4, 0);
    ok("pce_5_1", w.align().u(8, 3).u(8, 'a').u(8, 'b').u(8, 'c').out, 2, 48000, 6, 2);
    // Scalable (6) with layerNr.
    ok("scalable_core_coder", asc(6).u(4, 4).u(4, 2).u(1, 0).u(1, 1).u(14, 100).u(1, 0).u(3, 1).align().out, 6, 44100,
       2, 6);
    ok("adts_header", {0xFF, 0xF1, 0x50, 0x80, 0x2E, 0x7F, 0xFC}, 2, 44100, 2, 2);
    bad("null_object_type", {0x02, 0x10});
    bad("reserved_object_type", {0x5A, 0x10});            // 11
    bad("reserved_frequency_index", {0x16, 0x90});        // 13
    v.back().why = "AAC AudioSpecificConfig: reserved sampling frequency";
    bad("reserved_channel_configuration", {0x12, 0x40});  // 8
    bad("explicit_frequency_zero", {0x17, 0x80, 0x00, 0x00, 0x10});
    bad("sbr_over_sbr", asc(5).u(4, 6).u(4, 2).u(4, 3).u(5, 5).u(3, 0).out);
    bad("opus_tag", {0x12, 0x10}, QAUD_CFG_ERR_UNSUPPORTED, fcc("Opus"));
    bad("one_byte", {0x12});
    v.back().why = "AAC AudioSpecificConfig cut short";
    return v;
}

class AudioCase : public ::testing::TestWithParam<ACase> {};

// The whole input as expected; then every cut-short input: a failure, or the core values.
TEST_P(AudioCase, ParsesAndEveryPrefixFailsOrAgrees) {
    const ACase &c = GetParam();
    const auto [r, out] = parseAudio(c.tag, c.data);
    ASSERT_EQ(r, c.result);
    if (parsed(r, out, c.why)) {
        EXPECT_EQ(std::make_tuple(c.profile, c.rate, c.channels, c.object_type, c.frame_length),
                  std::make_tuple(out.profile, out.sample_rate, out.channels, out.object_type, out.frame_length));
        EXPECT_EQ(std::make_tuple(c.ext_type, c.ext_rate, (int32_t)(c.ext_type != 0), (int32_t)(c.ext_type == 29)),
                  std::make_tuple(out.ext_object_type, out.ext_sample_rate, out.sbr_present, out.ps_present));
    }
    for (size_t len = 0; len < c.data.size(); ++len) {
        const auto [r, out] = parseAudio(c.tag, c.data, len);
        SCOPED_TRACE("prefix " + std::to_string(len));
        EXPECT_LE(r, 0);
        if (!parsed(r, out)) continue;
        ASSERT_EQ(c.result, 0) << "a prefix of a malformed configuration succeeded";
        EXPECT_EQ(std::make_tuple(c.rate, c.channels, c.object_type),
                  std::make_tuple(out.sample_rate, out.channels, out.object_type));
        // From core_complete on: the core alone, or with SBR but the PS announcement cut off.
        EXPECT_TRUE(out.profile == c.profile ||
                    (len >= c.core_complete && (out.profile == c.object_type || out.profile == 5)))
            << "profile " << out.profile;
    }
}

INSTANTIATE_TEST_SUITE_P(Crafted, AudioCase, ::testing::ValuesIn(audioCases()),
                         [](const ::testing::TestParamInfo<ACase> &i) { return i.param.name; });

// Null records and data are argument errors; empty input needs more data
// (video) or is an argument error (audio). Nothing is written on failure.
TEST(ConfigParsers, Arguments) {
    const uint8_t byte = 0, asc[2] = {0x12, 0x10};
    qvid_config_in in = {};
    qvid_config_out out = {};
    in.fourcc = kAvc;
    EXPECT_EQ(qvid_config_parser(nullptr, &out), QVID_CFG_ERR_ARG);
    EXPECT_EQ(qvid_config_parser(&in, nullptr), QVID_CFG_ERR_ARG);
    in.size = 4;
    EXPECT_EQ(qvid_config_parser(&in, &out), QVID_CFG_ERR_ARG);  // null data with a size
    in.size = 0;
    for (uint32_t code : {kAvc, kHevc, kMp4v, kMpg2, kH263, kAv1, kVp8, kVp9}) {
        in.fourcc = code;
        in.data = nullptr;
        EXPECT_GT(qvid_config_parser(&in, &out), 0) << code;
        in.data = &byte;
        EXPECT_GT(qvid_config_parser(&in, &out), 0) << code;
    }
    EXPECT_TRUE(allZero(out));
    qaud_config_in ain = {asc, 2, 0xFF};
    qaud_config_out aout = {};
    EXPECT_EQ(qaud_config_parser(nullptr, &aout), QAUD_CFG_ERR_ARG);
    EXPECT_EQ(qaud_config_parser(&ain, nullptr), QAUD_CFG_ERR_ARG);
    ain.size = 0;
    EXPECT_EQ(qaud_config_parser(&ain, &aout), QAUD_CFG_ERR_ARG);
    ain.size = 2;
    ain.data = nullptr;
    EXPECT_EQ(qaud_config_parser(&ain, &aout), QAUD_CFG_ERR_ARG);
    EXPECT_TRUE(allZero(aout));
}

// ------------------------------------------------------- ffmpeg bitstreams

bool haveEncoder(const std::string &name) {
    static const Bytes bytes = qmkv_test::commandOutput("ffmpeg -hide_banner -encoders 2>/dev/null");
    static const std::string list(bytes.begin(), bytes.end());
    return list.find(" " + name + " ") != std::string::npos;
}

#define REQUIRE_ENCODER(name) \
    if (!haveEncoder(name)) GTEST_SKIP() << "ffmpeg is missing or has no encoder " << (name)

// A few frames of a test pattern at w x h, encoded by `args` into `out`
// through the muxer `format`.
bool encode(const std::string &args, int w, int h, const std::string &format, const std::string &out) {
    const std::string src = "testsrc2=size=" + std::to_string(w) + "x" + std::to_string(h) + ":rate=25:duration=0.2";
    return std::system(("ffmpeg -hide_banner -nostdin -loglevel error -y -f lavfi -i '" + src + "' -frames:v 4 " + args +
                        " -f " + format + " '" + out + "' >/dev/null 2>&1")
                           .c_str()) == 0;
}

// IVF: a 32-byte file header (its length at bytes 6-7), then frames with
// a 12-byte header (32-bit little-endian size, 64-bit time).
std::vector<Bytes> ivfFrames(const Bytes &f) {
    std::vector<Bytes> out;
    if (f.size() < 32 || memcmp(f.data(), "DKIF", 4) != 0) return out;
    for (size_t o = f[6] | f[7] << 8; o + 12 <= f.size();) {
        const size_t n = f[o] | f[o + 1] << 8 | f[o + 2] << 16 | (size_t)f[o + 3] << 24;
        o += 12;
        if (n > f.size() - o) break;
        out.emplace_back(f.begin() + o, f.begin() + o + n);
        o += n;
    }
    return out;
}

// The input from the first 00 00 01 xx with xx accepted by `pick`.
template <typename Pick>
Bytes fromCode(const Bytes &d, Pick pick) {
    for (size_t i = 0; i + 4 <= d.size(); ++i)
        if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1 && pick(d[i + 3])) return Bytes(d.begin() + i, d.end());
    ADD_FAILURE() << "no start code found";
    return {};
}

struct FfCase {
    std::string name, encoder, args;
    std::string format;  // h264 hevc m4v mpeg2video mpeg1video h263 ivf obu
    int w, h;
    uint32_t fourcc;
    int32_t dp = 0;  // MPEG-4 data partitioning, which libavcodec does not report
};

// A grid of encoder settings over every parser: profiles, bit depths,
// chroma formats, field coding, cropping of odd sizes, each standard size.
std::vector<FfCase> ffCases() {
    const std::string x264 = "-c:v libx264 -preset ultrafast", x265 = "-c:v libx265 -preset ultrafast -x265-params "
                                                                        "log-level=error";
    const std::string aom = "-c:v libaom-av1 -cpu-used 8 -g 4", vp9 = "-c:v libvpx-vp9 -deadline realtime";
    std::vector<FfCase> v = {
        {"h264_baseline_202x118", "libx264", x264 + " -profile:v baseline", "h264", 202, 118, kAvc},
        {"h264_200x120", "libx264", x264, "h264", 200, 120, fcc("H264")},
        {"h264_176x144", "libx264", x264, "h264", 176, 144, fcc("avc1")},
        {"h264_high10_202x118", "libx264", x264 + " -pix_fmt yuv420p10le", "h264", 202, 118, kAvc},
        {"h264_high444_10bit_202x118", "libx264", x264 + " -pix_fmt yuv444p10le", "h264", 202, 118, kAvc},
        {"h264_high422_202x118", "libx264", x264 + " -pix_fmt yuv422p", "h264", 202, 118, kAvc},
        {"h264_interlaced_200x120", "libx264", x264 + " -flags +ildct+ilme", "h264", 200, 120, kAvc},
        {"h264_scaling_matrix_200x120", "libx264", x264 + " -x264-params cqm=jvt", "h264", 200, 120, kAvc},
        {"hevc_202x118", "libx265", x265, "hevc", 202, 118, kHevc},
        {"hevc_176x144", "libx265", x265, "hevc", 176, 144, fcc("hvc1")},
        {"hevc_main10_202x118", "libx265", x265 + " -pix_fmt yuv420p10le", "hevc", 202, 118, kHevc},
        {"hevc_422_10bit_202x118", "libx265", x265 + " -pix_fmt yuv422p10le", "hevc", 202, 118, kHevc},
        {"hevc_444_202x118", "libx265", x265 + " -pix_fmt yuv444p", "hevc", 202, 118, kHevc},
        {"hevc_monochrome_202x118", "libx265", x265 + " -pix_fmt gray", "hevc", 202, 118, kHevc},
        {"mpeg4_200x120", "mpeg4", "-c:v mpeg4", "m4v", 200, 120, kMp4v},
        {"mpeg4_data_partitioned_200x120", "mpeg4", "-c:v mpeg4 -data_partitioning 1", "m4v", 200, 120, fcc("XVID"), 1},
        {"mpeg4_qpel_interlaced_320x180", "mpeg4", "-c:v mpeg4 -flags +qpel+ildct", "m4v", 320, 180, fcc("DIVX")},
        {"mpeg4_mpeg_quant_176x144", "mpeg4", "-c:v mpeg4 -mpeg_quant 1", "m4v", 176, 144, fcc("FMP4")},
        {"mpeg2_200x120", "mpeg2video", "-c:v mpeg2video", "mpeg2video", 200, 120, kMpg2},
        {"mpeg2_422_interlaced_320x180", "mpeg2video", "-c:v mpeg2video -pix_fmt yuv422p -flags +ildct", "mpeg2video",
         320, 180, fcc("MPG2")},
        {"mpeg2_wide_4112x64", "mpeg2video", "-c:v mpeg2video", "mpeg2video", 4112, 64, kMpg2},
        {"mpeg1_200x120", "mpeg1video", "-c:v mpeg1video", "mpeg1video", 200, 120, kMpg2},
        {"h263p_custom_200x120", "h263p", "-c:v h263p", "h263", 200, 120, kH263},
        {"h263p_176x144", "h263p", "-c:v h263p", "h263", 176, 144, fcc("S263")},
        {"h263_as_mp4v_176x144", "h263", "-c:v h263", "h263", 176, 144, fcc("mp4v")},
        {"vp8_200x120", "libvpx", "-c:v libvpx", "ivf", 200, 120, kVp8},
        {"vp8_330x190", "libvpx", "-c:v libvpx", "ivf", 330, 190, kVp8},
        {"vp9_profile0_202x118", "libvpx-vp9", vp9, "ivf", 202, 118, kVp9},
        {"vp9_profile1_444_202x118", "libvpx-vp9", vp9 + " -pix_fmt yuv444p", "ivf", 202, 118, kVp9},
        {"vp9_profile1_422_200x120", "libvpx-vp9", vp9 + " -pix_fmt yuv422p", "ivf", 200, 120, kVp9},
        {"vp9_profile1_440_200x120", "libvpx-vp9", vp9 + " -pix_fmt yuv440p", "ivf", 200, 120, kVp9},
        {"vp9_profile1_rgb_200x120", "libvpx-vp9", vp9 + " -pix_fmt gbrp", "ivf", 200, 120, kVp9},
        {"vp9_profile2_10bit_200x120", "libvpx-vp9", vp9 + " -pix_fmt yuv420p10le", "ivf", 200, 120, kVp9},
        {"vp9_profile3_12bit_444_200x120", "libvpx-vp9", vp9 + " -pix_fmt yuv444p12le", "ivf", 200, 120, kVp9},
        {"av1_200x120", "libaom-av1", aom, "ivf", 200, 120, kAv1},
        {"av1_obu_stream_202x118", "libaom-av1", aom, "obu", 202, 118, kAv1},
        {"av1_profile1_444_200x120", "libaom-av1", aom + " -pix_fmt yuv444p", "ivf", 200, 120, kAv1},
        {"av1_profile1_srgb_200x120", "libaom-av1", aom + " -pix_fmt gbrp", "ivf", 200, 120, kAv1},
        {"av1_10bit_200x120", "libaom-av1", aom + " -pix_fmt yuv420p10le", "ivf", 200, 120, kAv1},
        {"av1_profile2_12bit_200x120", "libaom-av1", aom + " -pix_fmt yuv420p12le", "ivf", 200, 120, kAv1},
        {"av1_profile2_422_200x120", "libaom-av1", aom + " -pix_fmt yuv422p10le", "ivf", 200, 120, kAv1},
        {"av1_monochrome_200x120", "libaom-av1", aom + " -pix_fmt gray", "ivf", 200, 120, kAv1},
        {"av1_svt_320x180", "libsvtav1", "-c:v libsvtav1", "ivf", 320, 180, kAv1},
    };
    // Every source format of H.263, sub-QCIF to 16CIF.
    for (const auto &s : std::vector<std::pair<int, int>>{{128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}})
        v.push_back({"h263_" + std::to_string(s.first) + "x" + std::to_string(s.second), "h263", "-c:v h263", "h263",
                     s.first, s.second, v.size() % 2 ? kH263 : fcc("s263")});
    return v;
}

class FfmpegStream : public ::testing::TestWithParam<FfCase> {
protected:
    // What the parser reports against what libavcodec reads in the same
    // stream: every field libavcodec knows (AVC profiles without their
    // constraint flags; MPEG-4 and H.263 profiles mean other things there).
    void expectConfigured(const Bytes &d, const AvVideoParams &av, const char *what) {
        const FfCase &c = GetParam();
        const auto [r, out] = parseVideo(c.fourcc, d);
        ASSERT_EQ(r, 0) << what;
        EXPECT_EQ(std::make_pair(c.w, c.h), std::make_pair(av.width, av.height)) << "the oracle's size";
        EXPECT_EQ(std::make_tuple(av.width, av.height, c.dp), std::make_tuple(out.width, out.height, out.data_partitioned))
            << what;
        const bool ownProfiles = c.format == "m4v" || c.format == "h263";
        const int32_t want[] = {ownProfiles ? -1 : c.format == "h264" ? av.profile & 0xFF : av.profile,
                                ownProfiles ? -1 : av.level, av.bit_depth, av.chroma_format, av.interlaced};
        const int32_t got[] = {out.profile, out.level, out.bit_depth, out.chroma_format, out.interlaced};
        for (size_t i = 0; i < 5; ++i)
            EXPECT_TRUE(want[i] < 0 || want[i] == got[i]) << what << ": field " << i << " is " << got[i]
                                                          << ", libavcodec says " << want[i];
    }

    void expectNeedsMore(const Bytes &d, const char *what) { EXPECT_GT(parseVideo(GetParam().fourcc, d).first, 0) << what; }
};

TEST_P(FfmpegStream, ReportsWhatLibavcodecReads) {
    const FfCase &c = GetParam();
    REQUIRE_ENCODER(c.encoder);
    TempDir dir;
    const std::string path = dir.path + "/stream." + c.format;
    ASSERT_TRUE(encode(c.args, c.w, c.h, c.format, path)) << "ffmpeg failed for " << c.name;
    AvVideoParams av;
    ASSERT_TRUE(avProbeVideo(path, &av));
    const Bytes file = qmkv_test::readBytes(path);
    ASSERT_GT(file.size(), 16u);
    if (c.format == "ivf") {
        const std::vector<Bytes> frames = ivfFrames(file);
        ASSERT_GE(frames.size(), 2u);
        expectConfigured(frames[0], av, "first frame");
        expectNeedsMore(frames[1], "second frame");  // later frames carry no sequence-level header
        return;
    }
    expectConfigured(file, av, "whole stream");
    if (c.format == "h264") {
        expectNeedsMore(fromCode(file, [](uint8_t b) { return (b & 0x1F) == 5 || (b & 0x1F) == 1; }), "slices only");
    } else if (c.format == "hevc") {
        expectNeedsMore(fromCode(file, [](uint8_t b) { return ((b >> 1) & 0x3F) <= 21; }), "slices only");
    } else if (c.format == "m4v") {
        expectNeedsMore(fromCode(file, [](uint8_t b) { return b == 0xB6; }), "VOPs only");
    } else if (c.format.rfind("mpeg", 0) == 0) {
        expectNeedsMore(fromCode(file, [](uint8_t b) { return b == 0x00; }), "pictures only");
    } else if (c.format == "h263") {
        // Every picture has a header; PLUSPTYPE pictures may omit the format.
        size_t pictures = 0;
        for (size_t i = 0; i + 3 <= file.size(); ++i) {
            if (file[i] != 0 || file[i + 1] != 0 || (file[i + 2] & 0xFC) != 0x80) continue;
            const auto [r, out] = parseVideo(c.fourcc, Bytes(file.begin() + (long)i, file.end()));
            ++pictures;
            EXPECT_GE(r, 0) << "picture at " << i;
            EXPECT_TRUE(r != 0 || (out.width == c.w && out.height == c.h)) << "picture at " << i;
        }
        EXPECT_GE(pictures, 4u);
    }
}

INSTANTIATE_TEST_SUITE_P(Encoded, FfmpegStream, ::testing::ValuesIn(ffCases()),
                         [](const ::testing::TestParamInfo<FfCase> &i) { return i.param.name; });

// ------------------------------------------------------- device profile

class DeviceProfile : public ::testing::Test {
protected:
    void TearDown() override { unsetenv("QMKV_CODEC_LIST"); }

    // Writes the files (paths relative to a fresh folder) and points the
    // variable at the first.
    void useList(const std::vector<std::pair<std::string, std::string>> &files) {
        std::filesystem::create_directories(dir_.path + "/etc");
        for (const auto &f : files) std::ofstream(dir_.path + "/" + f.first) << f.second;
        setenv("QMKV_CODEC_LIST", (dir_.path + "/" + files[0].first).c_str(), 1);
    }

    // Both queries' results and outputs: "<result> <flag> | <result> <landscape> <portrait>";
    // the outputs start as -1 and 1920x1088 1088x1920.
    static std::string query(uint32_t code) {
        int32_t flag = -1;
        qvid_mm_max_dims d = {1920, 1088, 1088, 1920};
        std::ostringstream o;
        o << qvid_get_mm_spec(QVID_MMSPEC_QUERY_SUPPORTED, code, &flag, sizeof(flag)) << " " << flag << " | ";
        o << qvid_get_mm_spec(QVID_MMSPEC_QUERY_MAX_DIMS, code, &d, sizeof(d)) << " " << d.landscape_width << "x"
          << d.landscape_height << " " << d.portrait_width << "x" << d.portrait_height;
        return o.str();
    }
    static std::string query(const char *code) { return query(fcc(code)); }

    TempDir dir_;
};

const char *const kDefault = "0 1 | 0 4096x2176 2176x4096", *const kUnsupported = "0 0 | -109 1920x1088 1088x1920";

TEST_F(DeviceProfile, DefaultDecodesTheWhitelistUpTo4096x2176) {
    unsetenv("QMKV_CODEC_LIST");
    for (const char *s : {"MPG2", "mpg2", "H263", "S263", "h263", "s263", "AVC1", "avc1", "hvc1", "hev1", "VP80",
                          "VP90", "av01", "H264", "X264", "h264", "x264", "FMP4", "fmp4", "XVID", "xvid", "MP4V",
                          "mp4v"})
        EXPECT_EQ(query(s), kDefault) << s;
    EXPECT_EQ(query("MP43"), kUnsupported) << "known codec without a decoder; nothing written";
    EXPECT_EQ(query("WMV3"), "-109 0 | -109 1920x1088 1088x1920") << "unknown codec";
    EXPECT_EQ(query(0x55), "-109 0 | -109 1920x1088 1088x1920");
}

TEST_F(DeviceProfile, BadQueriesAndSizes) {
    int32_t flag = 7;
    qvid_mm_max_dims d = {};
    EXPECT_EQ(qvid_get_mm_spec(102, kAvc, &flag, 4), QVID_MMSPEC_ERR_QUERY);
    EXPECT_EQ(qvid_get_mm_spec(0, kAvc, &flag, 4), QVID_MMSPEC_ERR_QUERY);
    EXPECT_EQ(qvid_get_mm_spec(100, kAvc, nullptr, 4), QVID_MMSPEC_ERR_ARG);
    EXPECT_EQ(qvid_get_mm_spec(100, kAvc, &flag, 3), QVID_MMSPEC_ERR_ARG);
    EXPECT_EQ(qvid_get_mm_spec(101, kAvc, &d, 15), QVID_MMSPEC_ERR_ARG);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(d.landscape_width, 0);
    EXPECT_EQ(qvid_get_mm_spec(101, kAvc, &d, 32), 0) << "a larger output is fine";
}

// Codec lists laid out as devices ship them.
TEST_F(DeviceProfile, CodecListReplacesTheDefault) {
    const std::string top = "etc/media_codecs.xml";
    struct {
        const char *what;
        std::vector<std::pair<std::string, std::string>> files;
        std::vector<std::pair<const char *, const char *>> expect;
    } cases[] = {
        {"type attribute; portrait is the declared size swapped",
         {{top, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.avc.decoder" type="video/avc">
              <Limit name="size" min="96x96" max="4096x2304"/><Feature name="adaptive-playback"/>
              </MediaCodec></Decoders></MediaCodecs>)"}},
         {{"AVC1", "0 1 | 0 4096x2304 2304x4096"}, {"x264", "0 1 | 0 4096x2304 2304x4096"}, {"hev1", kUnsupported},
          {"MP43", kUnsupported}}},
        {"Type children with their own limits, else the codec's; no size at all is the default size",
         {{top, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.multi.decoder">
              <Limit name="size" max="1920x1088"/>
              <Type name="video/hevc"><Limit name="size" min="96x96" max="8192x4320"/></Type>
              <Type name="video/x-vnd.on2.vp9"/></MediaCodec>
              <MediaCodec name="c2.vendor.vp8.decoder" type="video/x-vnd.on2.vp8"/>
              <MediaCodec name="c2.vendor.mpeg2.decoder" type="video/mpeg2"><Limit name="size" range="16x16-1920x1088"/>
              </MediaCodec><MediaCodec name="c2.vendor.divx3.decoder" type="video/divx311"/>
              </Decoders></MediaCodecs>)"}},
         {{"hev1", "0 1 | 0 8192x4320 4320x8192"}, {"VP90", "0 1 | 0 1920x1088 1088x1920"}, {"VP80", kDefault},
          {"mpg2", "0 1 | 0 1920x1088 1088x1920"}, {"MP43", kDefault}, {"AVC1", kUnsupported}}},
        {"secure decoders do not count; an optional secure-playback feature does",
         {{top, R"(<MediaCodecs><Decoders>
              <MediaCodec name="c2.vendor.avc.decoder.secure" type="video/avc"><Limit name="size" max="4096x2304"/></MediaCodec>
              <MediaCodec name="OMX.vendor.hevc.dec" type="video/hevc">
                <Feature name="secure-playback" required="true"/></MediaCodec>
              <MediaCodec name="c2.vendor.vp9.decoder" type="video/x-vnd.on2.vp9"><Limit name="size" max="3840x2160"/>
                <Feature name="secure-playback"/></MediaCodec>
              <MediaCodec name="c2.vendor.av1.decoder"><Type name="video/av01">
                <Feature name="secure-playback" required="true"/></Type></MediaCodec>
              </Decoders></MediaCodecs>)"}},
         {{"AVC1", kUnsupported}, {"hev1", kUnsupported}, {"VP90", "0 1 | 0 3840x2160 2160x3840"},
          {"av01", kUnsupported}}},
        {"several decoders of one type: the largest, with updates to a declared codec",
         {{top, R"(<MediaCodecs><Decoders>
              <MediaCodec name="c2.android.avc.decoder" type="video/avc"><Limit name="size" max="4080x4080"/></MediaCodec>
              <MediaCodec name="c2.vendor.avc.decoder" type="video/avc"><Limit name="size" max="4096x2304"/></MediaCodec>
              <MediaCodec name="c2.vendor.hevc.decoder" type="video/hevc"><Limit name="size" max="1920x1088"/></MediaCodec>
              <MediaCodec name="c2.vendor.hevc.decoder" update="true"><Limit name="size" max="7680x4320"/></MediaCodec>
              <MediaCodec name="c2.vendor.vp9.decoder" type="video/x-vnd.on2.vp9" update="true"/>
              </Decoders></MediaCodecs>)"}},
         {{"AVC1", "0 1 | 0 4080x4080 4080x4080"}, {"hev1", "0 1 | 0 7680x4320 4320x7680"}, {"VP90", kUnsupported}}},
        {"includes beside the including file, nested, in a cycle, missing or not a file name; encoders ignored",
         {{top, R"(<MediaCodecs><Include href="media_codecs_google_video.xml"/>
              <Include href="media_codecs_missing.xml"/><Include href="../media_codecs_x.xml"/>
              <Decoders><Include href="media_codecs_vendor.xml"/></Decoders>
              <Encoders><MediaCodec name="c2.vendor.avc.encoder" type="video/avc"/></Encoders></MediaCodecs>)"},
          {"etc/media_codecs_google_video.xml", R"(<Included><Decoders>
              <MediaCodec name="c2.android.vp9.decoder" type="video/x-vnd.on2.vp9"><Limit name="size" max="2048x2048"/>
              </MediaCodec></Decoders><Include href="media_codecs_cycle.xml"/></Included>)"},
          {"etc/media_codecs_cycle.xml", R"(<Included><Include href="media_codecs_google_video.xml"/>
              <Decoders><MediaCodec name="c2.android.av1.decoder" type="video/av01"/></Decoders></Included>)"},
          {"etc/media_codecs_vendor.xml", R"(<Included><Decoders><MediaCodec name="c2.vendor.hevc.decoder">
              <Type name="video/hevc"><Limit name="size" max="4096x2304"/></Type></MediaCodec></Decoders></Included>)"},
          {"media_codecs_x.xml", R"(<Included><Decoders><MediaCodec name="x" type="video/mpeg2"/></Decoders></Included>)"}},
         {{"VP90", "0 1 | 0 2048x2048 2048x2048"}, {"av01", kDefault}, {"hev1", "0 1 | 0 4096x2304 2304x4096"},
          {"AVC1", kUnsupported}, {"mpg2", kUnsupported}}},
    };
    for (const auto &c : cases) {
        useList(c.files);
        for (const auto &e : c.expect) EXPECT_EQ(query(e.first), e.second) << c.what << ": " << e.first;
    }
}

TEST_F(DeviceProfile, UnusableListsFallBackToTheDefaultWithALogLine) {
    const std::string top = "etc/media_codecs.xml";
    const std::pair<std::string, std::string> broken[] = {
        {"<MediaCodecs><Decoders></MediaCodecs>", "line 1: XML_ERROR_MISMATCHED_ELEMENT"},
        {"", "XML_ERROR_EMPTY_DOCUMENT"},
        {"<MediaProfiles/>", "is not a codec list (root element <MediaProfiles>)"},
        {"<MediaCodecs><Include href=\"media_codecs_bad.xml\"/></MediaCodecs>", "media_codecs_bad.xml line 1"},
    };
    for (const auto &b : broken) {
        useList({{top, b.first}, {"etc/media_codecs_bad.xml", "<Included><Decoders>"}});
        LogCapture log;
        EXPECT_EQ(query("hev1"), kDefault) << b.first;
        EXPECT_TRUE(log.contains(b.second)) << b.first;
        EXPECT_TRUE(log.contains("; using the built-in profile")) << b.first;
    }
    for (const std::string &path : {dir_.path + "/missing.xml", dir_.path}) {
        setenv("QMKV_CODEC_LIST", path.c_str(), 1);
        LogCapture log;
        EXPECT_EQ(query("AVC1"), kDefault) << path;
        EXPECT_TRUE(log.contains("codec list " + path + ": cannot read it: ")) << path;
    }
}

}  // namespace

TEST(Fcc2Mime, EveryWhitelistedCodeHasTheMediaTypeOfItsCodecAndNoOtherIsKnown) {
    using namespace android;
    // Four-character codes, numeric tags, and their media type.
    const struct { const char *codes; std::vector<uint32_t> tags; const char *mime; } rows[] = {
        {"MPG2mpg2", {}, "video/mpeg2"}, {"MP43", {}, MEDIA_MIMETYPE_VIDEO_DIVX3},
        {"H263S263h263s263", {}, "video/3gpp"}, {"AVC1avc1H264X264h264x264", {}, "video/avc"},
        {"hvc1hev1", {}, "video/hevc"}, {"VP80", {}, "video/x-vnd.on2.vp8"}, {"VP90", {}, "video/x-vnd.on2.vp9"},
        {"av01", {}, "video/av01"}, {"FMP4fmp4XVIDxvidMP4Vmp4v", {}, "video/mp4v-es"},
        {"lpcm", {1, 3}, "audio/raw"}, {"", {2}, MEDIA_MIMETYPE_AUDIO_MS_ADPCM},
        {"", {0x11}, MEDIA_MIMETYPE_AUDIO_DVI_IMA_ADPCM}, {"", {0x50}, "audio/mpeg-L2"}, {"", {0x55}, "audio/mpeg"},
        {"", {0x92, 0x2000}, "audio/ac3"}, {"MP4Amp4a", {0xFF}, "audio/mp4a-latm"},
        {"", {0x160, 0x161}, "audio/x-ms-wma"}, {"", {0x6751, 0x2674F}, "audio/vorbis"}, {"", {0xF1AC}, "audio/flac"},
        {"ec-3", {}, "audio/eac3"}, {"Opus", {}, "audio/opus"}, {"SSRT", {}, "application/x-subrip"},
        {"SASSSSSA", {}, "text/x-ssa"},
        // Near misses of listed codes.
        {"*???#DIR`VC1Avc1alac", {0, 6, 7, 0x162, 0x2001, 0xFFFFFFFF}, QCMN_MIMETYPE_UNKNOWN},
    };
    for (const auto &row : rows) {
        std::vector<uint32_t> codes = row.tags;
        for (const char *p = row.codes; *p != '\0'; p += 4) {
            uint32_t code = 0;
            memcpy(&code, p, 4);  // first character in the lowest byte
            codes.push_back(code);
        }
        for (uint32_t code : codes) EXPECT_STREQ(row.mime, qcmn_fcc2mime(code)) << std::hex << code;
    }
}
