#include <gtest/gtest.h>

#include <stdint.h>

#include "common/qcmn_fcc2mt.h"

namespace {

// First character in the lowest byte.
int32_t fcc(const char *s) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | (uint8_t)s[i];
    return (int32_t)v;
}

// A code and what the audio, video, subtitle and DRM lookups give for it;
// 0 stands for that lookup's unknown type.
struct Row {
    int32_t code;
    int aud = 0, vid = 0, sub = 0, drm = 0;
};

// Representative codes of each table, both ends of each sorted table, and
// codes no table knows, including near misses of listed ones.
const Row kRows[] = {
    {1, 300}, {2, 330}, {0x55, 305}, {0xFF, 306}, {0x160, 312}, {0x161, 312}, {0x162, 313}, {0x163, 314},
    {0x2000, 307}, {0x2001, 308}, {0x2674F, 323}, {fcc("ac-3"), 307}, {fcc("ac-4"), 338}, {fcc("ec-3"), 337},
    {fcc("fLaC"), 322}, {fcc("cook"), 332}, {fcc("samr"), 309}, {fcc("DSD "), 335}, {fcc("Opus"), 334},
    {fcc("RV10"), 0, 113}, {fcc("RV20"), 0, 114}, {fcc("RV30"), 0, 115}, {fcc("RV40"), 0, 116},
    {fcc("AVC1"), 0, 104}, {fcc("avc1"), 0, 104}, {fcc("hvc1"), 0, 120}, {fcc("FLV1"), 0, 111},
    {fcc("WVC1"), 0, 118}, {fcc("VP80"), 0, 119}, {fcc("VP90"), 0, 121}, {fcc("av01"), 0, 122},
    {fcc("MP43"), 0, 117}, {fcc("DIV3"), 0, 110}, {fcc("DIV4"), 0, 102}, {fcc("s263"), 0, 103},
    {fcc("DIVX"), 0, 102, 0, 1100}, {fcc("divx"), 0, 102, 0, 1100},
    {fcc("SSRT"), 0, 0, 3000}, {fcc("tx3g"), 0, 0, 3006}, {fcc("sbtl"), 0, 0, 3006}, {fcc("SASS"), 0, 0, 3007},
    {fcc("SSSA"), 0, 0, 3008},
    {0}, {3}, {0x164}, {0x2002}, {-1}, {INT32_MIN}, {INT32_MAX}, {fcc("lpcm")}, {fcc("alac")}, {fcc("vp09")},
    {fcc("COOK")}, {fcc("OPUS")}, {fcc("Avc1")}, {fcc("HVC1")}, {fcc("ssrt")}, {fcc("Divx")}, {fcc("flac")},
    {fcc("av1c")}, {fcc("*DIR")}, {fcc("#???")},
};

struct Lookup {
    qcmn_media_type (*f)(int32_t);
    int Row::*listed;
    int unknown;
};

const Lookup kLookups[] = {{qcmn_fcc2mt_aud, &Row::aud, 499},
                           {qcmn_fcc2mt_vid, &Row::vid, 299},
                           {qcmn_fcc2mt_sub, &Row::sub, 3199},
                           {qcmn_fcc2mt_drm, &Row::drm, 1299}};

// Each lookup answers only for its own codes; the combined one tries audio,
// then video, then subtitle (DRM never wins: video claims both DivX codes),
// and reports anything else as an unknown subtitle.
TEST(Fcc2mt, EveryLookupOnEveryRow) {
    for (const Row &r : kRows) {
        int combined = 3199;
        for (const Lookup &l : kLookups) {
            const int want = r.*l.listed;
            EXPECT_EQ(want != 0 ? want : l.unknown, l.f(r.code)) << std::hex << r.code;
            if (want != 0 && combined == 3199) combined = want;
        }
        EXPECT_EQ(combined, qcmn_fcc2mt(r.code)) << std::hex << r.code;
    }
}

// Neighbours of listed codes (one up and down in each byte) miss unless they
// are rows themselves; catches a search that matches near a key.
TEST(Fcc2mt, NeighboursOfListedCodesMiss) {
    for (const Lookup &l : kLookups) {
        for (const Row &r : kRows) {
            if (r.*l.listed == 0) continue;
            for (int shift = 0; shift < 32; shift += 8) {
                for (uint32_t d : {1u << shift, 0u - (1u << shift)}) {
                    const int32_t n = (int32_t)((uint32_t)r.code + d);
                    bool row = false;
                    for (const Row &o : kRows) row = row || (o.code == n && o.*l.listed != 0);
                    if (!row) {
                        EXPECT_EQ(l.unknown, l.f(n)) << std::hex << r.code << " shift " << shift;
                    }
                }
            }
        }
    }
}

}  // namespace
