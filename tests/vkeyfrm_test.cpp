#include <gtest/gtest.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "common/qcmn_vkeyfrm.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Runs the test on a heap copy of exactly `bytes.size()` bytes, so that
// AddressSanitizer reports any read past `length`.
int32_t key(int mt, const Bytes &bytes) {
    uint8_t *copy = static_cast<uint8_t *>(malloc(bytes.size()));
    if (!bytes.empty()) memcpy(copy, bytes.data(), bytes.size());
    const int32_t r = qcmn_is_vkeyfrm(static_cast<qcmn_media_type>(mt), copy, (int32_t)bytes.size());
    free(copy);
    return r;
}

std::string hex(const Bytes &b) {
    std::string s;
    char buf[4];
    for (uint8_t v : b) {
        snprintf(buf, sizeof buf, "%02X ", v);
        s += buf;
    }
    return s;
}

struct Case {
    int mt;
    Bytes bytes;
    int32_t expected;
    const char *what;
};

const std::vector<Case> kCases = {
    // H.264
    {104, {0x00, 0x00, 0x01, 0x65}, 1, "IDR slice"},
    {104, {0x00, 0x00, 0x01, 0x41}, 0, "non-IDR slice"},
    {104, {0x00, 0x00, 0x01, 0x67, 0x42, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x00, 0x00, 0x01, 0x65}, 1,
     "SPS, PPS, then IDR"},
    {104, {0x00, 0x00, 0x01, 0x67, 0x42, 0x00, 0x00, 0x01, 0x41}, 0, "SPS then non-IDR"},
    {104, {0x00, 0x00, 0x01}, 0, "3 bytes"},
    {104, {0x00, 0x00, 0x01, 0x67}, 0, "SPS alone"},
    {104, {0x00, 0x00, 0x00, 0x01, 0x65}, 1, "4-byte start code, as the seek crawl passes it"},
    {104, {0x00, 0x00, 0x00, 0x01, 0x61}, 0, "4-byte start code, non-IDR"},
    {104, {0x00, 0x00, 0x01, 0x25}, 1, "IDR with another nal_ref_idc"},
    {104, {0x00, 0x00, 0x01, 0x09, 0x10, 0x00, 0x00, 0x01, 0x06, 0x05, 0x00, 0x00, 0x01, 0x45}, 1,
     "delimiter, SEI, IDR"},
    {104, {0x65, 0x88, 0x84, 0x00}, 0, "no start code"},
    {104, {0x00, 0x01, 0x65, 0x00}, 0, "two-byte start code is not one"},
    // HEVC
    {120, {0x00, 0x00, 0x01, 0x26, 0x01}, 1, "IDR_W_RADL"},
    {120, {0x00, 0x00, 0x01, 0x02, 0x01}, 0, "TRAIL_R"},
    {120, {0x00, 0x00, 0x01, 0x40, 0x01}, 0, "VPS alone"},
    {120, {0x00, 0x00, 0x01, 0x40, 0x01, 0x00, 0x00, 0x01, 0x42, 0x01, 0x00, 0x00, 0x01, 0x26, 0x01}, 1,
     "VPS, SPS, IDR"},
    {120, {0x00, 0x00, 0x01, 0x20, 0x01}, 1, "BLA_W_LP (16)"},
    {120, {0x00, 0x00, 0x01, 0x2A, 0x01}, 1, "CRA (21)"},
    {120, {0x00, 0x00, 0x01, 0x2C, 0x01}, 0, "reserved IRAP 22 is skipped, then nothing"},
    {120, {0x00, 0x00, 0x01, 0x12, 0x01}, 0, "RASL_R (9)"},
    {120, {0x00, 0x00, 0x01, 0x14, 0x01, 0x00, 0x00, 0x01, 0x26, 0x01}, 1, "type 10 is skipped"},
    {120, {0x00, 0x00, 0x01, 0x1E, 0x01, 0x00, 0x00, 0x01, 0x02, 0x01}, 0, "type 15 is skipped, then TRAIL"},
    {120, {0x00, 0x00, 0x00, 0x01, 0x26}, 1, "4-byte start code"},
    {120, {0x00, 0x00, 0x01}, 0, "3 bytes"},
    // MPEG-4 part 2
    {102, {0x00, 0x00, 0x01, 0xB6, 0x10}, 1, "I-VOP"},
    {102, {0x00, 0x00, 0x01, 0xB6, 0x50}, 0, "P-VOP"},
    {102, {0x00, 0x00, 0x01, 0xB6, 0x3F}, 1, "I-VOP upper bound"},
    {102, {0x00, 0x00, 0x01, 0xB6, 0x40}, 0, "P-VOP lower bound"},
    {102, {0x00, 0x00, 0x01, 0xB6}, 0, "4 bytes"},
    {102, {0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB6, 0x10}, 1, "VOS header then I-VOP"},
    {102, {0xFF, 0x00, 0x00, 0x01, 0xB6, 0x10}, 1, "VOP at the last scan position"},
    {102, {0x00, 0x00, 0x80, 0x02, 0x00}, 1, "short header, intra"},
    {102, {0x00, 0x00, 0x83, 0x02, 0x00}, 1, "short header, low bits of the start code"},
    {102, {0x00, 0x00, 0x80, 0x02, 0x02}, 0, "short header, inter"},
    {102, {0x00, 0x00, 0x80, 0x01, 0x00}, 0, "short header with bad marker bits"},
    {102, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x00, 0x00, 0x01, 0xB6, 0x10}, 1, "extended short header skipped"},
    {102, {0x00, 0x00, 0x80, 0x02, 0x1E}, 0, "extended short header, nothing after"},
    // H.263 and Sorenson
    {103, {0x00, 0x00, 0x80, 0x02, 0x00, 0x00, 0x00}, 1, "H.263 intra"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x02, 0x00, 0x00}, 0, "H.263 inter"},
    {103, {0x00, 0x00, 0x80, 0x01, 0x00, 0x00, 0x00}, 0, "H.263 bad marker bits"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x00, 0x00}, 0, "6 bytes"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x00, 0x00}, 1, "PLUSPTYPE, no update, intra"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x10, 0x00}, 0, "PLUSPTYPE, no update, inter"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x80, 0x00, 0x00}, 1, "PLUSPTYPE with OPPTYPE, intra"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x80, 0x00, 0x04}, 0, "PLUSPTYPE with OPPTYPE, inter"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x80, 0x00}, 0, "PLUSPTYPE with OPPTYPE cut before its byte"},
    {103, {0x00, 0x00, 0x80, 0x02, 0x1D, 0x00, 0x70}, 1, "u = 2 looks at b[5]"},
    {103, {0x00, 0x00, 0x84, 0x00, 0x00, 0x00, 0x00}, 1, "Sorenson, short size code, intra"},
    {103, {0x00, 0x00, 0x84, 0x00, 0x00, 0x00, 0x20}, 0, "Sorenson, short size code, inter"},
    {103, {0x00, 0x00, 0x84, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00}, 1, "Sorenson, long size code, intra"},
    {103, {0x00, 0x00, 0x84, 0x01, 0x00, 0x00, 0x00, 0x00, 0x40}, 0, "Sorenson, long size code, inter"},
    {103, {0x00, 0x00, 0x84, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00}, 1, "Sorenson, b[4] >= 0x80"},
    {103, {0x00, 0x00, 0x84, 0x01, 0x00, 0x00, 0x00, 0x00}, 0, "Sorenson cut before b[8]"},
    {103, {0x00, 0x00, 0x84, 0x01, 0x00, 0x00, 0x00}, 0, "Sorenson cut two before b[8]"},
    {103, {0x12, 0x00, 0x00, 0x80, 0x02, 0x00, 0x00, 0x00}, 1, "picture start after a byte"},
    {103, {0x00, 0x00, 0x88, 0x02, 0x00, 0x00, 0x00}, 0, "other start code"},
    {111, {0x00, 0x00, 0x84, 0x00, 0x00, 0x00, 0x00}, 1, "Sorenson type, intra"},
    {111, {0x00, 0x00, 0x84, 0x00, 0x00, 0x00, 0x60}, 0, "Sorenson type, inter"},
    {111, {0x00, 0x00, 0x80, 0x02, 0x00, 0x00, 0x00}, 1, "Sorenson type, H.263 header"},
    // First-byte tests
    {105, {0x3F}, 1, "WMV7 key"},
    {105, {0x40}, 0, "WMV7 not key"},
    {110, {0x00}, 1, "DivX 3 key"},
    {110, {0xC0}, 0, "DivX 3 not key"},
    {106, {0x7F}, 1, "WMV8 key"},
    {106, {0x80}, 0, "WMV8 not key"},
    // VP8
    {119, {0x10, 0x02, 0x00, 0x9D, 0x01, 0x2A}, 1, "VP8 key"},
    {119, {0x10, 0x02, 0x00, 0x9D, 0x01, 0x2B}, 0, "VP8 wrong third code byte"},
    {119, {0x10, 0x02, 0x00, 0x9C, 0x01, 0x2A}, 0, "VP8 wrong first code byte"},
    {119, {0x11, 0x02, 0x00, 0x00, 0x00, 0x00}, 0, "VP8 inter"},
    {119, {0x10, 0x02, 0x00, 0x9D, 0x01}, 0, "VP8 cut before the code's end"},
    // VP9
    {121, {0x82}, 1, "VP9 key"},
    {121, {0x86}, 0, "VP9 inter"},
    {121, {0x88, 0x80}, 0, "VP9 bit 3, b[1] >= 0x80"},
    {121, {0x88, 0x7F}, 1, "VP9 bit 3, b[1] < 0x80"},
    {121, {0x88}, 0, "VP9 bit 3 without b[1]"},
};

TEST(Vkeyfrm, DocumentedAndEdgeCases) {
    for (const Case &c : kCases)
        EXPECT_EQ(c.expected, key(c.mt, c.bytes)) << c.mt << " " << c.what << ": " << hex(c.bytes);
}

// The shared H.263 test answers alike for both types.
TEST(Vkeyfrm, H263AndSorensonShareTheirTest) {
    for (const Case &c : kCases) {
        if (c.mt != 103 && c.mt != 111) continue;
        EXPECT_EQ(key(103, c.bytes), key(111, c.bytes)) << c.what;
    }
}

TEST(Vkeyfrm, DivX3AndWmv7ShareTheirTest) {
    for (int b = 0; b < 256; ++b) {
        EXPECT_EQ(b < 0x40 ? 1 : 0, key(105, {(uint8_t)b})) << b;
        EXPECT_EQ(b < 0x40 ? 1 : 0, key(110, {(uint8_t)b})) << b;
        EXPECT_EQ(b < 0x80 ? 1 : 0, key(106, {(uint8_t)b})) << b;
    }
}

TEST(Vkeyfrm, Vp9FirstByte) {
    for (int b = 0; b < 256; ++b) {
        if (b & 0x08) {
            EXPECT_EQ(1, key(121, {(uint8_t)b, 0x7F})) << b;
            EXPECT_EQ(0, key(121, {(uint8_t)b, 0x80})) << b;
        } else {
            EXPECT_EQ((b & 0x04) ? 0 : 1, key(121, {(uint8_t)b, 0xFF})) << b;
        }
    }
}

// Types the test does not inspect, and types outside the video range, give
// 0 even for data that is a key frame for some codec.
TEST(Vkeyfrm, UninspectedAndForeignTypesGiveZero) {
    const std::vector<Bytes> keyish = {
        {0x00, 0x00, 0x01, 0x65, 0x00, 0x00, 0x00, 0x00, 0x00},
        {0x00, 0x00, 0x01, 0xB6, 0x10, 0x00, 0x00, 0x00, 0x00},
        {0x00, 0x00, 0x01, 0x26, 0x01, 0x00, 0x00, 0x00, 0x00},
        {0x00, 0x02, 0x00, 0x9D, 0x01, 0x2A, 0x00, 0x00, 0x00},
        {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
    };
    for (int mt : {0, 101, 107, 108, 109, 112, 113, 114, 115, 116, 117, 118, 122, 299, 300, 305, 1100, 3000, 3199})
        for (const Bytes &b : keyish) EXPECT_EQ(0, key(mt, b)) << mt << ": " << hex(b);
}

TEST(Vkeyfrm, NullOrEmptyOrNegativeLength) {
    const uint8_t idr[] = {0x00, 0x00, 0x01, 0x65};
    for (int mt = 102; mt <= 122; ++mt) {
        EXPECT_EQ(0, qcmn_is_vkeyfrm((qcmn_media_type)mt, nullptr, 0)) << mt;
        EXPECT_EQ(0, qcmn_is_vkeyfrm((qcmn_media_type)mt, nullptr, 16)) << mt;
        EXPECT_EQ(0, qcmn_is_vkeyfrm((qcmn_media_type)mt, idr, -1)) << mt;
        EXPECT_EQ(0, qcmn_is_vkeyfrm((qcmn_media_type)mt, idr, INT32_MIN)) << mt;
        EXPECT_EQ(0, key(mt, {})) << mt;
    }
}

// Every prefix of every case, in a buffer of exactly that size: under
// AddressSanitizer this shows that no test reads past `length`.
TEST(Vkeyfrm, EveryPrefixStaysInBounds) {
    for (const Case &c : kCases) {
        for (size_t n = 0; n <= c.bytes.size(); ++n) {
            const Bytes prefix(c.bytes.begin(), c.bytes.begin() + n);
            for (int mt = 102; mt <= 122; ++mt) {
                const int32_t r = key(mt, prefix);
                EXPECT_TRUE(r == 0 || r == 1) << mt << " " << c.what << " " << n;
            }
        }
    }
}

// Random short buffers rich in zero bytes and start-code patterns, for
// every type in the range.
TEST(Vkeyfrm, RandomShortBuffersStayInBounds) {
    std::mt19937 rng(12345);
    const uint8_t interesting[] = {0x00, 0x00, 0x00, 0x01, 0x80, 0x84, 0x02, 0x1C, 0x1D, 0x80,
                                   0xB6, 0x65, 0x26, 0x9D, 0x2A, 0xFF, 0x88, 0x41};
    for (int iter = 0; iter < 20000; ++iter) {
        const size_t n = rng() % 13;
        Bytes b(n);
        for (uint8_t &v : b) v = (rng() % 2) ? interesting[rng() % sizeof interesting] : (uint8_t)rng();
        const int mt = 102 + (int)(rng() % 21);
        const int32_t r = key(mt, b);
        ASSERT_TRUE(r == 0 || r == 1);
    }
}

// A key-frame header at the very end of the data, with every trailing byte
// the test needs present, is found; with the last of them missing it is not.
TEST(Vkeyfrm, HeadersEndingAtTheLastByte) {
    const struct {
        int mt;
        Bytes header;
    } tail[] = {
        {104, {0x00, 0x00, 0x01, 0x65}},
        {120, {0x00, 0x00, 0x01, 0x26}},
        {102, {0x00, 0x00, 0x01, 0xB6, 0x00}},
        {103, {0x00, 0x00, 0x80, 0x02, 0x00, 0x00, 0x00}},
        {103, {0x00, 0x00, 0x80, 0x02, 0x1C, 0x80, 0x00, 0x00}},
        {111, {0x00, 0x00, 0x84, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00}},
    };
    for (const auto &t : tail) {
        Bytes b = {0x55, 0x66, 0x77};
        b.insert(b.end(), t.header.begin(), t.header.end());
        EXPECT_EQ(1, key(t.mt, b)) << t.mt << ": " << hex(b);
        b.pop_back();
        EXPECT_EQ(0, key(t.mt, b)) << t.mt << ": " << hex(b);
    }
}

}  // namespace
