#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <android/log.h>
#include <media/MediaExtractorPluginHelper.h>

#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_source.h"

using qmkv_test::LogCapture;
using qmkv_test::MemorySource;

namespace {

const char kTag[] = "QMKVExtractorSO";
const std::string kPath = "frameworks/avcodec/mm_proprietary/libextractor/mfal/qcmn_mfal_android_q";

class MfalTest : public ::testing::Test {
protected:
    MfalTest() : mem({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}), helper(mem.source()) {
        EXPECT_EQ(0, qcmn_mfal_init(&mfal, &helper));
        fp = qcmn_mfal_open(&mfal, 0);
    }
    ~MfalTest() override {
        if (fp != nullptr) qcmn_mfal_close(fp);
        qcmn_mfal_deinit(&mfal);
    }
    int64_t pos() {
        int64_t p = -1;
        EXPECT_EQ(0, qcmn_mfal_getpos(fp, &p));
        return p;
    }

    MemorySource mem;
    android::DataSourceHelper helper;
    QCMN_MFAL mfal;
    QCMN_MFAL_FP *fp = nullptr;
};

TEST_F(MfalTest, InitFillsTheNineOperationsInOrder) {
    void *const *words = reinterpret_cast<void *const *>(&mfal);
    const void *ops[] = {(void *)qcmn_mfal_open,   (void *)qcmn_mfal_close,  (void *)qcmn_mfal_read,
                         (void *)qcmn_mfal_write,  (void *)qcmn_mfal_getpos, (void *)qcmn_mfal_setpos,
                         (void *)qcmn_mfal_skip,   (void *)qcmn_mfal_getsize, (void *)qcmn_mfal_ioctl};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(ops[i], words[i]) << "word " << i;
    for (int i : {9, 10, 12, 13, 14}) EXPECT_EQ(nullptr, words[i]) << "word " << i;
    const QCMN_MFAL_ACCESS *access = static_cast<const QCMN_MFAL_ACCESS *>(mfal.user);
    ASSERT_NE(nullptr, access);
    EXPECT_EQ(&helper, access->source);
    for (char c : access->name) ASSERT_EQ(0, c);

    qcmn_mfal_deinit(&mfal);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(nullptr, words[i]) << "word " << i;
    qcmn_mfal_init(&mfal, &helper);  // for the fixture's teardown
}

TEST_F(MfalTest, ReadsAreOnePositionedReadAndAdvance) {
    uint8_t buf[16] = {};
    mem.readCalls = 0;
    EXPECT_EQ(4, qcmn_mfal_read(fp, buf, 4));
    EXPECT_EQ(1, mem.readCalls);
    EXPECT_EQ(4, pos());
    EXPECT_EQ(1, buf[0]);
    EXPECT_EQ(4, buf[3]);
    // Short read at the end: what is there, then 0 with the position unchanged.
    EXPECT_EQ(6, qcmn_mfal_read(fp, buf, 16));
    EXPECT_EQ(10, pos());
    EXPECT_EQ(0, qcmn_mfal_read(fp, buf, 16));
    EXPECT_EQ(10, pos());
    EXPECT_EQ(3, mem.readCalls);  // no retry of the short read
}

TEST_F(MfalTest, HandlesHaveIndependentPositions) {
    QCMN_MFAL_FP *other = qcmn_mfal_open(&mfal, 6);
    ASSERT_NE(nullptr, other);
    uint8_t a, b;
    int64_t p = 7;
    ASSERT_EQ(0, qcmn_mfal_setpos(other, &p));
    ASSERT_EQ(1, qcmn_mfal_read(fp, &a, 1));
    ASSERT_EQ(1, qcmn_mfal_read(other, &b, 1));
    EXPECT_EQ(1, a);
    EXPECT_EQ(8, b);
    EXPECT_EQ(1, pos());
    qcmn_mfal_close(other);
}

TEST_F(MfalTest, FailedSourceReadIsAShortReadOfZero) {
    mem.failReads = true;
    uint8_t buf[4];
    EXPECT_EQ(0, qcmn_mfal_read(fp, buf, 4));
    EXPECT_EQ(0, pos());
}

TEST_F(MfalTest, SetposHasNoBoundAndSkipIsForwardOnly) {
    LogCapture log;
    int64_t far = 1000;
    EXPECT_EQ(0, qcmn_mfal_setpos(fp, &far));
    uint8_t b;
    EXPECT_EQ(0, qcmn_mfal_read(fp, &b, 1));
    EXPECT_EQ(1000, pos());

    struct { int64_t distance; int32_t result; int64_t pos; } cases[] = {
        {0, -1, 1000}, {-5, -1, 1000}, {1, 0, 1001}, {24, 0, 1025}};
    for (const auto &c : cases) {
        EXPECT_EQ(c.result, qcmn_mfal_skip(fp, &c.distance)) << c.distance;
        EXPECT_EQ(c.pos, pos()) << c.distance;
    }
    EXPECT_TRUE(log.lines().empty()) << "a refused skip is silent";
}

TEST_F(MfalTest, GetsizeReportsTheSourceOrZero) {
    int64_t size = -1;
    EXPECT_EQ(0, qcmn_mfal_getsize(fp, &size));
    EXPECT_EQ(10, size);
    mem.unknownSize = true;
    size = -1;
    EXPECT_EQ(0, qcmn_mfal_getsize(fp, &size));
    EXPECT_EQ(0, size);
}

TEST_F(MfalTest, WriteAndIoctl) {
    uint8_t b = 0;
    int arg = 7;
    EXPECT_EQ(0, qcmn_mfal_write(fp, &b, 1));
    EXPECT_EQ(0, qcmn_mfal_ioctl(fp, 1, &arg));
    EXPECT_EQ(7, arg);
    LogCapture log;
    EXPECT_EQ(-1, qcmn_mfal_ioctl(fp, 2, &arg));
    EXPECT_EQ(-1, qcmn_mfal_ioctl(fp, 0, &arg));
    EXPECT_TRUE(log.lines().empty()) << "an unknown code is refused silently";
}

TEST_F(MfalTest, ReadOfNothingNeedsNoArguments) {
    LogCapture log;
    EXPECT_EQ(0, qcmn_mfal_read(nullptr, nullptr, 0));
    EXPECT_EQ(0, qcmn_mfal_read(nullptr, nullptr, -3));
    EXPECT_TRUE(log.lines().empty());
}

// Every argument check: which call, its result, and the one log line.
TEST_F(MfalTest, ArgumentChecksLogTheirAssertLine) {
    uint8_t buf[4];
    int64_t v = 0;
    struct Case {
        const char *name;
        std::function<int32_t()> call;
        int32_t result;
        const char *word;
        int line;
    } cases[] = {
        {"open", [] { return qcmn_mfal_open(nullptr, 0) == nullptr ? -1 : 0; }, -1, "mfal", 102},
        {"close", [] { qcmn_mfal_close(nullptr); return -1; }, -1, "fp", 134},
        {"read buf", [&] { return qcmn_mfal_read(nullptr, nullptr, 4); }, -1, "buf", 151},
        {"read fp", [&] { return qcmn_mfal_read(nullptr, buf, 4); }, -1, "fp", 152},
        {"write", [&] { return qcmn_mfal_write(nullptr, buf, 4); }, -1, "fp", 165},
        {"getpos p", [&] { return qcmn_mfal_getpos(nullptr, nullptr); }, -1, "p", 174},
        {"getpos fp", [&] { return qcmn_mfal_getpos(nullptr, &v); }, -1, "fp", 175},
        {"setpos p", [&] { return qcmn_mfal_setpos(nullptr, nullptr); }, -1, "p", 188},
        {"setpos fp", [&] { return qcmn_mfal_setpos(nullptr, &v); }, -1, "fp", 189},
        {"skip p", [&] { return qcmn_mfal_skip(nullptr, nullptr); }, -1, "fsize", 203},
        {"skip fp", [&] { return qcmn_mfal_skip(nullptr, &v); }, -1, "fp", 204},
        {"getsize p", [&] { return qcmn_mfal_getsize(nullptr, nullptr); }, -1, "fsize", 224},
        {"getsize fp", [&] { return qcmn_mfal_getsize(nullptr, &v); }, -1, "fp", 225},
        {"ioctl fp", [&] { return qcmn_mfal_ioctl(nullptr, 1, nullptr); }, -1, "fp", 239},
        {"ioctl arg", [&] { return qcmn_mfal_ioctl(fp, 1, nullptr); }, -1, "arg", 240},
    };
    for (const Case &c : cases) {
        LogCapture log;
        EXPECT_EQ(c.result, c.call()) << c.name;
        ASSERT_EQ(1u, log.lines().size()) << c.name;
        const std::string expected =
            "[" + kPath + ":" + std::to_string(c.line) + "] assert failed! (" + c.word + ")\n";
        EXPECT_EQ(expected, log.lines()[0].message) << c.name;
        EXPECT_EQ(kTag, log.lines()[0].tag) << c.name;
        EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority) << c.name;
    }
    EXPECT_EQ(0, pos()) << "failed calls change no state";
}

TEST(MfalOpen, WithoutSourceIsNotSupported) {
    QCMN_MFAL mfal;
    ASSERT_EQ(0, qcmn_mfal_init(&mfal, nullptr));
    LogCapture log;
    EXPECT_EQ(nullptr, qcmn_mfal_open(&mfal, 0));
    EXPECT_TRUE(log.has(kTag, "not supported"));
    qcmn_mfal_deinit(&mfal);

    QCMN_MFAL empty = {};
    EXPECT_EQ(nullptr, qcmn_mfal_open(&empty, 0)) << "no access block at all";
}

}  // namespace
