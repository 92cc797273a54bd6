#include <gtest/gtest.h>

#include <android/log.h>

#include <tuple>

#include "demux/qmkvd_ebml.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_file.h"

using namespace qmkv_test;

namespace {

using Bytes = std::vector<uint8_t>;

TEST(Clz, CountsLeadingZeroBits) {
    for (int b = 0; b < 256; ++b) EXPECT_EQ(b ? __builtin_clz((unsigned)b) - 24 : 8, qmkvd_get_clz((uint8_t)b)) << b;
}

// An element header through the file reader and the memory reader (with
// exactly the bytes given, so that a read past them shows under ASan).
TEST(IdLen64, FileAndBufferReadersAtTheBoundaries) {
    const struct {
        const char *name;
        Bytes bytes;
        uint32_t id;
        uint64_t size;
        int32_t length;  // bytes of ID and size, or -1 when refused
    } cases[] = {
        {"EBML header", {0x1A, 0x45, 0xDF, 0xA3, 0xA3}, 0x1A45DFA3, 0x23, 5},
        {"1-byte ID and size", {0x81, 0x81}, 0x81, 1, 2},
        {"size FF is 127, not unknown", {0xEC, 0xFF}, 0xEC, 127, 2},
        {"8-byte unknown size", {0xEC, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0xEC, 0x00FFFFFFFFFFFFFFull, 9},
        {"2-byte size", {0xA3, 0x41, 0x23}, 0xA3, 0x0123, 3},
        {"3-byte size", {0xA3, 0x20, 0x00, 0x05}, 0xA3, 5, 4},
        {"largest 4-byte size", {0xA3, 0x1F, 0xFF, 0xFF, 0xFF}, 0xA3, 0x0FFFFFFF, 5},
        {"5-byte size", {0x42, 0x86, 0x08, 0x00, 0x00, 0x00, 0x01}, 0x4286, 1, 7},
        {"6-byte size", {0xA3, 0x04, 0, 0, 0, 1, 0}, 0xA3, 256, 7},
        {"7-byte size", {0xA3, 0x02, 0, 0, 0, 0, 1, 0}, 0xA3, 256, 8},
        {"3-byte ID", {0x2A, 0xD7, 0xB1, 0x83}, 0x2AD7B1, 3, 4},
        {"5-byte ID", {0x08, 0x11, 0x22, 0x33, 0x44, 0x81}, 0, 0, -1},
        {"zero ID byte", {0x00, 0x81}, 0, 0, -1},
        {"zero size byte", {0x81, 0x00}, 0, 0, -1},
        {"empty", {}, 0, 0, -1},
        {"ID alone", {0x81}, 0, 0, -1},
        {"ID cut", {0x1A, 0x45}, 0, 0, -1},
        {"size missing", {0x1A, 0x45, 0xDF, 0xA3}, 0, 0, -1},
        {"size tail missing", {0x81, 0x40}, 0, 0, -1},
    };
    LogCapture log;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        MemoryFile f(c.bytes);
        uint32_t id = 0, buf_id = 0;
        uint64_t size = 0, buf_size = 0;
        f.mem.readCalls = 0;
        EXPECT_EQ(c.length < 0 ? -1 : 0, qmkvd_ebml_get_id_len64(&f.mfal, f.fp, &id, &size));
        EXPECT_LE(f.mem.readCalls, 4) << "one read for each lead byte, one for each tail";
        EXPECT_EQ(c.length, qmkvd_ebml_get_id_len64_buff(c.bytes.data(), (int32_t)c.bytes.size(), &buf_id, &buf_size));
        // A refused header leaves the outputs alone.
        EXPECT_EQ(std::make_tuple(c.id, c.size, c.id, c.size), std::make_tuple(id, size, buf_id, buf_size));
        if (c.length >= 0) {
            EXPECT_EQ(c.length, f.pos());
        }
    }
    EXPECT_TRUE(log.lines().empty()) << "failures are silent";
}

TEST(SizeReaders, AgreeWithinTheirLimits) {
    const struct {
        const char *name;
        Bytes bytes;
        int32_t r64, r32;
        uint64_t size;
        uint32_t length;  // byte length reported by the _rel reader, even when it refuses the size
    } cases[] = {
        {"one", {0x81}, 0, 0, 1, 1},
        {"FF", {0xFF}, 0, 0, 127, 1},
        {"two", {0x40, 0x80}, 0, 0, 0x80, 2},
        {"largest four", {0x1F, 0xFF, 0xFF, 0xFF}, 0, 0, 0x0FFFFFFF, 4},
        {"five", {0x08, 0x00, 0x00, 0x01, 0x00}, 0, -1, 256, 5},
        {"eight", {0x01, 0, 0, 0, 0, 0, 0, 2}, 0, -1, 2, 8},
        {"zero", {0x00}, -1, -1, 0, 0},
        {"empty", {}, -1, -1, 0, 0},
        {"tail missing", {0x40}, -1, -1, 0, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        MemoryFile f64(c.bytes), f32(c.bytes), frel(c.bytes);
        uint64_t s64 = 0;
        uint32_t s32 = 0, srel = 0, len = 0;
        EXPECT_EQ(c.r64, qmkvd_ebml_get_len64(&f64.mfal, f64.fp, &s64));
        EXPECT_EQ(c.r32, qmkvd_ebml_get_len32(&f32.mfal, f32.fp, &s32));
        EXPECT_EQ(c.r32, qmkvd_ebml_get_len32_rel(&frel.mfal, frel.fp, &srel, &len));
        EXPECT_EQ(c.length, len);
        // A refused size leaves the output alone.
        EXPECT_EQ(c.r64 == 0 ? c.size : 0, s64);
        EXPECT_EQ(c.r32 == 0 ? (uint32_t)c.size : 0, s32);
        EXPECT_EQ(c.r32 == 0 ? (uint32_t)c.size : 0, srel);
    }
}

TEST(IdLen32, LimitsSizeToFourBytesAndLogsOnlyTheFirstReadFailure) {
    uint32_t id = 0, size = 0;
    MemoryFile ok({0x1A, 0x45, 0xDF, 0xA3, 0x10, 0x00, 0x00, 0x10});
    EXPECT_EQ(0, qmkvd_ebml_get_id_len32(&ok.mfal, ok.fp, &id, &size));
    EXPECT_EQ(0x1A45DFA3u, id);
    EXPECT_EQ(0x10u, size);
    LogCapture log;
    MemoryFile five({0xA3, 0x08, 0, 0, 0, 1});
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len32(&five.mfal, five.fp, &id, &size));
    EXPECT_TRUE(log.lines().empty());
    MemoryFile empty({});
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len32(&empty.mfal, empty.fp, &id, &size));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ("qmkvd_util", log.lines()[0].tag);
    EXPECT_EQ("get_id_len32 read buf error", log.lines()[0].message);
    EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);
}

TEST(BigEndian, Conversions) {
    const uint8_t five[] = {0x01, 0x02, 0x03, 0x04, 0x05};
    EXPECT_EQ(0x02030405u, qmkvd_b2v_u32(five, 5));
    EXPECT_EQ(0x0102030405ull, qmkvd_b2v_u64(five, 5));
    EXPECT_EQ(0u, qmkvd_b2v_u64(five, 0));
    EXPECT_EQ(0u, qmkvd_b2v_u32(five, -1));
    const uint8_t all[] = {0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8};
    EXPECT_EQ(0xFFFEFDFCFBFAF9F8ull, qmkvd_b2v_u64(all, 8));
    EXPECT_EQ(0xFFu, qmkvd_b2v_u32(all, 1));
}

}  // namespace
