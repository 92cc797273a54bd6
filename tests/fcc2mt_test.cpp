#include <gtest/gtest.h>

#include <stdint.h>
#include <vector>

#include "common/qcmn_fcc2mt.h"

namespace {

// First character in the lowest byte.
int32_t fcc(const char *s) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | (uint8_t)s[i];
    return (int32_t)v;
}

struct Case {
    int32_t code;
    int expected;
    const char *name;
};

Case C(const char *s, int mt) { return {fcc(s), mt, s}; }
Case C(int32_t code, int mt) { return {code, mt, "tag"}; }

const std::vector<Case> kAudio = {
    C(1, 300), C(2, 330), C(6, 301), C(7, 302), C(0x11, 329), C(0x50, 304), C(0x55, 305), C(0xFF, 306),
    C(0x160, 312), C(0x161, 312), C(0x162, 313), C(0x163, 314), C(0x2000, 307), C(0x2001, 308),
    C(0xF1AC, 322), C(0x2674F, 323), C("aac ", 306), C("mp4a", 306), C("ac-3", 307), C("ec-3", 337),
    C("ac-4", 338), C("DSD ", 335), C("fLaC", 322), C("samr", 309), C("sawb", 310), C("sqcp", 311),
    C("dqcp", 311), C("evrc", 321), C("sipr", 331), C("cook", 332), C("Opus", 334),
};

const std::vector<Case> kVideo = {
    C("MP4V", 102), C("mp4v", 102), C("FMP4", 102), C("DIVX", 102), C("divx", 102), C("XVID", 102),
    C("xvid", 102), C("DX50", 102), C("dx50", 102), C("DIV4", 102), C("div4", 102), C("M4S2", 102),
    C("m4s2", 102), C("H263", 103), C("h263", 103), C("S263", 103), C("s263", 103), C("d263", 103),
    C("AVC1", 104), C("avc1", 104), C("avcC", 104), C("H264", 104), C("h264", 104), C("X264", 104),
    C("x264", 104), C("M264", 104), C("WMV1", 105), C("wmv1", 105), C("WMV2", 106), C("wmv2", 106),
    C("WMV3", 107), C("wmv3", 107), C("DIV3", 110), C("div3", 110), C("FLV1", 111), C("RV10", 113),
    C("RV20", 114), C("RV30", 115), C("RV40", 116), C("MP43", 117), C("mp43", 117), C("WVC1", 118),
    C("wvc1", 118), C("vc-1", 118), C("VP80", 119), C("hev1", 120), C("hvc1", 120), C("hvcC", 120),
    C("smhC", 120), C("VP90", 121), C("av01", 122), C("av1C", 122),
};

const std::vector<Case> kSubtitle = {
    C("SSRT", 3000), C("tx3g", 3006), C("TX3G", 3006), C("sbtl", 3006),
    C("SBTL", 3006), C("SASS", 3007), C("SSSA", 3008),
};

const std::vector<Case> kDrm = {C("DIVX", 1100), C("divx", 1100)};

// Codes that no table knows, including near misses of listed ones.
const std::vector<Case> kUnknown = {
    C(0, 0), C(3, 0), C(0x164, 0), C(0x2002, 0), C(-1, 0), C(INT32_MIN, 0), C(INT32_MAX, 0), C("lpcm", 0),
    C("alac", 0), C("MPG1", 0), C("mpg2", 0), C("THEO", 0), C("SNOW", 0), C("vp08", 0), C("vp09", 0),
    C("COOK", 0), C("OPUS", 0), C("Avc1", 0), C("*DIR", 0), C("#???", 0), C("ssrt", 0), C("Divx", 0),
    C("AAC ", 0), C("flac", 0), C("av1c", 0), C("HVC1", 0),
};

bool listed(const std::vector<Case> &table, int32_t code) {
    for (const Case &c : table)
        if (c.code == code) return true;
    return false;
}

TEST(Fcc2mt, FourCharacterCodesPutTheFirstCharacterLowest) { EXPECT_EQ(0x31637661, fcc("avc1")); }

TEST(Fcc2mt, EveryTableEntry) {
    for (const Case &c : kAudio) EXPECT_EQ(c.expected, qcmn_fcc2mt_aud(c.code)) << c.name << " " << c.code;
    for (const Case &c : kVideo) EXPECT_EQ(c.expected, qcmn_fcc2mt_vid(c.code)) << c.name;
    for (const Case &c : kSubtitle) EXPECT_EQ(c.expected, qcmn_fcc2mt_sub(c.code)) << c.name;
    for (const Case &c : kDrm) EXPECT_EQ(c.expected, qcmn_fcc2mt_drm(c.code)) << c.name;
}

// Each table answers only for its own codes: feed every known code of every
// table, and the unknown ones, to every function.
TEST(Fcc2mt, TablesAreDisjointFromEachOthersCodes) {
    std::vector<Case> all;
    for (const auto *t : {&kAudio, &kVideo, &kSubtitle, &kDrm, &kUnknown}) all.insert(all.end(), t->begin(), t->end());
    for (const Case &c : all) {
        if (!listed(kAudio, c.code)) {
            EXPECT_EQ(499, qcmn_fcc2mt_aud(c.code)) << c.name;
        }
        if (!listed(kVideo, c.code)) {
            EXPECT_EQ(299, qcmn_fcc2mt_vid(c.code)) << c.name;
        }
        if (!listed(kSubtitle, c.code)) {
            EXPECT_EQ(3199, qcmn_fcc2mt_sub(c.code)) << c.name;
        }
        if (!listed(kDrm, c.code)) {
            EXPECT_EQ(1299, qcmn_fcc2mt_drm(c.code)) << c.name;
        }
    }
}

// Neighbours of every listed code (±1 and in each byte) are misses unless
// they are listed themselves; catches a search that matches near a key.
TEST(Fcc2mt, NeighboursOfListedCodesMiss) {
    struct Fn {
        qcmn_media_type (*f)(int32_t);
        const std::vector<Case> *table;
        int unknown;
    };
    const Fn fns[] = {{qcmn_fcc2mt_aud, &kAudio, 499},
                      {qcmn_fcc2mt_vid, &kVideo, 299},
                      {qcmn_fcc2mt_sub, &kSubtitle, 3199},
                      {qcmn_fcc2mt_drm, &kDrm, 1299}};
    for (const Fn &fn : fns) {
        for (const Case &c : *fn.table) {
            for (int shift = 0; shift < 32; shift += 8) {
                for (int64_t d : {-1, 1}) {
                    const int32_t n = (int32_t)((uint32_t)c.code + (uint32_t)(d * ((int64_t)1 << shift)));
                    if (listed(*fn.table, n)) continue;
                    EXPECT_EQ(fn.unknown, fn.f(n)) << c.name << " shift " << shift << " d " << d;
                }
            }
        }
    }
}

TEST(Fcc2mt, CombinedPrefersAudioThenVideoThenSubtitle) {
    for (const Case &c : kAudio) EXPECT_EQ(c.expected, qcmn_fcc2mt(c.code)) << c.name;
    for (const Case &c : kVideo) EXPECT_EQ(c.expected, qcmn_fcc2mt(c.code)) << c.name;
    for (const Case &c : kSubtitle) EXPECT_EQ(c.expected, qcmn_fcc2mt(c.code)) << c.name;
    for (const Case &c : kUnknown) EXPECT_EQ(3199, qcmn_fcc2mt(c.code)) << c.name;
}

TEST(Fcc2mt, EdgeCases) {
    EXPECT_EQ(305, qcmn_fcc2mt(0x55));
    EXPECT_EQ(104, qcmn_fcc2mt(fcc("avc1")));
    EXPECT_EQ(102, qcmn_fcc2mt(fcc("DIVX")));  // video wins; never the DRM value
    EXPECT_EQ(102, qcmn_fcc2mt(fcc("divx")));
    EXPECT_EQ(3199, qcmn_fcc2mt(fcc("*DIR")));
    EXPECT_EQ(3199, qcmn_fcc2mt(fcc("#???")));
    EXPECT_EQ(299, qcmn_fcc2mt_vid(fcc("*DIR")));
    EXPECT_EQ(499, qcmn_fcc2mt_aud(3));
    EXPECT_EQ(312, qcmn_fcc2mt_aud(0x160));
    EXPECT_EQ(312, qcmn_fcc2mt_aud(0x161));
    EXPECT_EQ(299, qcmn_fcc2mt_vid(fcc("COOK")));
    EXPECT_EQ(499, qcmn_fcc2mt_aud(fcc("COOK")));
    EXPECT_EQ(332, qcmn_fcc2mt_aud(fcc("cook")));
    EXPECT_EQ(3000, qcmn_fcc2mt_sub(fcc("SSRT")));
    EXPECT_EQ(1299, qcmn_fcc2mt_drm(fcc("Divx")));
}

TEST(Fcc2mt, CombinedNeverReturnsAnUnknownOfAnotherKindOrDrm) {
    std::vector<Case> all;
    for (const auto *t : {&kAudio, &kVideo, &kSubtitle, &kDrm, &kUnknown}) all.insert(all.end(), t->begin(), t->end());
    for (const Case &c : all) {
        const int r = qcmn_fcc2mt(c.code);
        EXPECT_NE(499, r) << c.name;
        EXPECT_NE(299, r) << c.name;
        EXPECT_NE(1100, r) << c.name;
        EXPECT_NE(1299, r) << c.name;
    }
}

}  // namespace
