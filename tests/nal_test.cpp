#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "demux/qmkvd_nal.h"
#include "tests/support/memory_file.h"
#include "tests/support/mkv_builder.h"

using qmkv_test::MemoryFile;
using qmkv_test::startCoded;

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
const Bytes kDocExpected = startCoded({{0xAA, 0xBB, 0xCC}, {0xDD}});
const Bytes kTwoUnits = startCoded({{0xAA, 0xBB}, {0xCC}});

const std::vector<Case> kCases = {
    {"2-byte lengths", 2, false, {}, kDocExample, false, kDocExpected},
    {"1-byte lengths", 1, false, {}, {0x02, 0xAA, 0xBB, 0x01, 0xCC}, false, kTwoUnits},
    {"3-byte lengths", 3, false, {}, {0x00, 0x00, 0x02, 0xAA, 0xBB, 0x00, 0x00, 0x01, 0xCC}, false, kTwoUnits},
    {"4-byte lengths", 4, false, {}, {0x00, 0x00, 0x00, 0x02, 0xAA, 0xBB, 0x00, 0x00, 0x00, 0x01, 0xCC}, false,
     kTwoUnits},
    {"3-byte length above 0xFFFF", 3, false, {}, {0x01, 0x00, 0x00, 0xAA}, false, startCoded({{0xAA}})},
    {"length past the frame is cut", 2, false, {}, {0x00, 0x09, 0xAA, 0xBB}, false, startCoded({{0xAA, 0xBB}})},
    {"second length past the frame is cut", 2, false, {}, {0x00, 0x01, 0xAA, 0x00, 0x05, 0xBB}, false,
     startCoded({{0xAA}, {0xBB}})},
    {"length with the top bit set is unsigned", 4, false, {}, {0x80, 0x00, 0x00, 0x00, 0xAA}, false, startCoded({{0xAA}})},
    {"zero-length unit", 2, false, {}, {0x00, 0x00, 0x00, 0x01, 0xAA}, false, startCoded({{}, {0xAA}})},
    {"only a length field", 2, false, {}, {0x00, 0x02}, true, {}},
    {"frame shorter than a length field", 4, false, {}, {0x00, 0x00}, true, {}},
    {"4-byte length past the frame is cut", 4, false, {}, {0x00, 0x00, 0x01, 0x00, 0xAA, 0xBB}, false,
     startCoded({{0xAA, 0xBB}})},
    {"4-byte zero-length unit", 4, false, {}, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0xAA}, false,
     startCoded({{}, {0xAA}})},
    {"bare 4-byte length field at the end", 4, false, {}, {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00, 0x00, 0x01},
     true, {}},
    {"4-byte length field and 2 more bytes at the end", 4, false, {}, {0x00, 0x00, 0x00, 0x01, 0xAA, 0x00, 0x00},
     true, {}},
    {"length size 0", 0, false, {}, {0x00, 0x01, 0xAA}, true, {}},
    {"length size 5", 5, false, {}, {0x00, 0x00, 0x00, 0x00, 0x01, 0xAA}, true, {}},
    // Header stripping
    {"1-byte prefix 00, 4-byte lengths", 4, true, {0x00},
     {0x00, 0x00, 0x03, 0xAA, 0xBB, 0xCC, 0x00, 0x00, 0x00, 0x01, 0xDD}, false, kDocExpected},
    {"2-byte prefix, 4-byte lengths", 4, true, {0x00, 0x00}, {0x00, 0x02, 0xAA, 0xBB}, false, startCoded({{0xAA, 0xBB}})},
    {"3-byte prefix, 4-byte lengths", 4, true, {0x00, 0x00, 0x00}, {0x01, 0xAA, 0x00, 0x00, 0x00, 0x01, 0xBB}, false,
     startCoded({{0xAA}, {0xBB}})},
    {"prefix carrying length bits", 2, true, {0x01}, {0x00, 0xAA, 0xAA}, false, startCoded({{0xAA, 0xAA}})},
    {"no prefix is the plain rewrite", 2, true, {}, kDocExample, false, kDocExpected},
    {"prefix, bare length field", 2, true, {0x00}, {0x01}, true, {}},
    {"prefix as long as the length field", 4, true, {0x00, 0x00, 0x00, 0x01}, {0xAA, 0xBB}, true, {}},
    {"prefix longer than the length field", 2, true, {0x00, 0x00, 0x01}, {0xAA, 0xBB}, true, {}},
};

// The result, the size and the file position after a call.
using Rsp = std::tuple<int32_t, uint32_t, int64_t>;

struct Outcome {
    Rsp rsp() const { return Rsp(ret, size, pos); }
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

int64_t frame_start() { return (int64_t)kLead.size(); }
int64_t frame_end(const Case &c) { return (int64_t)(kLead.size() + c.frame.size()); }

TEST(Nal, WellFormedFramesWriteAndMeasureAlike) {
    for (const Case &c : kCases) {
        if (c.malformed) continue;
        const uint32_t size = (uint32_t)c.expected.size();
        for (bool trail : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (trail ? "" : ", frame at the file's end"));
            // Measuring, unbounded and bounded: the size, and the position back on the frame.
            for (int32_t cap : {0, -1, (int32_t)size, (int32_t)size + 10})
                EXPECT_EQ(Rsp(0, size, frame_start()), call(c, cap, -1, trail).rsp()) << cap;
            // Writing into a buffer of exactly the size, bounded or trusting the
            // caller; a larger bound changes nothing.
            for (int32_t cap : {0, -7, (int32_t)size, (int32_t)size + 100}) {
                const Outcome w = call(c, cap, std::max<long>(cap, size), trail);
                EXPECT_EQ(Rsp(0, size, frame_end(c)), w.rsp()) << cap;
                EXPECT_EQ(c.expected, w.out) << cap;
            }
            // Any smaller bound: -8 and the file after the frame. The destination
            // is exactly `cap` bytes, so AddressSanitizer shows that nothing is
            // written past the bound.
            for (int32_t cap = 1; cap < (int32_t)size; ++cap) {
                EXPECT_EQ(Rsp(-8, 0, frame_end(c)), call(c, cap, cap, trail).rsp()) << cap;
                EXPECT_EQ(Rsp(-8, 0, frame_end(c)), call(c, cap, -1, trail).rsp()) << cap;
            }
        }
    }
}

// A frame already in memory is rewritten in place to what the streaming
// rewriter delivers: the same bytes, or an empty frame when malformed.
TEST(Nal, InPlaceRewriteMatchesTheStreamingOne) {
    for (const Case &c : kCases) {
        if (c.nal_length_size != 4 || c.stripped) continue;
        SCOPED_TRACE(c.name);
        const Outcome streamed = call(c, (int32_t)c.frame.size(), (long)c.frame.size());
        Bytes frame = c.frame;
        const uint32_t size = qmkvd_nal_rewrite_in_place(frame.data(), (uint32_t)frame.size());
        EXPECT_EQ(streamed.size, size);
        EXPECT_EQ(c.malformed ? 0u : (uint32_t)c.expected.size(), size);
        if (!c.malformed) {
            EXPECT_EQ(c.expected, frame);
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
                    EXPECT_EQ(Rsp(0, 0, frame_end(c)), call(c, cap, buf, trail).rsp()) << buf << " " << cap;
                }
            }
        }
    }
}

// Calls that read nothing or find the frame unusable: an empty frame, and the
// file where a successful write would leave it.
TEST(Nal, EmptyInputFileEndAndNullPrefix) {
    for (int32_t in_size : {0, -3}) {
        for (long buf : {-1L, 8L}) {
            const Outcome r = call(kCases[0], 0, buf, true, in_size);
            EXPECT_EQ(Rsp(0, 0, frame_start()), r.rsp()) << in_size;
            EXPECT_EQ(0, r.reads) << in_size;
        }
    }
    // The frame claims 10 bytes, the file ends after 4: the payload read comes up short.
    const Case cut = {"file ends inside", 2, false, {}, {0x00, 0x05, 0xAA, 0xBB}, false, {}};
    EXPECT_EQ(Rsp(0, 0, frame_start() + 10), call(cut, 0, 64, false, 10).rsp());
    // A prefix size with a null prefix.
    const Case null_prefix = {"null prefix", 4, true, {0x00}, {0x00, 0x00, 0x01, 0xAA}, false, {}};
    for (long buf : {-1L, 32L})
        EXPECT_EQ(Rsp(0, 0, frame_end(null_prefix)), call(null_prefix, 0, buf, true, kFrameSize, nullptr, true).rsp());
}

// One read per length field and one per payload, however long; measuring
// reads only the length fields.
TEST(Nal, ReadsPerUnitNotPerByte) {
    Bytes frame = {0x00, 0x00, 0x13, 0x88};  // 5000-byte unit
    for (int i = 0; i < 5000; ++i) frame.push_back((uint8_t)(i * 7));
    frame.insert(frame.end(), {0x00, 0x00, 0x00, 0x02, 0x41, 0x9A});
    const Case big = {"big unit", 4, false, {}, frame, false,
                      startCoded({Bytes(frame.begin() + 4, frame.begin() + 5004), {0x41, 0x9A}})};
    // Header stripping (the first such case): the rest of the first length field is one read.
    const Case &stripped = *std::find_if(kCases.begin(), kCases.end(), [](const Case &c) { return c.stripped; });
    for (const Case &c : {kCases[0], big, stripped}) {
        const Outcome w = call(c, 0, (long)c.expected.size());
        EXPECT_EQ(c.expected, w.out) << c.name;
        EXPECT_EQ(4, w.reads) << c.name;
        const Outcome m = call(c, 0, -1);
        EXPECT_EQ(c.expected.size(), m.size) << c.name;
        EXPECT_EQ(2, m.reads) << c.name;
    }
}

TEST(Nal, PositionFailuresGiveMinus1) {
    MemoryFile f(kDocExample);
    QCMN_MFAL no_getpos = f.mfal, no_setpos = f.mfal;
    no_getpos.getpos = [](QCMN_MFAL_FP *, int64_t *) -> int32_t { return -1; };
    no_setpos.setpos = [](QCMN_MFAL_FP *, const int64_t *) -> int32_t { return -1; };
    uint32_t size = kUnset;
    EXPECT_EQ(-1, modify_nal_header3(&f.mfal, nullptr, nullptr, 8, 0, 2, &size, 0, nullptr));
    EXPECT_EQ(0u, size);
    for (QCMN_MFAL *m : {(QCMN_MFAL *)nullptr, &no_getpos}) {
        size = kUnset;
        EXPECT_EQ(-1, modify_nal_header2(m, f.fp, nullptr, 8, 0, 2, &size));
        EXPECT_EQ(0u, size);
        EXPECT_EQ(0, f.pos());
    }
    // Measuring cannot put the file back.
    EXPECT_EQ(-1, modify_nal_header2(&no_setpos, f.fp, nullptr, 8, 0, 2, &size));
}

}  // namespace
