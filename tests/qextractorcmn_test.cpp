// The common extractor helpers: video configuration parsing over crafted
// and ffmpeg-made bitstreams, AAC configuration parsing, the device
// profile and its queries, and the extra format keys.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qextractorcmn/ExtMediaFormatDef.h"
#include "qextractorcmn/qcmn_device_profile.h"
#include "qextractorcmn/qextractorcmn.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"

using Bytes = std::vector<uint8_t>;

namespace {

// First character in the lowest byte.
constexpr uint32_t fcc(const char (&s)[5]) {
    return (uint32_t)(uint8_t)s[0] | (uint32_t)(uint8_t)s[1] << 8 | (uint32_t)(uint8_t)s[2] << 16 |
           (uint32_t)(uint8_t)s[3] << 24;
}

const uint32_t kAvc = fcc("AVC1"), kHevc = fcc("hev1"), kMp4v = fcc("MP4V"), kMpg2 = fcc("mpg2"),
               kH263 = fcc("H263"), kAv1 = fcc("av01"), kVp8 = fcc("VP80"), kVp9 = fcc("VP90");

// ------------------------------------------------------------------ writers

// MSB-first bit writer for crafting headers.
class BitWriter {
public:
    BitWriter &u(unsigned n, uint64_t v) {
        for (unsigned i = n; i-- > 0;) push((v >> i) & 1);
        return *this;
    }
    BitWriter &ue(uint32_t v) {
        const uint64_t x = (uint64_t)v + 1;
        unsigned len = 0;
        while ((x >> (len + 1)) != 0) ++len;
        return u(len, 0).u(len + 1, x);
    }
    BitWriter &se(int32_t v) { return ue(v <= 0 ? (uint32_t)(-2LL * v) : (uint32_t)(2LL * v - 1)); }
    BitWriter &trailing() {  // rbsp_trailing_bits
        push(1);
        return align();
    }
    BitWriter &align(int fill = 0) {
        while (bits_ % 8) push(fill);
        return *this;
    }
    BitWriter &raw(const Bytes &b) {
        for (uint8_t x : b) u(8, x);
        return *this;
    }
    size_t bits() const { return bits_; }
    Bytes bytes() const { return out_; }

private:
    void push(uint64_t bit) {
        if (bits_ % 8 == 0) out_.push_back(0);
        if (bit) out_.back() |= (uint8_t)(0x80 >> (bits_ % 8));
        ++bits_;
    }
    Bytes out_;
    size_t bits_ = 0;
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

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes startCode(const Bytes &nal) { return cat({{0, 0, 0, 1}, nal}); }

bool contains(const Bytes &hay, const Bytes &needle) {
    return std::search(hay.begin(), hay.end(), needle.begin(), needle.end()) != hay.end();
}

// --------------------------------------------------------------- AVC SPS

struct AvcSps {
    uint32_t profile = 100, level = 40;
    uint32_t chroma = 1;
    bool separate_planes = false;
    uint32_t depth_minus8 = 0;
    bool scaling = false;
    uint32_t poc_type = 0;
    int32_t poc_offset = 0;
    uint32_t width_mbs = 120, height_units = 68;
    bool frame_mbs_only = true;
    bool cropping = false;
    uint32_t crop[4] = {0, 0, 0, 0};  // left, right, top, bottom
    bool vui = false;
};

bool highProfile(uint32_t p) {
    for (uint32_t h : {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u})
        if (p == h) return true;
    return false;
}

void scalingList(BitWriter &w, int size, int seed) {
    int last = 8, next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            int delta = ((j * 7 + seed) % 11) - 5;
            if (j == 3) delta = 127;
            if (j == 4) delta = -128;
            if (delta == 0) delta = 1;
            w.se(delta);
            next = (last + delta + 256) % 256;
        }
        if (next != 0) last = next;
    }
}

Bytes avcSpsNal(const AvcSps &s) {
    BitWriter w;
    w.u(8, s.profile).u(8, 0).u(8, s.level).ue(0);
    if (highProfile(s.profile)) {
        w.ue(s.chroma);
        if (s.chroma == 3) w.u(1, s.separate_planes);
        w.ue(s.depth_minus8).ue(s.depth_minus8).u(1, 0).u(1, s.scaling);
        if (s.scaling) {
            const int lists = s.chroma != 3 ? 8 : 12;
            for (int i = 0; i < lists; ++i) {
                if (i % 3 == 2) {
                    w.u(1, 0);  // not present
                } else if (i == 1) {
                    w.u(1, 1).se(-8);  // first delta reaching 0: use the default list
                } else {
                    w.u(1, 1);
                    scalingList(w, i < 6 ? 16 : 64, i);
                }
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
    if (s.vui) w.u(1, 1).u(8, 255).u(16, 1).u(16, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
    w.trailing();
    return cat({{0x67}, escape(w.bytes())});
}

// 00 00 00 01 SPS, then a PPS and an IDR slice header's first bytes.
Bytes avcStream(const AvcSps &s) {
    return cat({startCode(avcSpsNal(s)), startCode({0x68, 0xEE, 0x3C, 0x80}), startCode({0x65, 0x88, 0x84, 0x00, 0x33})});
}

// --------------------------------------------------------------- HEVC SPS

struct HevcSps {
    uint32_t max_sub_layers_minus1 = 0;
    bool sub_profile[7] = {}, sub_level[7] = {};
    uint32_t profile = 1, level = 93;
    uint32_t chroma = 1;
    bool separate_planes = false;
    uint32_t width = 1920, height = 1088;
    bool conformance = false;
    uint32_t win[4] = {0, 0, 0, 0};
    uint32_t depth_minus8 = 0;
    uint32_t layer_id = 0;
};

Bytes hevcSpsNal(const HevcSps &s) {
    BitWriter w;
    w.u(4, 0).u(3, s.max_sub_layers_minus1).u(1, 1);
    w.u(2, 0).u(1, 0).u(5, s.profile).u(32, 1u << (31 - s.profile)).u(4, 0x9).u(43, 0).u(1, 0).u(8, s.level);
    for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) w.u(1, s.sub_profile[i]).u(1, s.sub_level[i]);
    if (s.max_sub_layers_minus1 > 0)
        for (uint32_t i = s.max_sub_layers_minus1; i < 8; ++i) w.u(2, 0);
    for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) {
        if (s.sub_profile[i]) w.u(44, 0x12345678ABCull).u(44, 0xFEDCBA98765ull);
        if (s.sub_level[i]) w.u(8, 0xFF);
    }
    w.ue(0).ue(s.chroma);
    if (s.chroma == 3) w.u(1, s.separate_planes);
    w.ue(s.width).ue(s.height).u(1, s.conformance);
    if (s.conformance) w.ue(s.win[0]).ue(s.win[1]).ue(s.win[2]).ue(s.win[3]);
    w.ue(s.depth_minus8).ue(s.depth_minus8).ue(4).u(1, 1).ue(1).ue(0).ue(0);
    w.trailing();
    const uint8_t h0 = (uint8_t)(33 << 1 | (s.layer_id >> 5)), h1 = (uint8_t)((s.layer_id & 31) << 3 | 1);
    return cat({{h0, h1}, escape(w.bytes())});
}

const Bytes kHevcVps = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60};
const Bytes kHevcPps = {0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40};

Bytes hevcStream(const HevcSps &s) {
    return cat({startCode(kHevcVps), startCode(hevcSpsNal(s)), startCode(kHevcPps), startCode({0x26, 0x01, 0xAF, 0x1D})});
}

// HEVCDecoderConfigurationRecord holding VPS, SPS and PPS arrays.
Bytes hvcC(const Bytes &vps, const Bytes &sps, const Bytes &pps) {
    Bytes r = {1, 0x01, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 93, 0xF0, 0x00, 0xFC, 0xFD, 0xF8, 0xF8, 0, 0, 0x0F, 3};
    for (const Bytes *nal : {&vps, &sps, &pps}) {
        r.push_back(0x80 | (((*nal)[0] >> 1) & 0x3F));
        r.push_back(0);
        r.push_back(1);
        r.push_back((uint8_t)(nal->size() >> 8));
        r.push_back((uint8_t)nal->size());
        r.insert(r.end(), nal->begin(), nal->end());
    }
    return r;
}

// AVCDecoderConfigurationRecord with one SPS and one PPS.
Bytes avcC(const Bytes &sps, const Bytes &pps) {
    Bytes r = {1, sps[1], sps[2], sps[3], 0xFF, 0xE1, (uint8_t)(sps.size() >> 8), (uint8_t)sps.size()};
    r.insert(r.end(), sps.begin(), sps.end());
    r.push_back(1);
    r.push_back((uint8_t)(pps.size() >> 8));
    r.push_back((uint8_t)pps.size());
    r.insert(r.end(), pps.begin(), pps.end());
    return r;
}

// ----------------------------------------------------------- MPEG-4 VOL

struct Vol {
    bool vos = true, vo = true;
    uint32_t vo_verid = 1;    // visual_object_verid (VO header)
    uint32_t vol_verid = 0;   // 0: no is_object_layer_identifier
    uint32_t object_type = 1;
    uint32_t aspect = 1;      // 15: extended PAR follows
    bool control = false, vbv = false;
    uint32_t shape = 0;
    uint32_t resolution = 25;
    bool fixed_rate = false;
    uint32_t width = 176, height = 144;
    bool interlaced = false;
    uint32_t sprite = 0;
    bool not_8_bit = false;
    bool quant_type = false, intra_matrix = false, inter_matrix = false;
    int complexity = -1;      // -1 disabled, else the estimation method
    bool data_partitioned = false;
};

Bytes mpeg4Headers(const Vol &v) {
    Bytes out;
    if (v.vos) out = cat({out, {0, 0, 1, 0xB0, 0xF5}});
    if (v.vo) {
        BitWriter w;
        if (v.vo_verid != 1) {
            w.u(1, 1).u(4, v.vo_verid).u(3, 1);
        } else {
            w.u(1, 0);
        }
        w.u(4, 1).u(1, 0).u(1, 0).align(1);  // video object type, no signal type, stuffing
        out = cat({out, {0, 0, 1, 0xB5}, w.bytes(), {0, 0, 1, 0x00}});
    }
    BitWriter w;
    w.u(1, 0).u(8, v.object_type);
    const uint32_t verid = v.vol_verid ? v.vol_verid : v.vo_verid;
    if (v.vol_verid) {
        w.u(1, 1).u(4, v.vol_verid).u(3, 1);
    } else {
        w.u(1, 0);
    }
    w.u(4, v.aspect);
    if (v.aspect == 15) w.u(8, 12).u(8, 11);
    w.u(1, v.control);
    if (v.control) {
        w.u(2, 1).u(1, 1).u(1, v.vbv);
        if (v.vbv) w.u(15, 0x7FFF).u(1, 1).u(15, 0x1234).u(1, 1).u(15, 0x7FFF).u(1, 1).u(3, 5).u(11, 0x7FF).u(1, 1).u(15, 0x7FFF).u(1, 1);
    }
    w.u(2, v.shape).u(1, 1).u(16, v.resolution).u(1, 1).u(1, v.fixed_rate);
    if (v.fixed_rate) {
        unsigned bits = 1;
        while (bits < 16 && ((v.resolution - 1) >> bits) != 0) ++bits;
        w.u(bits, 1);
    }
    if (v.shape == 0) {
        w.u(1, 1).u(13, v.width).u(1, 1).u(13, v.height).u(1, 1).u(1, v.interlaced).u(1, 1);
        w.u(verid == 1 ? 1 : 2, v.sprite);
        if (v.sprite == 1 || v.sprite == 2) {
            if (v.sprite != 2) w.u(13, 320).u(1, 1).u(13, 240).u(1, 1).u(13, 7).u(1, 1).u(13, 9).u(1, 1);
            w.u(6, 3).u(2, 1).u(1, 0);
            if (v.sprite != 2) w.u(1, 0);
        }
        w.u(1, v.not_8_bit);
        if (v.not_8_bit) w.u(4, 5).u(4, 10);
        w.u(1, v.quant_type);
        if (v.quant_type) {
            w.u(1, v.intra_matrix);
            if (v.intra_matrix)
                for (int i = 0; i < 64; ++i) w.u(8, 8 + i);
            w.u(1, v.inter_matrix);
            if (v.inter_matrix) w.u(8, 16).u(8, 17).u(8, 0);  // shortened by a zero
        }
        if (verid != 1) w.u(1, 0);  // quarter_sample
        if (v.complexity < 0) {
            w.u(1, 1);
        } else {
            w.u(1, 0).u(2, (uint64_t)v.complexity);
            if (v.complexity <= 1) {
                w.u(1, 0).u(6, 0x3F).u(1, 0).u(4, 0xF).u(1, 1).u(1, 0).u(4, 0xF).u(1, 0).u(6, 0x3F).u(1, 1);
                if (v.complexity == 1) w.u(1, 0).u(2, 3);
            }
        }
        w.u(1, 0).u(1, v.data_partitioned);  // resync markers on, data partitioning
        if (v.data_partitioned) w.u(1, 0);
        if (verid != 1) w.u(1, 0).u(1, 0);  // newpred, reduced resolution
        w.u(1, 0);                           // scalability
    }
    w.u(1, 0).align(1);  // next_start_code stuffing
    return cat({out, {0, 0, 1, 0x20}, w.bytes(), {0, 0, 1, 0xB6, 0x10, 0x20, 0x30}});
}

// ------------------------------------------------------------- H.263

struct H263 {
    uint32_t format = 2;  // 1-5 standard, 7 PLUSPTYPE
    uint32_t ufep = 1;
    uint32_t plus_format = 6;
    uint32_t par = 1;
    uint32_t width = 200, height = 120;  // custom format
    bool cpm = false;
};

Bytes h263Picture(const H263 &p) {
    BitWriter w;
    w.u(22, 0x20).u(8, 7).u(1, 1).u(1, 0).u(3, 0).u(3, p.format);
    if (p.format != 7) {
        w.u(1, 0).u(4, 0).u(5, 10).u(1, 0).u(1, 0);
    } else {
        w.u(3, p.ufep);
        if (p.ufep == 1) w.u(3, p.plus_format).u(11, 0).u(1, 1).u(3, 0);
        w.u(3, 0).u(1, 0).u(1, 0).u(1, 0).u(2, 0).u(1, 1);  // MPPTYPE
        w.u(1, p.cpm);
        if (p.cpm) w.u(2, 1);
        if (p.ufep == 1 && p.plus_format == 6) {
            w.u(4, p.par).u(9, p.width / 4 - 1).u(1, 1).u(9, p.height / 4);
            if (p.par == 15) w.u(8, 10).u(8, 11);
        }
        w.u(5, 10).u(1, 0);
    }
    w.u(24, 0xABCDEF).align();
    return w.bytes();
}

// ------------------------------------------------------------- MPEG-2

Bytes mpeg2Sequence(uint32_t w, uint32_t h, bool extension, bool progressive = true, uint32_t chroma = 1) {
    BitWriter s;
    s.u(12, w & 0xFFF).u(12, h & 0xFFF).u(4, 1).u(4, 3).u(18, 5000).u(1, 1).u(10, 112).u(1, 0).u(1, 0).u(1, 0);
    Bytes out = cat({{0, 0, 1, 0xB3}, s.bytes()});
    if (extension) {
        BitWriter e;
        e.u(4, 1).u(8, 0x48).u(1, progressive).u(2, chroma).u(2, w >> 12).u(2, h >> 12).u(12, 0).u(1, 1).u(8, 0).u(1, 0).u(2, 0).u(5, 0);
        out = cat({out, {0, 0, 1, 0xB5}, e.bytes()});
    }
    return cat({out, {0, 0, 1, 0xB8, 0x00, 0x08, 0x00, 0x00, 0, 0, 1, 0x00, 0x00, 0x0F}});
}

// ------------------------------------------------------------- AV1

struct Av1Seq {
    uint32_t profile = 0;
    bool reduced = false;
    bool timing = false, decoder_model = false, display_delay = false;
    uint32_t points = 1;
    uint32_t level = 8;
    uint32_t width = 200, height = 120;
    bool frame_ids = false, order_hint = true, choose_sct = true, force_sct = true;
    bool high_bitdepth = false, twelve_bit = false, mono = false, color_desc = false;
    uint32_t primaries = 2, transfer = 2, matrix = 2;
};

Bytes av1SequenceHeader(const Av1Seq &s) {
    BitWriter w;
    w.u(3, s.profile).u(1, s.reduced).u(1, s.reduced);
    if (s.reduced) {
        w.u(5, s.level);
    } else {
        w.u(1, s.timing);
        if (s.timing) {
            w.u(32, 1).u(32, 25).u(1, 1).ue(0);  // uvlc(0) is the same code as ue(0)
            w.u(1, s.decoder_model);
            if (s.decoder_model) w.u(5, 9).u(32, 1).u(5, 20).u(5, 20);
        }
        w.u(1, s.display_delay).u(5, s.points - 1);
        for (uint32_t i = 0; i < s.points; ++i) {
            w.u(12, i == 0 ? 0 : 0x103).u(5, s.level + i);
            if (s.level + i > 7) w.u(1, 0);
            if (s.timing && s.decoder_model) {
                w.u(1, 1).u(10, 0x155).u(10, 0x2AA).u(1, 0);
            }
            if (s.display_delay) w.u(1, 1).u(4, 9);
        }
    }
    unsigned wb = 1, hb = 1;
    while ((s.width - 1) >> wb) ++wb;
    while ((s.height - 1) >> hb) ++hb;
    w.u(4, wb - 1).u(4, hb - 1).u(wb, s.width - 1).u(hb, s.height - 1);
    if (!s.reduced) {
        w.u(1, s.frame_ids);
        if (s.frame_ids) w.u(4, 13).u(3, 2);
    }
    w.u(1, 0).u(1, 1).u(1, 1);
    if (!s.reduced) {
        w.u(1, 1).u(1, 1).u(1, 1).u(1, 1).u(1, s.order_hint);
        if (s.order_hint) w.u(1, 1).u(1, 1);
        w.u(1, s.choose_sct);
        if (!s.choose_sct) w.u(1, s.force_sct);
        if (s.choose_sct || s.force_sct) w.u(1, 0).u(1, 1);  // choose_integer_mv 0, force_integer_mv 1
        if (s.order_hint) w.u(3, 6);
    }
    w.u(1, 0).u(1, 1).u(1, 1);
    // color_config
    w.u(1, s.high_bitdepth);
    if (s.profile == 2 && s.high_bitdepth) w.u(1, s.twelve_bit);
    if (s.profile != 1) w.u(1, s.mono);
    w.u(1, s.color_desc);
    if (s.color_desc) w.u(8, s.primaries).u(8, s.transfer).u(8, s.matrix);
    if (s.mono) {
        w.u(1, 0);
    } else if (s.color_desc && s.primaries == 1 && s.transfer == 13 && s.matrix == 0) {
        // sRGB: no subsampling bits
    } else {
        w.u(1, 0);
        if (s.profile == 2 && s.twelve_bit) w.u(1, 1).u(1, 1);
        bool ssx = s.profile == 0 || (s.profile == 2 && s.twelve_bit);
        bool ssy = s.profile == 0 || (s.profile == 2 && s.twelve_bit);
        if (ssx && ssy) w.u(2, 0);
    }
    if (!s.mono) w.u(1, 0);  // separate_uv_delta_q
    w.u(1, 0);               // film_grain_params_present
    w.trailing();
    return w.bytes();
}

Bytes leb128(size_t v) {
    Bytes out;
    do {
        uint8_t b = v & 0x7F;
        v >>= 7;
        if (v) b |= 0x80;
        out.push_back(b);
    } while (v);
    return out;
}

// type: OBU type; size_field: write obu_size; extension: write an extension byte.
Bytes obu(uint32_t type, const Bytes &payload, bool size_field = true, bool extension = false) {
    Bytes out = {(uint8_t)(type << 3 | (extension ? 4 : 0) | (size_field ? 2 : 0))};
    if (extension) out.push_back(0x20);
    if (size_field) out = cat({out, leb128(payload.size())});
    return cat({out, payload});
}

// ------------------------------------------------------------- VP9 / VP8

struct Vp9 {
    uint32_t profile = 0;
    bool show_existing = false;
    uint32_t frame_type = 0;  // 0 key
    bool show = true, error_res = false, intra_only = false;
    uint32_t ten_or_twelve = 0, color_space = 1;
    uint32_t ss_x = 1, ss_y = 1;
    uint32_t width = 200, height = 120;
    uint32_t sync = 0x498342;
};

Bytes vp9Frame(const Vp9 &f) {
    BitWriter w;
    w.u(2, 2).u(1, f.profile & 1).u(1, f.profile >> 1);
    if (f.profile == 3) w.u(1, 0);
    w.u(1, f.show_existing);
    if (f.show_existing) {
        w.u(3, 2).align();
        return w.bytes();
    }
    w.u(1, f.frame_type).u(1, f.show).u(1, f.error_res);
    auto color = [&] {
        if (f.profile >= 2) w.u(1, f.ten_or_twelve);
        w.u(3, f.color_space);
        if (f.color_space != 7) {
            w.u(1, 0);
            if (f.profile == 1 || f.profile == 3) w.u(1, f.ss_x).u(1, f.ss_y).u(1, 0);
        } else if (f.profile == 1 || f.profile == 3) {
            w.u(1, 0);
        }
    };
    if (f.frame_type == 0) {
        w.u(24, f.sync);
        color();
    } else {
        if (!f.show) w.u(1, f.intra_only);
        if (!f.error_res) w.u(2, 0);
        if (f.intra_only) {
            w.u(24, f.sync);
            if (f.profile > 0) color();
            w.u(8, 0x01);
        } else {
            w.u(3, 0).u(8, 0x55).align();
            return w.bytes();
        }
    }
    w.u(16, f.width - 1).u(16, f.height - 1).u(1, 0).u(12, 0xABC).align();
    return cat({w.bytes(), Bytes(20, 0x5A)});
}

Bytes vp8Frame(bool key, uint32_t w, uint32_t h, uint32_t version = 0) {
    const uint32_t first_part = 40;
    const uint32_t tag = (key ? 0 : 1) | version << 1 | 1 << 4 | first_part << 5;
    Bytes out = {(uint8_t)tag, (uint8_t)(tag >> 8), (uint8_t)(tag >> 16)};
    if (key) out = cat({out, {0x9D, 0x01, 0x2A, (uint8_t)w, (uint8_t)(w >> 8), (uint8_t)h, (uint8_t)(h >> 8)}});
    return cat({out, Bytes(48, 0x11)});
}

// ------------------------------------------------------------ video cases

struct VCase {
    std::string name;
    uint32_t fourcc;
    Bytes data;
    int32_t result;  // 0, or the sign of the expected result
    int32_t width = 0, height = 0, dp = 0;
    int32_t profile = -1, level = -1, bit_depth = -1, chroma = -1, interlaced = -1;  // -1: not checked
    // Prefixes that are complete headers in their own right may configure
    // differently (e.g. a sequence header without its extension).
    int32_t alt_width = -1, alt_height = -1;
};

int sign(int32_t v) { return v > 0 ? 1 : v < 0 ? -1 : 0; }

qvid_config_out parseVideo(uint32_t code, const uint8_t *data, size_t size, int32_t *result) {
    qvid_config_in in = {};
    in.data = data;
    in.size = (uint32_t)size;
    in.fourcc = code;
    qvid_config_out out = {};
    *result = qvid_config_parser(&in, &out);
    return out;
}

VCase ok(std::string name, uint32_t code, Bytes data, int32_t w, int32_t h, int32_t dp = 0) {
    VCase c{std::move(name), code, std::move(data), 0};
    c.width = w;
    c.height = h;
    c.dp = dp;
    return c;
}

VCase fails(std::string name, uint32_t code, Bytes data, int32_t result_sign) {
    return VCase{std::move(name), code, std::move(data), result_sign};
}

std::vector<VCase> videoCases() {
    std::vector<VCase> v;

    // AVC: 1080p is coded as 1088 lines with 8 cropped; the crop unit
    // depends on chroma format and field coding.
    AvcSps base;
    base.profile = 66;
    base.cropping = true;
    base.crop[3] = 4;
    v.push_back(ok("avc_baseline_1080p_crop", kAvc, avcStream(base), 1920, 1080));
    {
        AvcSps s = base;
        s.cropping = false;
        v.push_back(ok("avc_no_crop_1088", kAvc, avcStream(s), 1920, 1088));
    }
    {
        AvcSps s = base;
        s.profile = 100;
        s.scaling = true;
        s.vui = true;
        VCase c = ok("avc_high_scaling_lists", kAvc, avcStream(s), 1920, 1080);
        c.profile = 100;
        c.chroma = 1;
        c.bit_depth = 8;
        v.push_back(c);
    }
    {
        AvcSps s = base;
        s.profile = 244;
        s.chroma = 3;
        s.scaling = true;  // twelve lists with 4:4:4
        s.depth_minus8 = 2;
        s.crop[3] = 8;
        s.crop[1] = 3;
        VCase c = ok("avc_high444_crop_unit_1", kAvc, avcStream(s), 1917, 1080);
        c.chroma = 3;
        c.bit_depth = 10;
        v.push_back(c);
    }
    {
        AvcSps s = base;
        s.profile = 122;
        s.chroma = 2;
        s.crop[3] = 8;
        s.crop[1] = 4;
        v.push_back(ok("avc_high422_crop_2x1", kAvc, avcStream(s), 1912, 1080));
    }
    {
        AvcSps s = base;
        s.profile = 100;
        s.chroma = 0;
        s.crop[3] = 8;
        s.crop[0] = 1;
        v.push_back(ok("avc_monochrome_crop_1x1", kAvc, avcStream(s), 1919, 1080));
    }
    {
        AvcSps s = base;
        s.profile = 244;
        s.chroma = 3;
        s.separate_planes = true;
        s.crop[3] = 8;
        v.push_back(ok("avc_separate_planes_crop_1x1", kAvc, avcStream(s), 1920, 1080));
    }
    {
        AvcSps s = base;
        s.frame_mbs_only = false;
        s.height_units = 34;  // field macroblock pairs: 34 * 32 lines
        s.crop[3] = 2;        // 2 * 2 (4:2:0) * 2 (fields) lines
        VCase c = ok("avc_interlaced_crop", kAvc, avcStream(s), 1920, 1080);
        c.interlaced = 1;
        v.push_back(c);
    }
    {
        AvcSps s = base;
        s.poc_type = 1;
        s.poc_offset = 1 << 20;  // long codes: the RBSP needs emulation prevention
        v.push_back(ok("avc_poc_type1_emulation_prevention", kAvc, avcStream(s), 1920, 1080));
    }
    {
        AvcSps s = base;
        s.poc_type = 2;
        s.width_mbs = 11;  // 176x144
        s.height_units = 9;
        s.cropping = false;
        Bytes nal = avcSpsNal(s);
        v.push_back(ok("avc_3byte_start_code", kAvc, cat({{0, 0, 1}, nal, {0, 0, 1, 0x68, 0xCE}}), 176, 144));
        v.push_back(ok("avc_leading_garbage", kAvc, cat({{0x12, 0x34}, startCode(nal)}), 176, 144));
        v.push_back(ok("avc_avcC_record", kAvc, avcC(nal, {0x68, 0xCE, 0x38, 0x80}), 176, 144));
        v.push_back(ok("avc_length_prefixed", kAvc,
                       cat({{0, 0, 0, (uint8_t)nal.size()}, nal, {0, 0, 0, 4, 0x68, 0xCE, 0x38, 0x80}}), 176, 144));
        v.push_back(ok("avc_h264_spelling", fcc("h264"), startCode(nal), 176, 144));
        v.push_back(ok("avc_x264_spelling", fcc("x264"), startCode(nal), 176, 144));
        v.push_back(fails("avc_avcC_without_sps", kAvc, {1, 0x42, 0, 0x1E, 0xFF, 0xE0, 0}, 1));
        Bytes cut = avcC(nal, {0x68, 0xCE, 0x38, 0x80});
        cut.pop_back();
        v.push_back(fails("avc_avcC_pps_cut", kAvc, cut, -1));
        v.push_back(fails("avc_avcC_sps_overruns", kAvc, cat({{1, 0x42, 0, 0x1E, 0xFF, 0xE1, 0x01, 0x00}, nal}), -1));
    }
    v.push_back(fails("avc_frame_without_sps", kAvc, cat({startCode({0x09, 0xF0}), startCode({0x41, 0x9A, 0x02, 0x0C})}), 1));
    v.push_back(fails("avc_no_start_code", kAvc, {0x65, 0x88, 0x84, 0x21, 0xA0}, -1));
    {
        AvcSps s = base;
        s.crop[3] = 600;  // crops more than the picture
        v.push_back(fails("avc_crop_too_large", kAvc, avcStream(s), -1));
        s = base;
        s.profile = 100;
        s.chroma = 4;
        v.push_back(fails("avc_bad_chroma_format", kAvc, avcStream(s), -1));
    }

    // HEVC
    HevcSps hb;
    hb.conformance = true;
    hb.win[3] = 4;
    {
        VCase c = ok("hevc_1080p_conformance_window", kHevc, hevcStream(hb), 1920, 1080);
        c.profile = 1;
        c.bit_depth = 8;
        c.chroma = 1;
        v.push_back(c);
    }
    {
        HevcSps s = hb;
        s.max_sub_layers_minus1 = 3;
        s.sub_profile[0] = true;
        s.sub_level[0] = true;
        s.sub_level[1] = true;
        s.sub_profile[2] = true;
        v.push_back(ok("hevc_sub_layers_ptl", kHevc, hevcStream(s), 1920, 1080));
    }
    {
        HevcSps s = hb;
        s.max_sub_layers_minus1 = 6;
        for (int i = 0; i < 6; ++i) s.sub_profile[i] = s.sub_level[i] = true;
        v.push_back(ok("hevc_seven_sub_layers", kHevc, hevcStream(s), 1920, 1080));
    }
    {
        HevcSps s = hb;
        s.profile = 4;
        s.chroma = 2;
        s.win[1] = 5;
        s.win[3] = 8;
        s.depth_minus8 = 2;
        VCase c = ok("hevc_422_window_2x1", kHevc, hevcStream(s), 1910, 1080);
        c.bit_depth = 10;
        c.chroma = 2;
        v.push_back(c);
    }
    {
        HevcSps s = hb;
        s.profile = 4;
        s.chroma = 3;
        s.win[0] = 3;
        s.win[3] = 8;
        v.push_back(ok("hevc_444_window_1x1", kHevc, hevcStream(s), 1917, 1080));
        s.separate_planes = true;
        v.push_back(ok("hevc_separate_planes", kHevc, hevcStream(s), 1917, 1080));
        s.chroma = 0;
        s.separate_planes = false;
        v.push_back(ok("hevc_monochrome", kHevc, hevcStream(s), 1917, 1080));
    }
    {
        HevcSps s = hb;
        s.width = 176;
        s.height = 144;
        s.conformance = false;
        const Bytes sps = hevcSpsNal(s);
        v.push_back(ok("hevc_hvcC_record", kHevc, hvcC(kHevcVps, sps, kHevcPps), 176, 144));
        v.push_back(ok("hevc_hvc1_spelling", fcc("hvc1"), startCode(sps), 176, 144));
        v.push_back(ok("hevc_length_prefixed", kHevc, cat({{0, 0, 0, (uint8_t)sps.size()}, sps}), 176, 144));
        Bytes cut = hvcC(kHevcVps, sps, kHevcPps);
        cut.resize(cut.size() - 3);
        v.push_back(fails("hevc_hvcC_cut", kHevc, cut, -1));
        s.layer_id = 1;
        v.push_back(fails("hevc_sps_of_other_layer", kHevc, startCode(hevcSpsNal(s)), 1));
    }
    v.push_back(fails("hevc_frame_without_sps", kHevc, startCode({0x26, 0x01, 0xAF, 0x1D, 0x80}), 1));
    {
        HevcSps s = hb;
        s.win[2] = 540;
        s.win[3] = 540;
        v.push_back(fails("hevc_window_too_large", kHevc, hevcStream(s), -1));
    }

    // MPEG-4 part 2
    {
        Vol vol;
        VCase c = ok("mpeg4_simple_vol", kMp4v, mpeg4Headers(vol), 176, 144, 0);
        c.profile = 1;
        v.push_back(c);
        vol.data_partitioned = true;
        v.push_back(ok("mpeg4_data_partitioned", kMp4v, mpeg4Headers(vol), 176, 144, 1));
        vol.vos = vol.vo = false;
        v.push_back(ok("mpeg4_vol_alone", fcc("XVID"), mpeg4Headers(vol), 176, 144, 1));
    }
    {
        Vol vol;
        vol.vol_verid = 2;
        vol.sprite = 2;  // GMC: two sprite bits with version 2
        vol.aspect = 15;
        vol.control = vol.vbv = true;
        vol.fixed_rate = true;
        vol.resolution = 30000;
        vol.width = 720;
        vol.height = 480;
        vol.interlaced = true;
        vol.data_partitioned = true;
        VCase c = ok("mpeg4_asp_gmc_vbv_par", fcc("DIVX"), mpeg4Headers(vol), 720, 480, 1);
        c.interlaced = 1;
        v.push_back(c);
    }
    {
        Vol vol;
        vol.vo_verid = 2;  // inherited by the layer
        vol.sprite = 1;    // static sprite: size and warping fields
        vol.not_8_bit = true;
        vol.quant_type = vol.intra_matrix = vol.inter_matrix = true;
        vol.complexity = 1;
        vol.width = 352;
        vol.height = 288;
        vol.data_partitioned = true;
        VCase c = ok("mpeg4_sprite_matrices_complexity", fcc("FMP4"), mpeg4Headers(vol), 352, 288, 1);
        c.bit_depth = 10;
        v.push_back(c);
        vol.complexity = 0;
        vol.data_partitioned = false;
        v.push_back(ok("mpeg4_complexity_method0", fcc("fmp4"), mpeg4Headers(vol), 352, 288, 0));
        vol.complexity = 2;  // a method with no further fields
        vol.data_partitioned = true;
        v.push_back(ok("mpeg4_complexity_method2", fcc("xvid"), mpeg4Headers(vol), 352, 288, 1));
    }
    {
        Vol vol;
        vol.shape = 1;  // binary shape: no frame size in the layer
        v.push_back(ok("mpeg4_binary_shape_no_size", kMp4v, mpeg4Headers(vol), 0, 0));
        vol.shape = 0;
        vol.resolution = 0;
        v.push_back(fails("mpeg4_zero_time_resolution", kMp4v, mpeg4Headers(vol), -1));
    }
    v.push_back(fails("mpeg4_vop_only", kMp4v, {0, 0, 1, 0xB6, 0x10, 0x20, 0x30, 0x40}, 1));
    v.push_back(ok("mpeg4_short_header", fcc("mp4v"), h263Picture(H263{}), 176, 144));

    // MPEG-2
    {
        VCase c = ok("mpeg2_720x576", kMpg2, mpeg2Sequence(720, 576, true, false, 2), 720, 576);
        c.interlaced = 1;
        c.chroma = 2;
        c.profile = 4;
        c.level = 8;
        v.push_back(c);
    }
    {
        VCase c = ok("mpeg2_size_extension", fcc("MPG2"), mpeg2Sequence(4112, 4100, true), 4112, 4100);
        c.alt_width = 16;  // the sequence header alone is a complete MPEG-1 header
        c.alt_height = 4;
        v.push_back(c);
    }
    v.push_back(ok("mpeg1_no_extension", kMpg2, mpeg2Sequence(352, 240, false), 352, 240));
    v.push_back(fails("mpeg2_picture_only", kMpg2, {0, 0, 1, 0x00, 0x00, 0x0F, 0xFF, 0xF8}, 1));
    v.push_back(fails("mpeg2_zero_width", kMpg2, mpeg2Sequence(0, 576, true), -1));

    // H.263
    const int32_t kStd[6][2] = {{0, 0}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}};
    for (uint32_t f = 1; f <= 5; ++f) {
        H263 p;
        p.format = f;
        v.push_back(ok("h263_format_" + std::to_string(f), kH263, h263Picture(p), kStd[f][0], kStd[f][1]));
        p.format = 7;
        p.plus_format = f;
        v.push_back(ok("h263_plus_format_" + std::to_string(f), fcc("s263"), h263Picture(p), kStd[f][0], kStd[f][1]));
    }
    {
        H263 p;
        p.format = 7;
        v.push_back(ok("h263_custom_200x120", kH263, h263Picture(p), 200, 120));
        p.par = 15;
        p.cpm = true;
        p.width = 2048;
        p.height = 1152;
        v.push_back(ok("h263_custom_epar_cpm", fcc("h263"), h263Picture(p), 2048, 1152));
        p.ufep = 0;
        v.push_back(fails("h263_no_format_update", kH263, h263Picture(p), 1));
        p.ufep = 1;
        p.plus_format = 0;
        v.push_back(fails("h263_forbidden_plus_format", kH263, h263Picture(p), -1));
        H263 q;
        q.format = 0;
        v.push_back(fails("h263_forbidden_format", fcc("S263"), h263Picture(q), -1));
        q.format = 2;
        v.push_back(ok("h263_after_stuffing", kH263, cat({{0x00, 0x7F}, h263Picture(q)}), 176, 144));
    }
    v.push_back(fails("h263_no_picture", kH263, {0x12, 0x34, 0x56, 0x78}, 1));

    // AV1
    {
        Av1Seq s;
        const Bytes seq = obu(1, av1SequenceHeader(s));
        VCase c = ok("av1_obu_stream", kAv1, cat({obu(2, {}), seq, obu(6, Bytes(30, 0x44))}), 200, 120);
        c.profile = 0;
        c.bit_depth = 8;
        c.chroma = 1;
        v.push_back(c);
        v.push_back(ok("av1_av1C_record", kAv1, cat({{0x81, 0x08, 0x0C, 0x00}, seq}), 200, 120));
        v.push_back(fails("av1_av1C_without_obus", kAv1, {0x81, 0x08, 0x0C, 0x00}, 1));
        v.push_back(fails("av1_av1C_bad_version", kAv1, cat({{0x82, 0x08, 0x0C, 0x00}, seq}), -1));
        v.push_back(ok("av1_extension_header", kAv1, obu(1, av1SequenceHeader(s), true, true), 200, 120));
        v.push_back(ok("av1_no_size_field", kAv1, cat({obu(2, {}), obu(1, av1SequenceHeader(s), false)}), 200, 120));
        v.push_back(fails("av1_frame_only", kAv1, cat({obu(2, {}), obu(6, Bytes(30, 0x44))}), 1));
        v.push_back(fails("av1_obu_overruns", kAv1, cat({{0x0A, 0x40}, av1SequenceHeader(s)}), -1));
        v.push_back(fails("av1_forbidden_bit", kAv1, {0x12, 0x00, 0x8A, 0x01, 0x00}, -1));
    }
    {
        Av1Seq s;
        s.timing = s.decoder_model = s.display_delay = true;
        s.points = 3;
        s.frame_ids = true;
        s.width = 3840;
        s.height = 2160;
        s.level = 12;
        VCase c = ok("av1_timing_decoder_model_points", kAv1, obu(1, av1SequenceHeader(s)), 3840, 2160);
        c.level = 12;
        v.push_back(c);
        s.timing = false;
        s.order_hint = false;
        s.choose_sct = false;
        s.force_sct = false;
        v.push_back(ok("av1_no_order_hint_no_sct", kAv1, obu(1, av1SequenceHeader(s)), 3840, 2160));
    }
    {
        Av1Seq s;
        s.reduced = true;
        s.width = 65536;
        s.height = 1;
        v.push_back(ok("av1_reduced_still_picture", kAv1, obu(1, av1SequenceHeader(s)), 65536, 1));
    }
    {
        Av1Seq s;
        s.profile = 1;
        VCase c = ok("av1_profile1_444", kAv1, obu(1, av1SequenceHeader(s)), 200, 120);
        c.chroma = 3;
        c.profile = 1;
        v.push_back(c);
        s.profile = 2;
        s.high_bitdepth = s.twelve_bit = true;
        c = ok("av1_profile2_12bit_420", kAv1, obu(1, av1SequenceHeader(s)), 200, 120);
        c.chroma = 1;
        c.bit_depth = 12;
        v.push_back(c);
        s.twelve_bit = false;
        c = ok("av1_profile2_10bit_422", kAv1, obu(1, av1SequenceHeader(s)), 200, 120);
        c.chroma = 2;
        c.bit_depth = 10;
        v.push_back(c);
        s = Av1Seq();
        s.mono = true;
        c = ok("av1_monochrome", kAv1, obu(1, av1SequenceHeader(s)), 200, 120);
        c.chroma = 0;
        v.push_back(c);
        s = Av1Seq();
        s.profile = 1;
        s.color_desc = true;
        s.primaries = 1;
        s.transfer = 13;
        s.matrix = 0;
        c = ok("av1_srgb", kAv1, obu(1, av1SequenceHeader(s)), 200, 120);
        c.chroma = 3;
        v.push_back(c);
        s.profile = 3;
        v.push_back(fails("av1_reserved_profile", kAv1, obu(1, av1SequenceHeader(s)), -1));
    }

    // VP9
    {
        Vp9 f;
        VCase c = ok("vp9_profile0_key", kVp9, vp9Frame(f), 200, 120);
        c.profile = 0;
        c.bit_depth = 8;
        c.chroma = 1;
        v.push_back(c);
        f.profile = 1;
        f.ss_x = f.ss_y = 0;
        c = ok("vp9_profile1_444", kVp9, vp9Frame(f), 200, 120);
        c.profile = 1;
        c.chroma = 3;
        v.push_back(c);
        f.ss_x = 1;
        c = ok("vp9_profile1_422", kVp9, vp9Frame(f), 200, 120);
        c.chroma = 2;
        v.push_back(c);
        f.profile = 2;
        f.ss_x = f.ss_y = 1;
        f.ten_or_twelve = 0;
        c = ok("vp9_profile2_10bit", kVp9, vp9Frame(f), 200, 120);
        c.bit_depth = 10;
        c.profile = 2;
        v.push_back(c);
        f.profile = 3;
        f.ten_or_twelve = 1;
        f.ss_x = f.ss_y = 0;
        c = ok("vp9_profile3_12bit_444", kVp9, vp9Frame(f), 200, 120);
        c.bit_depth = 12;
        c.profile = 3;
        c.chroma = 3;
        v.push_back(c);
        f.color_space = 7;
        v.push_back(ok("vp9_profile3_rgb", kVp9, vp9Frame(f), 200, 120));
        f.profile = 0;
        v.push_back(fails("vp9_profile0_rgb", kVp9, vp9Frame(f), -1));
    }
    {
        Vp9 f;
        f.width = 65536;
        f.height = 1;
        v.push_back(ok("vp9_largest_size", kVp9, vp9Frame(f), 65536, 1));
        f = Vp9();
        f.frame_type = 1;
        f.show = false;
        f.intra_only = true;
        v.push_back(ok("vp9_intra_only_profile0", kVp9, vp9Frame(f), 200, 120));
        f.profile = 1;
        f.error_res = true;
        f.ss_x = f.ss_y = 0;
        v.push_back(ok("vp9_intra_only_profile1", kVp9, vp9Frame(f), 200, 120));
        f = Vp9();
        f.frame_type = 1;
        v.push_back(fails("vp9_inter_frame", kVp9, vp9Frame(f), 1));
        f = Vp9();
        f.show_existing = true;
        v.push_back(fails("vp9_show_existing", kVp9, vp9Frame(f), 1));
        f = Vp9();
        f.sync = 0x498343;
        v.push_back(fails("vp9_bad_sync_code", kVp9, vp9Frame(f), -1));
        v.push_back(fails("vp9_bad_frame_marker", kVp9, {0x40, 0x00, 0x00}, -1));
        // A superframe: a hidden inter frame, then a key frame, then the index.
        Vp9 inter;
        inter.frame_type = 1;
        inter.show = false;
        const Bytes a = vp9Frame(inter), b = vp9Frame(Vp9());
        const uint8_t marker = 0xC0 | (1 << 3) | 1;  // 2-byte sizes, 2 frames
        Bytes super = cat({a, b, {marker, (uint8_t)a.size(), (uint8_t)(a.size() >> 8), (uint8_t)b.size(),
                                  (uint8_t)(b.size() >> 8), marker}});
        v.push_back(ok("vp9_superframe", kVp9, super, 200, 120));
    }

    // VP8
    {
        VCase c = ok("vp8_key_frame", kVp8, vp8Frame(true, 200, 120), 200, 120);
        c.profile = 0;
        v.push_back(c);
        v.push_back(ok("vp8_scaling_bits_ignored", kVp8, vp8Frame(true, 0xC000 | 640, 0x4000 | 360, 3), 640, 360));
        v.push_back(fails("vp8_inter_frame", kVp8, vp8Frame(false, 0, 0), 1));
        Bytes bad = vp8Frame(true, 200, 120);
        bad[4] = 0x02;
        v.push_back(fails("vp8_bad_start_code", kVp8, bad, -1));
        v.push_back(fails("vp8_zero_width", kVp8, vp8Frame(true, 0, 120), -1));
        v.push_back(fails("vp8_bad_version", kVp8, vp8Frame(true, 200, 120, 5), -1));
    }

    // Codes without a parser keep the caller's dimensions.
    v.push_back(ok("mp43_not_parsed", fcc("MP43"), {0x12, 0x34}, 0, 0));
    v.push_back(ok("unknown_code_not_parsed", fcc("WMV3"), {0, 0, 1, 0xB3, 0x0B, 0x00, 0x90}, 0, 0));
    return v;
}

// An exact-size heap copy, so that the sanitizer sees any read past the end.
struct Exact {
    explicit Exact(const uint8_t *d, size_t n) : size(n), buf(n ? new uint8_t[n] : nullptr) {
        if (n) memcpy(buf.get(), d, n);
    }
    size_t size;
    std::unique_ptr<uint8_t[]> buf;
};

bool allZero(const void *p, size_t n) {
    const uint8_t *b = static_cast<const uint8_t *>(p);
    for (size_t i = 0; i < n; ++i)
        if (b[i]) return false;
    return true;
}

class VideoCase : public ::testing::TestWithParam<VCase> {};

TEST_P(VideoCase, Parses) {
    const VCase &c = GetParam();
    Exact e(c.data.data(), c.data.size());
    int32_t r = 0;
    const qvid_config_out out = parseVideo(c.fourcc, e.buf.get(), e.size, &r);
    ASSERT_EQ(sign(r), c.result) << "result " << r;
    if (r != 0) {
        EXPECT_TRUE(allZero(&out, sizeof(out))) << "a failed parse must leave the record untouched";
        return;
    }
    EXPECT_EQ(out.width, c.width);
    EXPECT_EQ(out.height, c.height);
    EXPECT_EQ(out.data_partitioned, c.dp);
    if (c.profile >= 0) {
        EXPECT_EQ(out.profile, c.profile);
    }
    if (c.level >= 0) {
        EXPECT_EQ(out.level, c.level);
    }
    if (c.bit_depth >= 0) {
        EXPECT_EQ(out.bit_depth, c.bit_depth);
    }
    if (c.chroma >= 0) {
        EXPECT_EQ(out.chroma_format, c.chroma);
    }
    if (c.interlaced >= 0) {
        EXPECT_EQ(out.interlaced, c.interlaced);
    }
}

// Every cut-short input: no crash, and a success only with the same size
// (or, for headers complete in themselves, the documented alternative).
TEST_P(VideoCase, EveryPrefix) {
    const VCase &c = GetParam();
    for (size_t len = 0; len < c.data.size(); ++len) {
        Exact e(c.data.data(), len);
        int32_t r = 0;
        const qvid_config_out out = parseVideo(c.fourcc, e.buf.get(), e.size, &r);
        if (r != 0) {
            EXPECT_TRUE(allZero(&out, sizeof(out))) << "prefix " << len;
            continue;
        }
        const bool same = out.width == c.width && out.height == c.height && out.data_partitioned == c.dp;
        const bool alt = out.width == c.alt_width && out.height == c.alt_height;
        EXPECT_TRUE(c.result == 0 && (same || alt))
            << "prefix " << len << " of " << c.data.size() << " configured " << out.width << "x" << out.height;
    }
}

// Single-bit corruptions: no crash, and any success within sane bounds.
TEST_P(VideoCase, BitFlips) {
    const VCase &c = GetParam();
    for (size_t bit = 0; bit < c.data.size() * 8; ++bit) {
        Bytes d = c.data;
        d[bit / 8] ^= (uint8_t)(0x80 >> (bit % 8));
        Exact e(d.data(), d.size());
        int32_t r = 0;
        const qvid_config_out out = parseVideo(c.fourcc, e.buf.get(), e.size, &r);
        if (r != 0) continue;
        EXPECT_GE(out.width, 0);
        EXPECT_GE(out.height, 0);
        EXPECT_LE(out.width, 65536);
        EXPECT_LE(out.height, 65536);
        EXPECT_TRUE(out.data_partitioned == 0 || out.data_partitioned == 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Crafted, VideoCase, ::testing::ValuesIn(videoCases()),
                         [](const ::testing::TestParamInfo<VCase> &i) { return i.param.name; });

TEST(VideoConfig, CraftedSpsNeedsEmulationPrevention) {
    AvcSps s;
    s.poc_type = 1;
    s.poc_offset = 1 << 20;
    EXPECT_TRUE(contains(avcSpsNal(s), {0, 0, 3}));
}

TEST(VideoConfig, Arguments) {
    const uint8_t byte = 0;
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
        EXPECT_GT(qvid_config_parser(&in, &out), 0) << "empty input needs more data";
        in.data = &byte;
        EXPECT_GT(qvid_config_parser(&in, &out), 0);
    }
    EXPECT_TRUE(allZero(&out, sizeof(out)));
}

// Every spelling the plug-in whitelists reaches a parser (or, for MP43,
// the no-parser answer).
TEST(VideoConfig, WhitelistedSpellings) {
    struct Spelling {
        const char *code;
        Bytes data;
        int32_t w, h;
    };
    AvcSps a;
    a.width_mbs = 11;
    a.height_units = 9;
    HevcSps hs;
    hs.width = 176;
    hs.height = 144;
    H263 p;
    const std::vector<Spelling> all = {
        {"MPG2", mpeg2Sequence(176, 144, true), 176, 144}, {"mpg2", mpeg2Sequence(176, 144, true), 176, 144},
        {"MP43", {1, 2, 3}, 0, 0},
        {"H263", h263Picture(p), 176, 144}, {"S263", h263Picture(p), 176, 144},
        {"h263", h263Picture(p), 176, 144}, {"s263", h263Picture(p), 176, 144},
        {"AVC1", avcStream(a), 176, 144}, {"avc1", avcStream(a), 176, 144},
        {"H264", avcStream(a), 176, 144}, {"X264", avcStream(a), 176, 144},
        {"h264", avcStream(a), 176, 144}, {"x264", avcStream(a), 176, 144},
        {"hvc1", hevcStream(hs), 176, 144}, {"hev1", hevcStream(hs), 176, 144},
        {"VP80", vp8Frame(true, 176, 144), 176, 144}, {"VP90", vp9Frame(Vp9()), 200, 120},
        {"av01", obu(1, av1SequenceHeader(Av1Seq())), 200, 120},
        {"FMP4", mpeg4Headers(Vol()), 176, 144}, {"fmp4", mpeg4Headers(Vol()), 176, 144},
        {"XVID", mpeg4Headers(Vol()), 176, 144}, {"xvid", mpeg4Headers(Vol()), 176, 144},
        {"MP4V", mpeg4Headers(Vol()), 176, 144}, {"mp4v", mpeg4Headers(Vol()), 176, 144},
        {"DIVX", mpeg4Headers(Vol()), 176, 144},
    };
    for (const Spelling &s : all) {
        const uint32_t code = (uint32_t)(uint8_t)s.code[0] | (uint32_t)(uint8_t)s.code[1] << 8 |
                              (uint32_t)(uint8_t)s.code[2] << 16 | (uint32_t)(uint8_t)s.code[3] << 24;
        int32_t r = -99;
        const qvid_config_out out = parseVideo(code, s.data.data(), s.data.size(), &r);
        EXPECT_EQ(r, 0) << s.code;
        EXPECT_EQ(out.width, s.w) << s.code;
        EXPECT_EQ(out.height, s.h) << s.code;
    }
}

// Random bytes for every parser: no crash, bounded results.
TEST(VideoConfig, RandomInputs) {
    std::mt19937 rng(12345);
    for (uint32_t code : {kAvc, kHevc, kMp4v, kMpg2, kH263, kAv1, kVp8, kVp9}) {
        for (int i = 0; i < 3000; ++i) {
            const size_t n = rng() % 64;
            Bytes d(n);
            for (auto &b : d) b = (uint8_t)rng();
            // Seed some inputs with start codes and record markers so the
            // parsers get past their first test.
            if (n >= 4 && i % 3 == 0) {
                d[0] = d[1] = 0;
                d[2] = 1;
            }
            if (n >= 1 && i % 7 == 0) d[0] = (code == kAv1) ? 0x81 : 1;
            Exact x(d.data(), d.size());
            int32_t r = 0;
            const qvid_config_out out = parseVideo(code, x.buf.get(), x.size, &r);
            if (r != 0) continue;
            EXPECT_GE(out.width, 0);
            EXPECT_LE(out.width, 65536);
            EXPECT_GE(out.height, 0);
            EXPECT_LE(out.height, 65536);
        }
    }
}

// ---------------------------------------------------------------- AAC

struct ACase {
    std::string name;
    uint32_t tag;
    Bytes data;
    int32_t result;
    int32_t profile = 0, rate = 0, channels = 0, object_type = 0;
    int32_t ext_type = 0, ext_rate = 0, sbr = 0, ps = 0, frame_length = 0;
    // Bytes of the configuration that already form a complete one with a
    // different (core-only) profile: prefixes of at least this length may
    // configure with the core values.
    size_t core_complete = SIZE_MAX;
};

qaud_config_out parseAudio(uint32_t tag, const uint8_t *d, size_t n, int32_t *r) {
    qaud_config_in in = {d, (uint32_t)n, tag};
    qaud_config_out out = {};
    *r = qaud_config_parser(&in, &out);
    return out;
}

BitWriter &aot(BitWriter &w, uint32_t type) {
    return type >= 32 ? w.u(5, 31).u(6, type - 32) : w.u(5, type);
}

ACase aok(std::string name, Bytes data, int32_t profile, int32_t rate, int32_t ch, int32_t type,
          int32_t frame_length = 1024) {
    ACase c{std::move(name), 0xFF, std::move(data), 0};
    c.profile = profile;
    c.rate = rate;
    c.channels = ch;
    c.object_type = type;
    c.frame_length = frame_length;
    return c;
}

std::vector<ACase> audioCases() {
    std::vector<ACase> v;
    v.push_back(aok("lc_44100_stereo", {0x12, 0x10}, 2, 44100, 2, 2));
    v.push_back(aok("lc_48000_mono", {0x11, 0x88}, 2, 48000, 1, 2));
    v.push_back(aok("lc_7350_960", {0x16, 0x0C}, 2, 7350, 1, 2, 960));
    v.push_back(aok("main_96000_51", {0x08, 0x30}, 1, 96000, 6, 1));
    v.push_back(aok("ltp_8000_71", {0x25, 0xB8}, 4, 8000, 8, 4));
    {
        ACase c = aok("mp4a_tag", {0x12, 0x10}, 2, 44100, 2, 2);
        c.tag = fcc("mp4a");
        v.push_back(c);
        c.tag = fcc("MP4A");
        c.name = "MP4A_tag";
        v.push_back(c);
        c.tag = 0;
        c.name = "unspecified_tag";
        v.push_back(c);
    }
    {
        // Explicit frequency (index 15) with a 24-bit value.
        BitWriter w;
        aot(w, 2).u(4, 15).u(24, 44056).u(4, 2).u(3, 0);
        v.push_back(aok("explicit_frequency", w.bytes(), 2, 44056, 2, 2));
    }
    {
        // HE-AAC, hierarchical: object type 5, the SBR rate, then LC.
        BitWriter w;
        aot(w, 5).u(4, 6).u(4, 2).u(4, 3).u(5, 2).u(3, 0);
        ACase c = aok("he_aac_explicit", w.bytes(), 5, 24000, 2, 2);
        c.ext_type = 5;
        c.ext_rate = 48000;
        c.sbr = 1;
        v.push_back(c);
    }
    {
        BitWriter w;
        aot(w, 29).u(4, 8).u(4, 1).u(4, 5).u(5, 2).u(3, 0);
        ACase c = aok("he_aac_v2_explicit", w.bytes(), 29, 16000, 1, 2);
        c.ext_type = 29;
        c.ext_rate = 32000;
        c.sbr = c.ps = 1;
        v.push_back(c);
    }
    {
        // SBR explicit with the explicit frequency for the extension.
        BitWriter w;
        aot(w, 5).u(4, 15).u(24, 22000).u(4, 2).u(4, 15).u(24, 44000).u(5, 2).u(3, 0);
        ACase c = aok("he_aac_explicit_frequencies", w.bytes(), 5, 22000, 2, 2);
        c.ext_type = 5;
        c.ext_rate = 44000;
        c.sbr = 1;
        v.push_back(c);
    }
    {
        // Backward-compatible signalling: LC, then sync extension 0x2B7
        // announcing SBR and 0x548 announcing PS.
        BitWriter w;
        aot(w, 2).u(4, 6).u(4, 1).u(3, 0);
        const size_t core = w.bits() / 8;
        w.u(11, 0x2B7);
        aot(w, 5).u(1, 1).u(4, 3).u(11, 0x548).u(1, 1).align();
        ACase c = aok("he_aac_v2_backward_compatible", w.bytes(), 29, 24000, 1, 2);
        c.ext_type = 29;
        c.ext_rate = 48000;
        c.sbr = c.ps = 1;
        c.core_complete = core;
        v.push_back(c);
        BitWriter n;
        aot(n, 2).u(4, 6).u(4, 2).u(3, 0).u(11, 0x2B7);
        aot(n, 5).u(1, 0).align();
        ACase no = aok("sync_extension_sbr_absent", n.bytes(), 2, 24000, 2, 2);
        v.push_back(no);
    }
    {
        // Escape object types: ER AAC ELD (39), USAC (42).
        BitWriter w;
        aot(w, 39).u(4, 3).u(4, 2).u(1, 1).u(3, 0).u(1, 0).u(4, 0).align();
        ACase c = aok("eld_escape", w.bytes(), 39, 48000, 2, 39, 480);
        v.push_back(c);
        BitWriter u;
        aot(u, 42).u(4, 4).u(4, 2).u(16, 0xABCD);
        v.push_back(aok("usac_escape", u.bytes(), 42, 44100, 2, 42, 0));
    }
    {
        // ER AAC LD (23) with 480-sample frames and the resilience flags.
        BitWriter w;
        aot(w, 23).u(4, 3).u(4, 1).u(1, 1).u(1, 0).u(1, 1).u(3, 0).u(1, 0).u(2, 0);
        v.push_back(aok("ld_480", w.bytes(), 23, 48000, 1, 23, 480));
    }
    {
        // Channel configuration 0: a program config element lays out
        // 5.1 (front SCE + CPE, back CPE, one LFE).
        BitWriter w;
        aot(w, 2).u(4, 3).u(4, 0).u(3, 0);
        w.u(4, 0).u(2, 1).u(4, 3).u(4, 2).u(4, 0).u(4, 1).u(2, 1).u(3, 0).u(4, 0).u(1, 0).u(1, 0).u(1, 0);
        w.u(1, 0).u(4, 0).u(1, 1).u(4, 1);  // front: SCE 0, CPE 1
        w.u(1, 1).u(4, 2);                  // back: CPE 2
        w.u(4, 0);                          // LFE 0
        w.align().u(8, 3).u(8, 'a').u(8, 'b').u(8, 'c');
        v.push_back(aok("pce_5_1", w.bytes(), 2, 48000, 6, 2));
    }
    {
        // Scalable (6) with layerNr.
        BitWriter w;
        aot(w, 6).u(4, 4).u(4, 2).u(1, 0).u(1, 1).u(14, 100).u(1, 0).u(3, 1).align();
        v.push_back(aok("scalable_core_coder", w.bytes(), 6, 44100, 2, 6));
    }
    v.push_back(aok("adts_header", {0xFF, 0xF1, 0x50, 0x80, 0x2E, 0x7F, 0xFC}, 2, 44100, 2, 2));
    auto bad = [&](std::string name, Bytes d, int32_t result = -1, uint32_t tag = 0xFF) {
        v.push_back(ACase{std::move(name), tag, std::move(d), result});
    };
    bad("null_object_type", {0x02, 0x10});
    bad("reserved_object_type", {0x5A, 0x10});            // 11
    bad("reserved_frequency_index", {0x16, 0x90});        // 13
    bad("reserved_channel_configuration", {0x12, 0x40});  // 8
    bad("explicit_frequency_zero", {0x17, 0x80, 0x00, 0x00, 0x10});
    {
        BitWriter w;
        aot(w, 5).u(4, 6).u(4, 2).u(4, 3).u(5, 5).u(3, 0);
        bad("sbr_over_sbr", w.bytes());
    }
    bad("opus_tag", {0x12, 0x10}, QAUD_CFG_ERR_UNSUPPORTED, fcc("Opus"));
    bad("one_byte", {0x12});
    return v;
}

class AudioCase : public ::testing::TestWithParam<ACase> {};

TEST_P(AudioCase, Parses) {
    const ACase &c = GetParam();
    Exact e(c.data.data(), c.data.size());
    int32_t r = 0;
    const qaud_config_out out = parseAudio(c.tag, e.buf.get(), e.size, &r);
    ASSERT_EQ(r, c.result);
    if (r != 0) {
        EXPECT_TRUE(allZero(&out, sizeof(out)));
        return;
    }
    EXPECT_EQ(out.profile, c.profile);
    EXPECT_EQ(out.sample_rate, c.rate);
    EXPECT_EQ(out.channels, c.channels);
    EXPECT_EQ(out.object_type, c.object_type);
    EXPECT_EQ(out.ext_object_type, c.ext_type);
    EXPECT_EQ(out.ext_sample_rate, c.ext_rate);
    EXPECT_EQ(out.sbr_present, c.sbr);
    EXPECT_EQ(out.ps_present, c.ps);
    EXPECT_EQ(out.frame_length, c.frame_length);
}

TEST_P(AudioCase, EveryPrefix) {
    const ACase &c = GetParam();
    for (size_t len = 0; len < c.data.size(); ++len) {
        Exact e(c.data.data(), len);
        int32_t r = 0;
        const qaud_config_out out = parseAudio(c.tag, e.buf.get(), e.size, &r);
        if (r != 0) {
            EXPECT_LT(r, 0) << "prefix " << len;
            EXPECT_TRUE(allZero(&out, sizeof(out)));
            continue;
        }
        ASSERT_EQ(c.result, 0) << "prefix " << len << " of a malformed configuration succeeded";
        EXPECT_EQ(out.sample_rate, c.rate) << "prefix " << len;
        EXPECT_EQ(out.channels, c.channels) << "prefix " << len;
        EXPECT_EQ(out.object_type, c.object_type) << "prefix " << len;
        if (len < c.core_complete) {
            EXPECT_EQ(out.profile, c.profile) << "prefix " << len;
        } else {
            // The core alone, or with SBR but the PS announcement cut off.
            EXPECT_TRUE(out.profile == c.object_type || out.profile == 5 || out.profile == c.profile)
                << "prefix " << len << " profile " << out.profile;
        }
    }
}

TEST_P(AudioCase, BitFlips) {
    const ACase &c = GetParam();
    for (size_t bit = 0; bit < c.data.size() * 8; ++bit) {
        Bytes d = c.data;
        d[bit / 8] ^= (uint8_t)(0x80 >> (bit % 8));
        Exact e(d.data(), d.size());
        int32_t r = 0;
        const qaud_config_out out = parseAudio(c.tag, e.buf.get(), e.size, &r);
        if (r != 0) continue;
        EXPECT_GT(out.sample_rate, 0);
        EXPECT_GE(out.channels, 0);
        EXPECT_GT(out.profile, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Crafted, AudioCase, ::testing::ValuesIn(audioCases()),
                         [](const ::testing::TestParamInfo<ACase> &i) { return i.param.name; });

TEST(AudioConfig, Arguments) {
    const uint8_t asc[2] = {0x12, 0x10};
    qaud_config_in in = {asc, 2, 0xFF};
    qaud_config_out out = {};
    EXPECT_EQ(qaud_config_parser(nullptr, &out), QAUD_CFG_ERR_ARG);
    EXPECT_EQ(qaud_config_parser(&in, nullptr), QAUD_CFG_ERR_ARG);
    in.size = 0;
    EXPECT_EQ(qaud_config_parser(&in, &out), QAUD_CFG_ERR_ARG);
    in.size = 2;
    in.data = nullptr;
    EXPECT_EQ(qaud_config_parser(&in, &out), QAUD_CFG_ERR_ARG);
    EXPECT_TRUE(allZero(&out, sizeof(out)));
}

TEST(AudioConfig, RandomInputs) {
    std::mt19937 rng(777);
    for (int i = 0; i < 20000; ++i) {
        Bytes d(1 + rng() % 12);
        for (auto &b : d) b = (uint8_t)rng();
        Exact e(d.data(), d.size());
        int32_t r = 0;
        const qaud_config_out out = parseAudio(0xFF, e.buf.get(), e.size, &r);
        if (r != 0) continue;
        EXPECT_GT(out.sample_rate, 0);
        EXPECT_GE(out.channels, 0);
        EXPECT_LE(out.channels, 93);  // a program config element's most
        EXPECT_GE(out.profile, 1);
        EXPECT_LE(out.profile, 46);
    }
}

// ------------------------------------------------------- ffmpeg bitstreams

bool haveFfmpeg() { return std::system("command -v ffmpeg >/dev/null 2>&1") == 0; }

bool haveEncoder(const std::string &name) {
    static std::string list;
    if (list.empty()) {
        FILE *p = popen("ffmpeg -hide_banner -encoders 2>/dev/null", "r");
        if (p == nullptr) return false;
        char buf[512];
        while (fgets(buf, sizeof buf, p)) list += buf;
        pclose(p);
    }
    return list.find(" " + name + " ") != std::string::npos;
}

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/qextractorcmn_test.XXXXXX";
        if (mkdtemp(tmpl)) path_ = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

Bytes readFile(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

// Encodes a few frames of a test pattern at w x h with `codec_args` into
// `out`; the muxer comes from `format` (or the file name when empty).
bool encode(const std::string &codec_args, int w, int h, const std::string &format, const std::string &out) {
    std::string cmd = "ffmpeg -hide_banner -nostdin -loglevel error -y -f lavfi -i testsrc2=size=" +
                      std::to_string(w) + "x" + std::to_string(h) + ":rate=25:duration=0.2 -frames:v 4 " + codec_args;
    if (!format.empty()) cmd += " -f " + format;
    cmd += " '" + out + "' >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

// IVF: a 32-byte file header (its length at bytes 6-7), then frames with
// a 12-byte header (32-bit little-endian size, 64-bit time).
std::vector<Bytes> ivfFrames(const Bytes &f) {
    std::vector<Bytes> out;
    if (f.size() < 32 || memcmp(f.data(), "DKIF", 4) != 0) return out;
    size_t o = f[6] | f[7] << 8;
    while (o + 12 <= f.size()) {
        const size_t n = f[o] | f[o + 1] << 8 | f[o + 2] << 16 | (size_t)f[o + 3] << 24;
        o += 12;
        if (n > f.size() - o) break;
        out.emplace_back(f.begin() + o, f.begin() + o + n);
        o += n;
    }
    return out;
}

// Offset of the first 00 00 01 xx with xx accepted by `pick`.
template <typename Pick>
size_t findCode(const Bytes &d, Pick pick) {
    for (size_t i = 0; i + 4 <= d.size(); ++i)
        if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1 && pick(d[i + 3])) return i;
    return d.size();
}

struct FfCase {
    std::string name;
    std::string encoder;
    std::string args;
    std::string format;  // h264 hevc m4v mpeg2video h263 ivf obu
    int w, h;
    uint32_t fourcc;
    int dp = 0, interlaced = -1, bit_depth = -1, chroma = -1, profile = -1;
};

void PrintTo(const FfCase &c, std::ostream *os) { *os << c.name; }

FfCase ff(std::string name, std::string enc, std::string args, std::string fmt, int w, int h, uint32_t code) {
    return FfCase{std::move(name), std::move(enc), std::move(args), std::move(fmt), w, h, code};
}

std::vector<FfCase> ffCases() {
    const std::string x264 = "-c:v libx264 -preset ultrafast";
    const std::string x265 = "-c:v libx265 -preset ultrafast -x265-params log-level=error";
    const std::string aom = "-c:v libaom-av1 -cpu-used 8 -g 4";
    std::vector<FfCase> v = {
        ff("h264_320x180", "libx264", x264, "h264", 320, 180, kAvc),
        ff("h264_200x120", "libx264", x264, "h264", 200, 120, fcc("H264")),
        ff("h264_176x144", "libx264", x264, "h264", 176, 144, fcc("avc1")),
        ff("h264_high10_202x118", "libx264", x264 + " -pix_fmt yuv420p10le", "h264", 202, 118, kAvc),
        ff("h264_high444_200x120", "libx264", x264 + " -pix_fmt yuv444p", "h264", 200, 120, kAvc),
        ff("h264_high422_200x120", "libx264", x264 + " -pix_fmt yuv422p", "h264", 200, 120, kAvc),
        ff("h264_interlaced_200x120", "libx264", x264 + " -flags +ildct+ilme", "h264", 200, 120, kAvc),
        ff("h264_scaling_matrix_200x120", "libx264", "-c:v libx264 -preset ultrafast -x264-params cqm=jvt", "h264", 200, 120, kAvc),
        ff("hevc_320x180", "libx265", x265, "hevc", 320, 180, kHevc),
        ff("hevc_200x120", "libx265", x265, "hevc", 200, 120, fcc("hvc1")),
        ff("hevc_main10_202x118", "libx265", x265 + " -pix_fmt yuv420p10le", "hevc", 202, 118, kHevc),
        ff("hevc_444_200x120", "libx265", x265 + " -pix_fmt yuv444p", "hevc", 200, 120, kHevc),
        ff("mpeg4_200x120", "mpeg4", "-c:v mpeg4", "m4v", 200, 120, kMp4v),
        ff("mpeg4_data_partitioned_200x120", "mpeg4", "-c:v mpeg4 -data_partitioning 1", "m4v", 200, 120, fcc("XVID")),
        ff("mpeg4_qpel_interlaced_320x180", "mpeg4", "-c:v mpeg4 -flags +qpel+ildct", "m4v", 320, 180, fcc("DIVX")),
        ff("mpeg4_mpeg_quant_176x144", "mpeg4", "-c:v mpeg4 -mpeg_quant 1", "m4v", 176, 144, fcc("FMP4")),
        ff("mpeg2_200x120", "mpeg2video", "-c:v mpeg2video", "mpeg2video", 200, 120, kMpg2),
        ff("mpeg2_422_interlaced_320x180", "mpeg2video", "-c:v mpeg2video -pix_fmt yuv422p -flags +ildct", "mpeg2video", 320, 180, fcc("MPG2")),
        ff("mpeg2_wide_4112x64", "mpeg2video", "-c:v mpeg2video", "mpeg2video", 4112, 64, kMpg2),
        ff("h263_176x144", "h263", "-c:v h263", "h263", 176, 144, kH263),
        ff("h263_352x288", "h263", "-c:v h263", "h263", 352, 288, fcc("s263")),
        ff("h263p_custom_200x120", "h263p", "-c:v h263p", "h263", 200, 120, kH263),
        ff("vp8_200x120", "libvpx", "-c:v libvpx", "ivf", 200, 120, kVp8),
        ff("vp8_330x190", "libvpx", "-c:v libvpx", "ivf", 330, 190, kVp8),
        ff("vp9_200x120", "libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime", "ivf", 200, 120, kVp9),
        ff("vp9_profile1_444_202x118", "libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime -pix_fmt yuv444p", "ivf", 202, 118, kVp9),
        ff("vp9_profile2_10bit_200x120", "libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime -pix_fmt yuv420p10le", "ivf", 200, 120, kVp9),
        ff("vp9_profile3_12bit_444_200x120", "libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime -pix_fmt yuv444p12le", "ivf", 200, 120, kVp9),
        ff("av1_200x120", "libaom-av1", aom, "ivf", 200, 120, kAv1),
        ff("av1_obu_stream_202x118", "libaom-av1", aom, "obu", 202, 118, kAv1),
        ff("av1_profile1_444_200x120", "libaom-av1", aom + " -pix_fmt yuv444p", "ivf", 200, 120, kAv1),
        ff("av1_10bit_200x120", "libaom-av1", aom + " -pix_fmt yuv420p10le", "ivf", 200, 120, kAv1),
        ff("av1_svt_320x180", "libsvtav1", "-c:v libsvtav1", "ivf", 320, 180, kAv1),
    };
    for (FfCase &c : v) {
        if (c.name.find("data_partitioned") != std::string::npos) c.dp = 1;
        if (c.name.find("interlaced") != std::string::npos) c.interlaced = 1;
        if (c.name.find("10bit") != std::string::npos || c.name.find("high10") != std::string::npos ||
            c.name.find("main10") != std::string::npos)
            c.bit_depth = 10;
        if (c.name.find("12bit") != std::string::npos) c.bit_depth = 12;
        if (c.name.find("444") != std::string::npos) c.chroma = 3;
        if (c.name.find("422") != std::string::npos) c.chroma = 2;
        if (c.name.find("vp9_profile") != std::string::npos) c.profile = c.name[11] - '0';
        if (c.name.find("av1_profile1") != std::string::npos) c.profile = 1;
    }
    return v;
}

class FfmpegStream : public ::testing::TestWithParam<FfCase> {
protected:
    void SetUp() override {
        if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
        if (!haveEncoder(GetParam().encoder)) GTEST_SKIP() << "ffmpeg has no encoder " << GetParam().encoder;
    }

    void expectConfigured(const Bytes &d, const char *what) {
        const FfCase &c = GetParam();
        Exact e(d.data(), d.size());
        int32_t r = -99;
        const qvid_config_out out = parseVideo(c.fourcc, e.buf.get(), e.size, &r);
        ASSERT_EQ(r, 0) << what;
        EXPECT_EQ(out.width, c.w) << what;
        EXPECT_EQ(out.height, c.h) << what;
        EXPECT_EQ(out.data_partitioned, c.dp) << what;
        if (c.interlaced >= 0) {
            EXPECT_EQ(out.interlaced, c.interlaced) << what;
        }
        if (c.bit_depth >= 0) {
            EXPECT_EQ(out.bit_depth, c.bit_depth) << what;
        }
        if (c.chroma >= 0) {
            EXPECT_EQ(out.chroma_format, c.chroma) << what;
        }
        if (c.profile >= 0) {
            EXPECT_EQ(out.profile, c.profile) << what;
        }
    }

    void expectNeedsMore(const Bytes &d, const char *what) {
        Exact e(d.data(), d.size());
        int32_t r = -99;
        parseVideo(GetParam().fourcc, e.buf.get(), e.size, &r);
        EXPECT_GT(r, 0) << what;
    }
};

TEST_P(FfmpegStream, ReportsTheEncodedSize) {
    const FfCase &c = GetParam();
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.path() + "/stream." + c.format;
    ASSERT_TRUE(encode(c.args, c.w, c.h, c.format, path)) << "ffmpeg failed for " << c.name;
    const Bytes file = readFile(path);
    ASSERT_GT(file.size(), 16u);

    if (c.format == "ivf") {
        const std::vector<Bytes> frames = ivfFrames(file);
        ASSERT_GE(frames.size(), 2u);
        expectConfigured(frames[0], "first frame");
        // Later frames carry no sequence-level header.
        expectNeedsMore(frames[1], "second frame");
        return;
    }
    expectConfigured(file, "whole stream");
    if (c.format == "h264" || c.format == "hevc") {
        // A slice NAL unit alone, cut from the stream.
        const bool avc = c.format == "h264";
        const size_t at = findCode(file, [&](uint8_t b) {
            return avc ? ((b & 0x1F) == 5 || (b & 0x1F) == 1) : ((b >> 1) & 0x3F) <= 21;
        });
        ASSERT_LT(at, file.size());
        expectNeedsMore(Bytes(file.begin() + at, file.end()), "slices only");
    } else if (c.format == "m4v") {
        const size_t at = findCode(file, [](uint8_t b) { return b == 0xB6; });
        ASSERT_LT(at, file.size());
        expectNeedsMore(Bytes(file.begin() + at, file.end()), "VOPs only");
    } else if (c.format == "mpeg2video") {
        const size_t at = findCode(file, [](uint8_t b) { return b == 0x00; });
        ASSERT_LT(at, file.size());
        expectNeedsMore(Bytes(file.begin() + at, file.end()), "pictures only");
    } else if (c.format == "h263") {
        // Every picture has a header; PLUSPTYPE pictures may omit the format.
        size_t pictures = 0;
        for (size_t i = 0; i + 3 <= file.size(); ++i) {
            if (file[i] != 0 || file[i + 1] != 0 || (file[i + 2] & 0xFC) != 0x80) continue;
            int32_t r = -99;
            const qvid_config_out out = parseVideo(c.fourcc, file.data() + i, file.size() - i, &r);
            ++pictures;
            EXPECT_GE(r, 0) << "picture at " << i;
            if (r == 0) {
                EXPECT_EQ(out.width, c.w);
                EXPECT_EQ(out.height, c.h);
            }
        }
        EXPECT_GE(pictures, 4u);
    }
}

INSTANTIATE_TEST_SUITE_P(Encoded, FfmpegStream, ::testing::ValuesIn(ffCases()),
                         [](const ::testing::TestParamInfo<FfCase> &i) { return i.param.name; });

// ------------------------------------------- container records via libav

struct RecordCase {
    std::string name, encoder, args;
    int w, h;
    uint32_t fourcc;
    bool in_band = false;  // the muxer keeps the configuration in the frames
};

void PrintTo(const RecordCase &c, std::ostream *os) { *os << c.name; }

class ContainerRecord : public ::testing::TestWithParam<RecordCase> {};

// The configuration records a real muxer writes (avcC, hvcC, av1C, the
// MPEG-4 and MPEG-2 headers) and the first frame as it sits in the file.
TEST_P(ContainerRecord, RecordAndFirstFrame) {
    const RecordCase &c = GetParam();
    if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    if (!haveEncoder(c.encoder)) GTEST_SKIP() << "ffmpeg has no encoder " << c.encoder;
    TempDir dir;
    const std::string path = dir.path() + "/v.mkv";
    ASSERT_TRUE(encode(c.args, c.w, c.h, "", path));
    const qmkv_test::AvFile f = qmkv_test::avOpen(path);
    ASSERT_TRUE(f.ok);
    ASSERT_EQ(f.streams.size(), 1u);
    const qmkv_test::AvStream &s = f.streams[0];
    ASSERT_EQ(s.width, c.w);
    ASSERT_EQ(s.height, c.h);
    if (!c.in_band) {
        ASSERT_FALSE(s.extradata.empty());
    }
    if (!s.extradata.empty()) {
        int32_t r = -99;
        const qvid_config_out out = parseVideo(c.fourcc, s.extradata.data(), s.extradata.size(), &r);
        ASSERT_EQ(r, 0);
        EXPECT_EQ(out.width, s.width);
        EXPECT_EQ(out.height, s.height);
    }
    const std::vector<qmkv_test::AvPacket> packets = f.readAll();
    ASSERT_FALSE(packets.empty());
    const Bytes &frame = packets[0].data;
    int32_t r = -99;
    const qvid_config_out out = parseVideo(c.fourcc, frame.data(), frame.size(), &r);
    if (c.in_band) {
        ASSERT_EQ(r, 0);
    }
    ASSERT_GE(r, 0) << "a frame of a valid stream is never malformed";
    if (r == 0) {
        EXPECT_EQ(out.width, s.width);
        EXPECT_EQ(out.height, s.height);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Mkv, ContainerRecord,
    ::testing::Values(RecordCase{"avcC", "libx264", "-c:v libx264 -preset ultrafast", 200, 120, kAvc},
                      RecordCase{"hvcC", "libx265", "-c:v libx265 -preset ultrafast -x265-params log-level=error", 202, 118, kHevc},
                      RecordCase{"av1C", "libaom-av1", "-c:v libaom-av1 -cpu-used 8", 200, 120, kAv1},
                      RecordCase{"mpeg4", "mpeg4", "-c:v mpeg4", 320, 180, kMp4v},
                      RecordCase{"mpeg2", "mpeg2video", "-c:v mpeg2video", 200, 120, kMpg2, true},
                      RecordCase{"vp8", "libvpx", "-c:v libvpx", 200, 120, kVp8, true},
                      RecordCase{"vp9", "libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime", 202, 118, kVp9, true}),
    [](const ::testing::TestParamInfo<RecordCase> &i) { return i.param.name; });

// AudioSpecificConfigs written by ffmpeg's AAC encoder, read back through
// libavformat, against libavformat's own sample rate and channel count.
TEST(AudioConfig, FfmpegAacConfigs) {
    if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    struct Aac {
        int rate, channels;
        const char *layout;
    };
    const Aac cases[] = {{8000, 1, "mono"}, {22050, 2, "stereo"}, {44100, 2, "stereo"},
                         {48000, 6, "5.1"}, {96000, 1, "mono"},   {7350, 2, "stereo"}};
    for (const Aac &a : cases) {
        TempDir dir;
        const std::string path = dir.path() + "/a.mka";
        const std::string cmd = "ffmpeg -hide_banner -nostdin -loglevel error -y -f lavfi -i "
                                "'sine=frequency=440:sample_rate=" + std::to_string(a.rate) +
                                ":duration=0.1' -af aformat=channel_layouts=" + a.layout +
                                " -c:a aac '" + path + "' >/dev/null 2>&1";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << a.rate;
        const qmkv_test::AvFile f = qmkv_test::avOpen(path);
        ASSERT_TRUE(f.ok);
        ASSERT_EQ(f.streams.size(), 1u);
        const qmkv_test::AvStream &s = f.streams[0];
        ASSERT_FALSE(s.extradata.empty());
        int32_t r = -99;
        const qaud_config_out out = parseAudio(fcc("mp4a"), s.extradata.data(), s.extradata.size(), &r);
        ASSERT_EQ(r, 0) << a.rate;
        EXPECT_EQ(out.profile, 2) << a.rate;
        EXPECT_EQ(out.sample_rate, s.sample_rate);
        EXPECT_EQ(out.sample_rate, a.rate);
        EXPECT_EQ(out.channels, s.channels);
        EXPECT_EQ(out.channels, a.channels);
    }
}

// Every video and AAC track of the shared real-file corpus.
TEST(CorpusConfigs, AgreeWithLibavformat) {
    QMKV_REQUIRE_CORPUS();
    const std::map<std::string, uint32_t> codes = {
        {"h264", kAvc}, {"hevc", kHevc}, {"mpeg4", kMp4v}, {"mpeg2video", kMpg2},
        {"av1", kAv1},  {"vp8", kVp8},   {"vp9", kVp9},
    };
    int checked = 0;
    for (const qmkv_test::CorpusEntry &e : qmkv_test::corpusFiles()) {
        const qmkv_test::AvFile f = qmkv_test::avOpen(qmkv_test::corpusFile(e.name));
        if (!f.ok) continue;
        std::vector<qmkv_test::AvPacket> packets;
        for (const qmkv_test::AvStream &s : f.streams) {
            if (s.codec_name == "aac" && !s.extradata.empty()) {
                int32_t r = -99;
                const qaud_config_out out = parseAudio(0xFF, s.extradata.data(), s.extradata.size(), &r);
                EXPECT_EQ(r, 0) << e.name;
                EXPECT_EQ(out.sample_rate, s.sample_rate) << e.name;
                EXPECT_EQ(out.channels, s.channels) << e.name;
                ++checked;
                continue;
            }
            auto it = codes.find(s.codec_name);
            if (it == codes.end()) continue;
            Bytes config = s.extradata;
            if (config.empty()) {
                if (packets.empty()) packets = f.readAll();
                for (const qmkv_test::AvPacket &p : packets) {
                    if (p.stream == s.index) {
                        config = p.data;
                        break;
                    }
                }
            }
            int32_t r = -99;
            const qvid_config_out out = parseVideo(it->second, config.data(), config.size(), &r);
            EXPECT_EQ(r, 0) << e.name;
            EXPECT_EQ(out.width, s.width) << e.name;
            EXPECT_EQ(out.height, s.height) << e.name;
            ++checked;
        }
    }
    EXPECT_GT(checked, 10);
}

// ------------------------------------------------------- device profile

class DeviceProfile : public ::testing::Test {
protected:
    void TearDown() override { unsetenv("QMKV_DEVICE_PROFILE"); }

    // Writes `text` to a profile file and points the variable at it.
    void useProfile(const std::string &text) {
        path_ = dir_.path() + "/profile.txt";
        std::ofstream(path_) << text;
        setenv("QMKV_DEVICE_PROFILE", path_.c_str(), 1);
    }

    static int32_t supported(uint32_t code, int32_t *flag) {
        *flag = -1;
        return qvid_get_mm_spec(QVID_MMSPEC_QUERY_SUPPORTED, code, flag, sizeof(*flag));
    }

    static int32_t limits(uint32_t code, qvid_mm_max_dims *d) {
        *d = {1920, 1088, 1088, 1920};
        return qvid_get_mm_spec(QVID_MMSPEC_QUERY_MAX_DIMS, code, d, sizeof(*d));
    }

    TempDir dir_;
    std::string path_;
};

const char *const kWhitelist[] = {"MPG2", "mpg2", "H263", "S263", "h263", "s263", "AVC1", "avc1",
                                  "hvc1", "hev1", "VP80", "VP90", "av01", "H264", "X264", "h264",
                                  "x264", "FMP4", "fmp4", "XVID", "xvid", "MP4V", "mp4v"};

uint32_t code(const char *s) {
    return (uint32_t)(uint8_t)s[0] | (uint32_t)(uint8_t)s[1] << 8 | (uint32_t)(uint8_t)s[2] << 16 |
           (uint32_t)(uint8_t)s[3] << 24;
}

TEST_F(DeviceProfile, DefaultDecodesTheWhitelistUpTo4096x2176) {
    unsetenv("QMKV_DEVICE_PROFILE");
    for (const char *s : kWhitelist) {
        int32_t flag;
        EXPECT_EQ(supported(code(s), &flag), 0) << s;
        EXPECT_EQ(flag, 1) << s;
        qvid_mm_max_dims d;
        EXPECT_EQ(limits(code(s), &d), 0) << s;
        EXPECT_EQ(d.landscape_width, 4096) << s;
        EXPECT_EQ(d.landscape_height, 2176) << s;
        EXPECT_EQ(d.portrait_width, 2176) << s;
        EXPECT_EQ(d.portrait_height, 4096) << s;
    }
    int32_t flag;
    EXPECT_EQ(supported(code("MP43"), &flag), 0) << "known codec without a decoder";
    EXPECT_EQ(flag, 0);
    qvid_mm_max_dims d;
    EXPECT_EQ(limits(code("MP43"), &d), QVID_MMSPEC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(d.landscape_width, 1920) << "nothing written when not supported";
    EXPECT_EQ(supported(code("WMV3"), &flag), QVID_MMSPEC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(limits(code("WMV3"), &d), QVID_MMSPEC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(supported(0x55, &flag), QVID_MMSPEC_ERR_NOT_SUPPORTED);
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

TEST_F(DeviceProfile, FileReplacesTheDefault) {
    useProfile("# a smaller device\n"
               "AVC1 1920 1088 1088 1920\n"
               "  hevc\t3840 2176 2176 3840   # by family name\n"
               "vp9 1280 720 720 1280\r\n"
               "\n"
               "mp43 352 288 288 352\n"
               "av1 4096 2304 2304 4096\n"
               "av1 unsupported\n");
    int32_t flag;
    qvid_mm_max_dims d;
    for (const char *s : {"AVC1", "avc1", "H264", "x264"}) {
        EXPECT_EQ(supported(code(s), &flag), 0);
        EXPECT_EQ(flag, 1) << s;
        EXPECT_EQ(limits(code(s), &d), 0);
        EXPECT_EQ(d.landscape_width, 1920);
        EXPECT_EQ(d.landscape_height, 1088);
        EXPECT_EQ(d.portrait_width, 1088);
        EXPECT_EQ(d.portrait_height, 1920);
    }
    EXPECT_EQ(limits(code("hvc1"), &d), 0);
    EXPECT_EQ(d.landscape_width, 3840);
    EXPECT_EQ(limits(code("VP90"), &d), 0);
    EXPECT_EQ(d.portrait_height, 1280);
    EXPECT_EQ(supported(code("MP43"), &flag), 0);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(supported(code("av01"), &flag), 0) << "the later line wins";
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(limits(code("av01"), &d), QVID_MMSPEC_ERR_NOT_SUPPORTED);
    for (const char *s : {"MPG2", "H263", "VP80", "MP4V", "XVID"}) {
        EXPECT_EQ(supported(code(s), &flag), 0) << s;
        EXPECT_EQ(flag, 0) << s << " is not listed";
    }
}

TEST_F(DeviceProfile, MalformedOrMissingFileFallsBackToDefault) {
    for (const char *text : {"AVC1 1920 1088 1088\n", "AVC1 1920 1088 1088 1920 7\n", "WMV3 1 1 1 1\n",
                             "AVC1 0 1088 1088 1920\n", "AVC1 1920x1088 1 1 1\n", "AVC1 99999999 1 1 1\n",
                             "VP80 maybe\n"}) {
        useProfile(std::string("hevc 640 480 480 640\n") + text);
        int32_t flag;
        qvid_mm_max_dims d;
        EXPECT_EQ(limits(code("hev1"), &d), 0) << text;
        EXPECT_EQ(d.landscape_width, 4096) << text;
        EXPECT_EQ(supported(code("MPG2"), &flag), 0);
        EXPECT_EQ(flag, 1) << text;
    }
    setenv("QMKV_DEVICE_PROFILE", (dir_.path() + "/missing").c_str(), 1);
    qvid_mm_max_dims d;
    EXPECT_EQ(limits(kAvc, &d), 0);
    EXPECT_EQ(d.landscape_height, 2176);
    setenv("QMKV_DEVICE_PROFILE", "", 1);
    EXPECT_EQ(limits(kAvc, &d), 0);
    EXPECT_EQ(d.landscape_height, 2176);
}

TEST_F(DeviceProfile, ParserReportsTheBadLine) {
    qcmn::DeviceProfile p;
    int bad = 0;
    const std::string ok = "# x\nvp8 1 2 3 4\nVP90 unsupported\n";
    EXPECT_TRUE(qcmn::parse_device_profile(ok.data(), ok.size(), &p, &bad));
    EXPECT_TRUE(p.supported[(int)qcmn::VFamily::kVp8]);
    EXPECT_EQ(p.limits[(int)qcmn::VFamily::kVp8].portrait_height, 4);
    EXPECT_FALSE(p.supported[(int)qcmn::VFamily::kVp9]);
    EXPECT_FALSE(p.supported[(int)qcmn::VFamily::kAvc]);
    const std::string broken = "vp8 1 2 3 4\n\n# fine\nbogus 1 2 3 4\n";
    EXPECT_FALSE(qcmn::parse_device_profile(broken.data(), broken.size(), &p, &bad));
    EXPECT_EQ(bad, 4);
    EXPECT_TRUE(qcmn::parse_device_profile("", 0, &p, &bad)) << "an empty profile decodes nothing";
    EXPECT_FALSE(p.supported[(int)qcmn::VFamily::kAvc]);
    const std::string no_newline = "av1 7680 4320 4320 7680";
    EXPECT_TRUE(qcmn::parse_device_profile(no_newline.data(), no_newline.size(), &p, &bad));
    EXPECT_EQ(p.limits[(int)qcmn::VFamily::kAv1].landscape_width, 7680);
}

// ------------------------------------------------------------ format keys

TEST(ExtMediaFormatKeys, DistinctDocumentedStrings) {
    const std::vector<std::pair<const char *, const char *>> keys = {
        {AMEDIAFORMAT_KEY_FOURCC, "fourcc"},
        {AMEDIAFORMAT_KEY_TRACK_FOURCC, "track-fourcc"},
        {AMEDIAFORMAT_KEY_ERROR_TYPE, "error-type"},
        {AMEDIAFORMAT_KEY_ERROR_LOGGABLE, "error-loggable"},
        {AMEDIAFORMAT_KEY_TRACK_NAME, "track-name"},
        {AMEDIAFORMAT_KEY_IS_MP4_DP, "is-mp4-dp"},
        {AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL, "i-frame-avg-interval"},
        {AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING, "allow-frame-reordering"},
        {AMEDIAFORMAT_KEY_WRITER, "writer"},
        {AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES, "char-encoding-types"},
    };
    for (size_t i = 0; i < keys.size(); ++i) {
        ASSERT_NE(keys[i].first, nullptr);
        EXPECT_STREQ(keys[i].first, keys[i].second);
        for (size_t j = 0; j < i; ++j) EXPECT_STRNE(keys[i].first, keys[j].first);
    }
}

}  // namespace
