#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <vector>

#include "demux/qmkvd_window.h"
#include "tests/support/memory_file.h"

using qmkv_test::MemoryFile;

namespace {

using Bytes = std::vector<uint8_t>;

// Bytes that differ from their neighbours, so a misplaced copy shows.
Bytes counting(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = (uint8_t)(i * 7 + 3);
    return b;
}

struct Fixture {
    explicit Fixture(Bytes bytes, uint32_t cap = 16384) : file(std::move(bytes)), buffer(cap) {
        qmkvd_window_init(&w, buffer.data(), cap);
    }
    const uint8_t *at(int64_t pos, uint32_t want, uint32_t *avail) {
        return qmkvd_window_at(&w, &file.mfal, file.fp, pos, want, avail);
    }
    uint32_t copy(int64_t pos, uint8_t *out, uint32_t n) {
        return qmkvd_window_copy(&w, &file.mfal, file.fp, pos, out, n);
    }
    MemoryFile file;
    Bytes buffer;
    qmkvd_window w;
};

TEST(Window, NearbyBytesComeFromOneReadAndTheEndOfTheFileLimitsWhatIsHeld) {
    const Bytes data = counting(4000);
    Fixture f(data);
    uint32_t avail = 0;
    for (int64_t pos : {100, 101, 150, 300}) {
        const uint8_t *p = f.at(pos, 12, &avail);
        ASSERT_NE(nullptr, p);
        EXPECT_GE(avail, 12u);
        EXPECT_EQ(data[(size_t)pos], p[0]);
    }
    EXPECT_EQ(1, f.file.mem.readCalls);
    const uint8_t *p = f.at(3995, 12, &avail);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(5u, avail);
    EXPECT_EQ(data[3999], p[4]);
    EXPECT_EQ(nullptr, f.at(4000, 1, &avail));
    EXPECT_EQ(0u, avail);
    EXPECT_EQ(nullptr, f.at(-1, 1, &avail));
}

// The window holds [0, 4096) after the warm-up read at 0.
TEST(Window, CopiesAreExactAndCostAtMostOneRead) {
    struct { const char *name; int64_t warm; int64_t pos; uint32_t n; int reads; } cases[] = {
        {"inside the window", 0, 10, 100, 0},
        {"small, beyond the window: one fill", 0, 9000, 100, 1},
        {"crossing the end, small rest: one fill", 0, 4000, 150, 1},
        {"crossing the end, large rest: held part and one direct read", 0, 4000, 3000, 1},
        {"large, beyond the window: one direct read", 0, 9000, 5000, 1},
        {"large into an empty window", -1, 0, 8000, 1}};
    const Bytes data = counting(20000);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Fixture f(data);
        uint32_t avail = 0;
        if (c.warm >= 0) {
            ASSERT_NE(nullptr, f.at(c.warm, 12, &avail));
        }
        f.file.mem.readCalls = 0;
        Bytes out(c.n, 0xEE);
        EXPECT_EQ(c.n, f.copy(c.pos, out.data(), c.n));
        EXPECT_EQ(Bytes(data.begin() + c.pos, data.begin() + c.pos + c.n), out);
        EXPECT_EQ(c.reads, f.file.mem.readCalls);
        EXPECT_EQ(c.pos + c.n, f.file.pos());
    }
    for (uint32_t n : {50u, 5000u}) {
        Fixture cut(Bytes(data.begin(), data.begin() + 1000));
        Bytes out(n);
        EXPECT_EQ(40u, cut.copy(960, out.data(), n)) << "a copy cut by the end of the file says so";
        EXPECT_TRUE(std::equal(data.begin() + 960, data.begin() + 1000, out.begin()));
    }
}

// Reading on from where the window ends, or from less than a window's
// length past it, grows the fills; a jump starts small again.
TEST(Window, FillsGrowWhileReadingOnAndShrinkAfterAJump) {
    Fixture f(counting(500000), 65536);
    std::vector<uint32_t> lengths;
    int64_t pos = 0;
    for (int i = 0; i < 6; ++i) {
        uint32_t avail = 0;
        ASSERT_NE(nullptr, f.at(pos, 1, &avail));
        lengths.push_back(f.w.len);
        pos = f.w.start + f.w.len + (i % 2 ? f.w.len - 1 : 0);
    }
    EXPECT_EQ((std::vector<uint32_t>{4096, 8192, 16384, 32768, 65536, 65536}), lengths);
    uint32_t avail = 0;
    ASSERT_NE(nullptr, f.at(pos + 2 * 65536, 1, &avail));
    EXPECT_EQ(4096u, f.w.len);
}

TEST(Window, CursorReadsEbmlSizes) {
    struct { const char *name; Bytes bytes; int32_t max_bytes; int32_t ret; uint64_t size; uint32_t length; } cases[] = {
        {"1 byte", {0x81}, 4, 0, 1, 1},
        {"2 bytes", {0x40, 0x02}, 4, 0, 2, 2},
        {"4 bytes", {0x10, 0x01, 0x02, 0x03}, 4, 0, 0x010203, 4},
        {"5 bytes past a 4-byte limit", {0x08, 0, 0, 0, 1}, 4, -1, 0, 5},
        {"8 bytes", {0x01, 0, 0, 0, 0, 0, 0, 9}, 8, 0, 9, 8},
        {"zero lead", {0x00, 0x81}, 8, -1, 0, 0},
        {"cut by the end of the file", {0x40}, 4, -1, 0, 2}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Fixture f(c.bytes);
        qmkvd_cursor cur = {&f.w, &f.file.mfal, f.file.fp, 0};
        uint64_t size = 0;
        uint32_t length = 0;
        EXPECT_EQ(c.ret, qmkvd_cursor_size(&cur, c.max_bytes, &size, &length));
        EXPECT_EQ(c.length, length);
        if (c.ret == 0) {
            EXPECT_EQ(c.size, size);
            EXPECT_EQ((int64_t)c.length, cur.pos);
        }
    }
}

// A window smaller than what is parsed refills under the cursor.
TEST(Window, CursorCrossesRefills) {
    const Bytes data = counting(100);
    Fixture f(data, 8);
    qmkvd_cursor cur = {&f.w, &f.file.mfal, f.file.fp, 3};
    for (size_t i = 3; i < data.size(); ++i) {
        uint8_t b = 0;
        ASSERT_TRUE(qmkvd_cursor_byte(&cur, &b)) << i;
        EXPECT_EQ(data[i], b) << i;
    }
    uint8_t b = 0;
    EXPECT_FALSE(qmkvd_cursor_byte(&cur, &b));
    EXPECT_EQ((int64_t)data.size(), cur.pos);
}

}  // namespace
