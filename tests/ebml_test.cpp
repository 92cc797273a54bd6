#include <gtest/gtest.h>

#include <android/log.h>

#include "demux/qmkvd_ebml.h"
#include "tests/support/ebml_writer.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_file.h"

using namespace qmkv_test;

namespace {

TEST(Clz, CountsLeadingZeroBits) {
    struct { uint8_t byte; int32_t clz; } cases[] = {
        {0x80, 0}, {0xFF, 0}, {0x40, 1}, {0x7F, 1}, {0x20, 2}, {0x10, 3}, {0x1A, 3},
        {0x08, 4}, {0x0F, 4}, {0x04, 5}, {0x02, 6}, {0x01, 7}, {0x00, 8}};
    for (const auto &c : cases) EXPECT_EQ(c.clz, qmkvd_get_clz(c.byte)) << std::hex << int(c.byte);
    for (int b = 1; b < 256; ++b) EXPECT_EQ(__builtin_clz((unsigned)b) - 24, qmkvd_get_clz((uint8_t)b)) << b;
}

struct IdSizeCase {
    const char *name;
    Bytes bytes;
    int32_t result;
    uint32_t id;
    uint64_t size;
    int64_t pos_after;  // position after a successful read
};

void PrintTo(const IdSizeCase &c, std::ostream *os) { *os << c.name; }

class IdLen64 : public ::testing::TestWithParam<IdSizeCase> {};

TEST_P(IdLen64, ReadsFromFile) {
    const IdSizeCase &c = GetParam();
    MemoryFile f(c.bytes);
    uint32_t id = 0xDEAD;
    uint64_t size = 0xBEEF;
    f.mem.readCalls = 0;
    EXPECT_EQ(c.result, qmkvd_ebml_get_id_len64(&f.mfal, f.fp, &id, &size));
    if (c.result == 0) {
        EXPECT_EQ(c.id, id);
        EXPECT_EQ(c.size, size);
        EXPECT_EQ(c.pos_after, f.pos());
        EXPECT_LE(f.mem.readCalls, 4) << "one read for each lead byte, one for each tail";
    }
}

TEST_P(IdLen64, ReadsFromBuffer) {
    const IdSizeCase &c = GetParam();
    uint32_t id = 0;
    uint64_t size = 0;
    int32_t n = qmkvd_ebml_get_id_len64_buff(c.bytes.data(), (int32_t)c.bytes.size(), &id, &size);
    if (c.result == 0) {
        EXPECT_EQ(c.pos_after, n);
        EXPECT_EQ(c.id, id);
        EXPECT_EQ(c.size, size);
    } else {
        EXPECT_EQ(-1, n);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, IdLen64,
    ::testing::Values(
        IdSizeCase{"ebml_header", {0x1A, 0x45, 0xDF, 0xA3, 0xA3}, 0, 0x1A45DFA3, 0x23, 5},
        IdSizeCase{"one_byte_id_size", {0x81, 0x81}, 0, 0x81, 1, 2},
        IdSizeCase{"size_ff_is_127_not_unknown", {0xEC, 0xFF}, 0, 0xEC, 127, 2},
        IdSizeCase{"size_8_bytes_unknown", {0xEC, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0, 0xEC,
                   0x00FFFFFFFFFFFFFFull, 9},
        IdSizeCase{"size_5_bytes", {0x42, 0x86, 0x08, 0x00, 0x00, 0x00, 0x01}, 0, 0x4286, 1, 7},
        IdSizeCase{"size_2_bytes", {0xA3, 0x41, 0x23}, 0, 0xA3, 0x0123, 3},
        IdSizeCase{"size_3_bytes", {0xA3, 0x20, 0x00, 0x05}, 0, 0xA3, 5, 4},
        IdSizeCase{"size_4_bytes_max", {0xA3, 0x1F, 0xFF, 0xFF, 0xFF}, 0, 0xA3, 0x0FFFFFFF, 5},
        IdSizeCase{"size_6_bytes", {0xA3, 0x04, 0, 0, 0, 1, 0}, 0, 0xA3, 256, 7},
        IdSizeCase{"size_7_bytes", {0xA3, 0x02, 0, 0, 0, 0, 1, 0}, 0, 0xA3, 256, 8},
        IdSizeCase{"three_byte_id", {0x2A, 0xD7, 0xB1, 0x83}, 0, 0x2AD7B1, 3, 4},
        IdSizeCase{"five_byte_id_refused", {0x08, 0x11, 0x22, 0x33, 0x44, 0x81}, -1, 0, 0, 0},
        IdSizeCase{"zero_id_byte", {0x00, 0x81}, -1, 0, 0, 0},
        IdSizeCase{"zero_size_byte", {0x81, 0x00}, -1, 0, 0, 0},
        IdSizeCase{"empty", {}, -1, 0, 0, 0},
        IdSizeCase{"id_cut", {0x1A, 0x45}, -1, 0, 0, 0},
        IdSizeCase{"size_missing", {0x1A, 0x45, 0xDF, 0xA3}, -1, 0, 0, 0}),
    [](const ::testing::TestParamInfo<IdSizeCase> &info) { return std::string(info.param.name); });

TEST(BufferReader, LengthLimits) {
    const uint8_t hdr[] = {0x1A, 0x45, 0xDF, 0xA3, 0x84, 0, 0, 0, 0};
    uint32_t id;
    uint64_t size;
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len64_buff(hdr, 4, &id, &size)) << "size byte outside";
    EXPECT_EQ(5, qmkvd_ebml_get_id_len64_buff(hdr, 5, &id, &size));
    EXPECT_EQ(4u, size);
    const uint8_t one[] = {0x81};
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len64_buff(one, 1, &id, &size));
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len64_buff(one, 0, &id, &size));
    const uint8_t two_size[] = {0x81, 0x40, 0x05};
    EXPECT_EQ(-1, qmkvd_ebml_get_id_len64_buff(two_size, 2, &id, &size)) << "size tail outside";
    EXPECT_EQ(3, qmkvd_ebml_get_id_len64_buff(two_size, 3, &id, &size));
    EXPECT_EQ(5u, size);
}

struct SizeCase {
    const char *name;
    Bytes bytes;
    int32_t r64, r32;
    uint64_t size;
    uint32_t length;  // byte length reported by the _rel reader
};

void PrintTo(const SizeCase &c, std::ostream *os) { *os << c.name; }

class SizeReaders : public ::testing::TestWithParam<SizeCase> {};

TEST_P(SizeReaders, AgreeWithinTheirLimits) {
    const SizeCase &c = GetParam();
    {
        MemoryFile f(c.bytes);
        uint64_t s = 0;
        EXPECT_EQ(c.r64, qmkvd_ebml_get_len64(&f.mfal, f.fp, &s));
        if (c.r64 == 0) {
            EXPECT_EQ(c.size, s);
        }
    }
    {
        MemoryFile f(c.bytes);
        uint32_t s = 0;
        EXPECT_EQ(c.r32, qmkvd_ebml_get_len32(&f.mfal, f.fp, &s));
        if (c.r32 == 0) {
            EXPECT_EQ((uint32_t)c.size, s);
        }
    }
    {
        MemoryFile f(c.bytes);
        uint32_t s = 0, len = 0;
        EXPECT_EQ(c.r32, qmkvd_ebml_get_len32_rel(&f.mfal, f.fp, &s, &len));
        if (c.r32 == 0) {
            EXPECT_EQ((uint32_t)c.size, s);
        }
        EXPECT_EQ(c.length, len) << "length is written even when the size is refused";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, SizeReaders,
    ::testing::Values(SizeCase{"one", {0x81}, 0, 0, 1, 1}, SizeCase{"ff", {0xFF}, 0, 0, 127, 1},
                      SizeCase{"two", {0x40, 0x80}, 0, 0, 0x80, 2},
                      SizeCase{"four_max", {0x1F, 0xFF, 0xFF, 0xFF}, 0, 0, 0x0FFFFFFF, 4},
                      SizeCase{"five", {0x08, 0x00, 0x00, 0x01, 0x00}, 0, -1, 256, 5},
                      SizeCase{"eight", {0x01, 0, 0, 0, 0, 0, 0, 2}, 0, -1, 2, 8},
                      SizeCase{"zero", {0x00}, -1, -1, 0, 0}, SizeCase{"empty", {}, -1, -1, 0, 0},
                      SizeCase{"tail_missing", {0x40}, -1, -1, 0, 2}),
    [](const ::testing::TestParamInfo<SizeCase> &info) { return std::string(info.param.name); });

TEST(IdLen32, LimitsSizeToFourBytesAndLogsOnlyTheFirstReadFailure) {
    {
        MemoryFile f({0x1A, 0x45, 0xDF, 0xA3, 0x10, 0x00, 0x00, 0x10});
        uint32_t id = 0, size = 0;
        EXPECT_EQ(0, qmkvd_ebml_get_id_len32(&f.mfal, f.fp, &id, &size));
        EXPECT_EQ(0x1A45DFA3u, id);
        EXPECT_EQ(0x10u, size);
    }
    {
        MemoryFile f({0xA3, 0x08, 0, 0, 0, 1});
        uint32_t id = 0, size = 0;
        LogCapture log;
        EXPECT_EQ(-1, qmkvd_ebml_get_id_len32(&f.mfal, f.fp, &id, &size));
        EXPECT_TRUE(log.lines().empty());
    }
    {
        MemoryFile f({});
        uint32_t id = 0, size = 0;
        LogCapture log;
        EXPECT_EQ(-1, qmkvd_ebml_get_id_len32(&f.mfal, f.fp, &id, &size));
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ("qmkvd_util", log.lines()[0].tag);
        EXPECT_EQ("get_id_len32 read buf error", log.lines()[0].message);
        EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);
    }
}

TEST(Primitives, OtherFailuresAreSilent) {
    LogCapture log;
    for (Bytes b : {Bytes{}, Bytes{0x00}, Bytes{0x08, 1, 2, 3, 4}, Bytes{0x81}}) {
        MemoryFile f(b);
        uint32_t id;
        uint64_t size;
        EXPECT_EQ(-1, qmkvd_ebml_get_id_len64(&f.mfal, f.fp, &id, &size));
    }
    EXPECT_TRUE(log.lines().empty());
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

TEST(EbmlWriter, RoundTripsThroughTheReaders) {
    for (uint64_t v : {0ull, 1ull, 126ull, 127ull, 16382ull, 16383ull, 0xFFFFFFull, 1ull << 40}) {
        Bytes b = el_header(0x1F43B675, v);
        uint32_t id;
        uint64_t size;
        ASSERT_EQ((int32_t)b.size(), qmkvd_ebml_get_id_len64_buff(b.data(), (int32_t)b.size(), &id, &size));
        EXPECT_EQ(v, size);
        MemoryFile f(b);
        ASSERT_EQ(0, qmkvd_ebml_get_id_len64(&f.mfal, f.fp, &id, &size)) << v;
        EXPECT_EQ(0x1F43B675u, id);
        EXPECT_EQ(v, size);
    }
}

}  // namespace
