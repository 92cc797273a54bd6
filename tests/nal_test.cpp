#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "demux/qmkvd_nal.h"
#include "tests/support/memory_file.h"

using qmkv_test::MemoryFile;

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kLead = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};  // bytes before the frame
const Bytes kTrail = {0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7};
const uint32_t kUnset = 0xDEADBEEF;
const int64_t kFrameSize = INT64_MIN;  // pass the frame's own size

struct Case {
    const char *name;
    uint32_t nal_length_size;
    bool stripped;  // through modify_nal_header3 with `prefix`
    Bytes prefix;
    Bytes frame;
    bool malformed;
    Bytes expected;  // when not malformed
};

const Bytes kDocExample = {0x00, 0x03, 0xAA, 0xBB, 0xCC, 0x00, 0x01, 0xDD};
const Bytes kDocExpected = {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB, 0xCC, 0x00, 0x00, 0x00, 0x01, 0xDD};

const std::vector<Case> kCases = {
    {"2-byte lengths", 2, false, {}, kDocExample, false, kDocExpected},
    {"1-byte lengths", 1, false, {}, {0x02, 0xAA, 0xBB, 0x01, 0xCC}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}},
    {"3-byte lengths", 3, false, {}, {0x00, 0x00, 0x02, 0xAA, 0xBB, 0x00, 0x00, 0x01, 0xCC}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}},
    {"4-byte lengths", 4, false, {}, {0x00, 0x00, 0x00, 0x02, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}},
    {"3-byte length above 0xFFFF", 3, false, {}, {0x01, 0x00, 0x00, 0xAA}, false, {0x00, 0x00, 0x00, 0x01, 0xAA}},
    {"a single unit", 4, false, {}, {0x00, 0x00, 0x00, 0x03, 0x65, 0x88, 0x84}, false,
     {0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84}},
    {"length past the frame is cut", 2, false, {}, {0x00, 0x09, 0xAA, 0xBB}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB}},
    {"second length past the frame is cut", 2, false, {}, {0x00, 0x01, 0xAA, 0x00, 0x05, 0xBB}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00, 0x00, 0x01, 0xBB}},
    {"length with the top bit set is unsigned", 4, false, {}, {0x80, 0x00, 0x00, 0x00, 0xAA}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA}},
    {"zero-length unit", 2, false, {}, {0x00, 0x00, 0x00, 0x01, 0xAA}, false,
     {0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0xAA}},
    {"bare length field at the end", 2, false, {}, {0x00, 0x01, 0xAA, 0x00, 0x05}, true, {}},
    {"only a length field", 2, false, {}, {0x00, 0x02}, true, {}},
    {"frame shorter than a length field", 4, false, {}, {0x00, 0x00}, true, {}},
    {"4-byte length past the frame is cut", 4, false, {}, {0x00, 0x00, 0x01, 0x00, 0xAA, 0xBB}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB}},
    {"4-byte zero-length unit", 4, false, {}, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0xAA}, false,
     {0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0xAA}},
    {"bare 4-byte length field at the end", 4, false, {}, {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00, 0x00, 0x01},
     true, {}},
    {"4-byte length field and 2 more bytes at the end", 4, false, {},
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00}, true, {}},
    {"length size 0", 0, false, {}, {0x00, 0x01, 0xAA}, true, {}},
    {"length size 5", 5, false, {}, {0x00, 0x00, 0x00, 0x00, 0x01, 0xAA}, true, {}},
    // Header stripping
    {"1-byte prefix 00, 4-byte lengths", 4, true, {0x00},
     {0x00, 0x00, 0x03, 0xAA, 0xBB, 0xCC, 0x00, 0x00, 0x00, 0x01, 0xDD}, false, kDocExpected},
    {"2-byte prefix, 4-byte lengths", 4, true, {0x00, 0x00}, {0x00, 0x02, 0xAA, 0xBB}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB}},
    {"3-byte prefix, 4-byte lengths", 4, true, {0x00, 0x00, 0x00}, {0x01, 0xAA, 0x00, 0x00, 0x00, 0x01, 0xBB},
     false, {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00, 0x00, 0x01, 0xBB}},
    {"prefix carrying length bits", 2, true, {0x01}, {0x00, 0xAA, 0xAA}, false, {0x00, 0x00, 0x00, 0x01, 0xAA, 0xAA}},
    {"1-byte prefix, 2-byte lengths", 2, true, {0x00}, {0x02, 0xAA, 0xBB, 0x00, 0x01, 0xCC}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}},
    {"prefix, first length past the frame", 2, true, {0x00}, {0x09, 0xAA, 0xBB}, false,
     {0x00, 0x00, 0x00, 0x01, 0xAA, 0xBB}},
    {"no prefix is the plain rewrite", 2, true, {}, kDocExample, false, kDocExpected},
    {"prefix, bare length field", 2, true, {0x00}, {0x01}, true, {}},
    {"prefix as long as the length field", 4, true, {0x00, 0x00, 0x00, 0x01}, {0xAA, 0xBB}, true, {}},
    {"prefix longer than the length field", 2, true, {0x00, 0x00, 0x01}, {0xAA, 0xBB}, true, {}},
};

struct Outcome {
    int32_t ret = 0;
    uint32_t size = kUnset;
    Bytes out;
    int64_t pos = -1;
    int reads = 0;
};

// One call over a file holding `lead`, the frame and (optionally) trailing
// bytes, positioned on the frame. `buf_size` < 0 measures (null `out`);
// otherwise the destination is a heap block of exactly `buf_size` bytes.
Outcome call(const Case &c, int32_t out_cap, long buf_size, bool trail = true, int64_t in_size = kFrameSize,
         const uint8_t *prefix_override = nullptr, bool override_prefix = false) {
    Bytes file = kLead;
    file.insert(file.end(), c.frame.begin(), c.frame.end());
    if (trail) file.insert(file.end(), kTrail.begin(), kTrail.end());
    MemoryFile f(file);
    int64_t start = (int64_t)kLead.size();
    EXPECT_EQ(0, f.mfal.setpos(f.fp, &start));

    uint8_t *out = buf_size < 0 ? nullptr : static_cast<uint8_t *>(malloc((size_t)buf_size));
    if (out != nullptr) memset(out, 0x77, (size_t)buf_size);
    Outcome r;
    f.mem.readCalls = 0;
    const int32_t n = in_size == kFrameSize ? (int32_t)c.frame.size() : (int32_t)in_size;
    if (c.stripped) {
        const uint8_t *p = override_prefix ? prefix_override : (c.prefix.empty() ? nullptr : c.prefix.data());
        r.ret = modify_nal_header3(&f.mfal, f.fp, out, n, out_cap, c.nal_length_size, &r.size,
                                   (uint32_t)c.prefix.size(), p);
    } else {
        r.ret = modify_nal_header2(&f.mfal, f.fp, out, n, out_cap, c.nal_length_size, &r.size);
    }
    r.reads = f.mem.readCalls;
    r.pos = f.pos();
    if (out != nullptr && r.ret == 0 && r.size <= (uint32_t)buf_size) r.out.assign(out, out + r.size);
    free(out);
    return r;
}

const Case &find_case(const char *name) {
    for (const Case &c : kCases)
        if (strcmp(c.name, name) == 0) return c;
    ADD_FAILURE() << "no case " << name;
    return find_case("2-byte lengths");
}

int64_t frame_start() { return (int64_t)kLead.size(); }
int64_t frame_end(const Case &c) { return (int64_t)(kLead.size() + c.frame.size()); }

TEST(Nal, WellFormedFramesWriteAndMeasureAlike) {
    for (const Case &c : kCases) {
        if (c.malformed) continue;
        const int32_t size = (int32_t)c.expected.size();
        for (bool trail : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (trail ? "" : ", frame at the file's end"));
            // Measuring, unbounded and bounded: the size, and the position back on the frame.
            for (int32_t cap : {0, -1, size, size + 10}) {
                const Outcome m = call(c, cap, -1, trail);
                EXPECT_EQ(0, m.ret) << cap;
                EXPECT_EQ((uint32_t)size, m.size) << cap;
                EXPECT_EQ(frame_start(), m.pos) << cap;
            }
            // Writing into a buffer of exactly the size, bounded or trusting the caller.
            for (int32_t cap : {0, -7, size}) {
                const Outcome w = call(c, cap, size, trail);
                EXPECT_EQ(0, w.ret) << cap;
                EXPECT_EQ((uint32_t)size, w.size) << cap;
                EXPECT_EQ(c.expected, w.out) << cap;
                EXPECT_EQ(frame_end(c), w.pos) << cap;
            }
            // A larger bound changes nothing.
            const Outcome big = call(c, size + 100, size + 100, trail);
            EXPECT_EQ(0, big.ret);
            EXPECT_EQ(c.expected, big.out);
            EXPECT_EQ(frame_end(c), big.pos);
        }
    }
}

// A frame already in memory is rewritten in place to what the streaming
// rewriter delivers: the same bytes, or an empty frame when malformed.
TEST(Nal, InPlaceRewriteMatchesTheStreamingOne) {
    int checked = 0;
    for (const Case &c : kCases) {
        if (c.nal_length_size != 4 || c.stripped) continue;
        SCOPED_TRACE(c.name);
        const Outcome streamed = call(c, (int32_t)c.frame.size(), (long)c.frame.size());
        Bytes frame = c.frame;
        const uint32_t size = qmkvd_nal_rewrite_in_place(frame.data(), (uint32_t)frame.size());
        EXPECT_EQ(streamed.size, size);
        EXPECT_EQ(c.malformed ? 0u : (uint32_t)c.expected.size(), size);
        EXPECT_EQ(size, qmkvd_nal_measure_in_place(c.frame.data(), (uint32_t)c.frame.size()));
        if (!c.malformed) {
            EXPECT_EQ(c.expected, frame);
        }
        ++checked;
    }
    EXPECT_GE(checked, 7);
}

TEST(Nal, OneByteTooSmallGivesMinus8AfterTheFrame) {
    for (const Case &c : kCases) {
        if (c.malformed) continue;
        SCOPED_TRACE(c.name);
        const int32_t size = (int32_t)c.expected.size();
        for (int32_t cap = 1; cap < size; ++cap) {
            // The destination is exactly `cap` bytes: AddressSanitizer shows
            // that nothing is written past the bound.
            const Outcome w = call(c, cap, cap);
            EXPECT_EQ(-8, w.ret) << cap;
            EXPECT_EQ(0u, w.size) << cap;
            EXPECT_EQ(frame_end(c), w.pos) << cap;
            const Outcome m = call(c, cap, -1);
            EXPECT_EQ(-8, m.ret) << cap;
            EXPECT_EQ(0u, m.size) << cap;
            EXPECT_EQ(frame_end(c), m.pos) << cap;
        }
    }
}

TEST(Nal, MalformedFramesAreEmptyAndSkipped) {
    for (const Case &c : kCases) {
        if (!c.malformed) continue;
        for (bool trail : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (trail ? "" : ", frame at the file's end"));
            const long room = 4 * (long)c.frame.size() + 16;
            for (long buf : {-1L, room}) {
                for (int32_t cap : {0, (int32_t)room}) {
                    const Outcome r = call(c, cap, buf, trail);
                    EXPECT_EQ(0, r.ret) << buf << " " << cap;
                    EXPECT_EQ(0u, r.size) << buf << " " << cap;
                    EXPECT_EQ(frame_end(c), r.pos) << buf << " " << cap;
                }
            }
        }
    }
}

TEST(Nal, TwoByteLengthExample) {
    const Outcome w = call(find_case("2-byte lengths"), 12, 12);
    EXPECT_EQ(0, w.ret);
    EXPECT_EQ(12u, w.size);
    EXPECT_EQ(kDocExpected, w.out);
    const Outcome small = call(find_case("2-byte lengths"), 11, 11);
    EXPECT_EQ(-8, small.ret);
    EXPECT_EQ(0u, small.size);
    EXPECT_EQ(frame_end(find_case("2-byte lengths")), small.pos);
}

TEST(Nal, EmptyOrNegativeInputSize) {
    for (int32_t in_size : {0, -3}) {
        for (long buf : {-1L, 8L}) {
            const Outcome r = call(find_case("2-byte lengths"), 0, buf, true, in_size);
            EXPECT_EQ(0, r.ret) << in_size;
            EXPECT_EQ(0u, r.size) << in_size;
            EXPECT_EQ(frame_start(), r.pos) << in_size;
            EXPECT_EQ(0, r.reads) << in_size;
        }
    }
}

// A frame that the file ends inside: the payload read comes up short.
TEST(Nal, FileEndingInsideTheFrameIsMalformed) {
    const Case c = {"truncated", 2, false, {}, {0x00, 0x05, 0xAA, 0xBB}, false, {}};
    const Outcome r = call(c, 0, 64, false, 10);  // the frame claims 10 bytes, the file has 4
    EXPECT_EQ(0, r.ret);
    EXPECT_EQ(0u, r.size);
    EXPECT_EQ(frame_start() + 10, r.pos);
}

TEST(Nal, NullPrefixWithASizeIsMalformed) {
    Case c = {"null prefix", 4, true, {0x00}, {0x00, 0x00, 0x01, 0xAA}, false, {}};
    for (long buf : {-1L, 32L}) {
        const Outcome r = call(c, 0, buf, true, kFrameSize, nullptr, true);
        EXPECT_EQ(0, r.ret);
        EXPECT_EQ(0u, r.size);
        EXPECT_EQ(frame_end(c), r.pos);
    }
}

// One read per length field and one per payload; measuring reads only the
// length fields.
TEST(Nal, ReadsPerUnitNotPerByte) {
    const Outcome w = call(find_case("2-byte lengths"), 0, 12);
    EXPECT_EQ(4, w.reads);
    const Outcome m = call(find_case("2-byte lengths"), 0, -1);
    EXPECT_EQ(2, m.reads);

    Bytes frame = {0x00, 0x00, 0x13, 0x88};  // 5000-byte unit
    for (int i = 0; i < 5000; ++i) frame.push_back((uint8_t)(i * 7));
    frame.insert(frame.end(), {0x00, 0x00, 0x00, 0x02, 0x41, 0x9A});
    Bytes expected = {0x00, 0x00, 0x00, 0x01};
    expected.insert(expected.end(), frame.begin() + 4, frame.begin() + 5004);
    expected.insert(expected.end(), {0x00, 0x00, 0x00, 0x01, 0x41, 0x9A});
    const Case big = {"big unit", 4, false, {}, frame, false, expected};
    const Outcome bw = call(big, (int32_t)expected.size(), (long)expected.size());
    EXPECT_EQ(0, bw.ret);
    EXPECT_EQ(expected, bw.out);
    EXPECT_EQ(4, bw.reads);
    const Outcome bm = call(big, 0, -1);
    EXPECT_EQ(expected.size(), bm.size);
    EXPECT_EQ(2, bm.reads);

    // Header stripping: the rest of the first length field is one read.
    const Outcome sw = call(find_case("1-byte prefix 00, 4-byte lengths"), 0, 12);
    EXPECT_EQ(kDocExpected, sw.out);
    EXPECT_EQ(4, sw.reads);
    const Outcome sm = call(find_case("1-byte prefix 00, 4-byte lengths"), 0, -1);
    EXPECT_EQ(12u, sm.size);
    EXPECT_EQ(2, sm.reads);
}

// Measuring then writing, as the frame reader does: the second call finds
// the file where the first one started.
TEST(Nal, MeasureThenWrite) {
    Bytes file = kLead;
    file.insert(file.end(), kDocExample.begin(), kDocExample.end());
    file.insert(file.end(), kDocExample.begin(), kDocExample.end());
    MemoryFile f(file);
    int64_t start = (int64_t)kLead.size();
    f.mfal.setpos(f.fp, &start);
    for (int frame = 0; frame < 2; ++frame) {
        uint32_t size = kUnset;
        ASSERT_EQ(0, modify_nal_header2(&f.mfal, f.fp, nullptr, 8, 0, 2, &size));
        ASSERT_EQ(12u, size);
        std::vector<uint8_t> out(size);
        uint32_t written = kUnset;
        ASSERT_EQ(0, modify_nal_header2(&f.mfal, f.fp, out.data(), 8, (int32_t)size, 2, &written));
        EXPECT_EQ(size, written);
        EXPECT_EQ(kDocExpected, out);
        EXPECT_EQ(start + 8 * (frame + 1), f.pos());
    }
}

TEST(Nal, PositionFailuresGiveMinus1) {
    MemoryFile f(kDocExample);
    uint32_t size = kUnset;
    EXPECT_EQ(-1, modify_nal_header2(nullptr, f.fp, nullptr, 8, 0, 2, &size));
    EXPECT_EQ(0u, size);
    size = kUnset;
    EXPECT_EQ(-1, modify_nal_header3(&f.mfal, nullptr, nullptr, 8, 0, 2, &size, 0, nullptr));
    EXPECT_EQ(0u, size);

    QCMN_MFAL no_getpos = f.mfal;
    no_getpos.getpos = [](QCMN_MFAL_FP *, int64_t *) -> int32_t { return -1; };
    size = kUnset;
    EXPECT_EQ(-1, modify_nal_header2(&no_getpos, f.fp, nullptr, 8, 0, 2, &size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(0, f.pos());

    // Measuring cannot put the file back.
    QCMN_MFAL no_setpos = f.mfal;
    no_setpos.setpos = [](QCMN_MFAL_FP *, const int64_t *) -> int32_t { return -1; };
    EXPECT_EQ(-1, modify_nal_header2(&no_setpos, f.fp, nullptr, 8, 0, 2, &size));
}

}  // namespace
