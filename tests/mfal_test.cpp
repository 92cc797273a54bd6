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

    qcmn_mfal_deinit(&mfal);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(nullptr, words[i]) << "word " << i;
}

TEST_F(MfalTest, ReadsAreOnePositionedReadAndAdvanceSetposHasNoBoundAndSkipGoesForward) {
    uint8_t buf[16] = {};
    EXPECT_EQ(4, qcmn_mfal_read(fp, buf, 4));
    EXPECT_EQ(1, mem.readCalls);
    EXPECT_EQ(4, pos());
    EXPECT_EQ("\1\2\3\4", std::string(reinterpret_cast<char *>(buf), 4));
    // Short read at the end: what is there, then 0 with the position unchanged.
    EXPECT_EQ(6, qcmn_mfal_read(fp, buf, 16));
    EXPECT_EQ(10, pos());
    EXPECT_EQ(0, qcmn_mfal_read(fp, buf, 16));
    EXPECT_EQ(10, pos());
    EXPECT_EQ(3, mem.readCalls);  // no retry of the short read

    int64_t far = 1000;
    EXPECT_EQ(0, qcmn_mfal_setpos(fp, &far));
    EXPECT_EQ(0, qcmn_mfal_read(fp, buf, 1));
    EXPECT_EQ(1000, pos());
    for (int64_t distance : {1, 24}) EXPECT_EQ(0, qcmn_mfal_skip(fp, &distance));
    EXPECT_EQ(1025, pos());
    // A failed source read is a short read of nothing.
    int64_t start = 0;
    ASSERT_EQ(0, qcmn_mfal_setpos(fp, &start));
    mem.failReads = true;
    EXPECT_EQ(0, qcmn_mfal_read(fp, buf, 4));
    EXPECT_EQ(0, pos());

    int64_t size = -1;
    EXPECT_EQ(0, qcmn_mfal_getsize(fp, &size));
    EXPECT_EQ(10, size);
    mem.unknownSize = true;
    EXPECT_EQ(0, qcmn_mfal_getsize(fp, &size));
    EXPECT_EQ(0, size);
}

// Every refusal and argument check: the call, its result, and the one log line it writes ("" for none).
TEST_F(MfalTest, RefusalsReturnTheirCodeAndLogTheirLine) {
    auto assertLine = [](const char *word, int line) {
        return "[frameworks/avcodec/mm_proprietary/libextractor/mfal/qcmn_mfal_android_q:" + std::to_string(line) +
               "] assert failed! (" + word + ")\n";
    };
    uint8_t buf[4];
    int64_t v = 0, back = -5;
    int arg = 7;
    QCMN_MFAL noSource, empty = {};
    ASSERT_EQ(0, qcmn_mfal_init(&noSource, nullptr));
    const struct { const char *name; std::function<int32_t()> call; int32_t result; std::string log; } cases[] = {
        {"open", [] { return qcmn_mfal_open(nullptr, 0) == nullptr ? -1 : 0; }, -1, assertLine("mfal", 102)},
        {"open no source", [&] { return qcmn_mfal_open(&noSource, 0) == nullptr ? -1 : 0; }, -1, "not supported"},
        {"open no access", [&] { return qcmn_mfal_open(&empty, 0) == nullptr ? -1 : 0; }, -1, "not supported"},
        {"close", [] { qcmn_mfal_close(nullptr); return -1; }, -1, assertLine("fp", 134)},
        {"read nothing", [] { return qcmn_mfal_read(nullptr, nullptr, 0); }, 0, ""},
        {"read less", [] { return qcmn_mfal_read(nullptr, nullptr, -3); }, 0, ""},
        {"read buf", [] { return qcmn_mfal_read(nullptr, nullptr, 4); }, -1, assertLine("buf", 151)},
        {"read fp", [&] { return qcmn_mfal_read(nullptr, buf, 4); }, -1, assertLine("fp", 152)},
        {"write", [&] { return qcmn_mfal_write(fp, buf, 1); }, 0, ""},
        {"write fp", [&] { return qcmn_mfal_write(nullptr, buf, 4); }, -1, assertLine("fp", 165)},
        {"getpos p", [] { return qcmn_mfal_getpos(nullptr, nullptr); }, -1, assertLine("p", 174)},
        {"getpos fp", [&] { return qcmn_mfal_getpos(nullptr, &v); }, -1, assertLine("fp", 175)},
        {"setpos p", [] { return qcmn_mfal_setpos(nullptr, nullptr); }, -1, assertLine("p", 188)},
        {"setpos fp", [&] { return qcmn_mfal_setpos(nullptr, &v); }, -1, assertLine("fp", 189)},
        {"skip 0", [&] { return qcmn_mfal_skip(fp, &v); }, -1, ""},
        {"skip back", [&] { return qcmn_mfal_skip(fp, &back); }, -1, ""},
        {"skip p", [] { return qcmn_mfal_skip(nullptr, nullptr); }, -1, assertLine("fsize", 203)},
        {"skip fp", [&] { return qcmn_mfal_skip(nullptr, &v); }, -1, assertLine("fp", 204)},
        {"getsize p", [] { return qcmn_mfal_getsize(nullptr, nullptr); }, -1, assertLine("fsize", 224)},
        {"getsize fp", [&] { return qcmn_mfal_getsize(nullptr, &v); }, -1, assertLine("fp", 225)},
        {"ioctl 1", [&] { return qcmn_mfal_ioctl(fp, 1, &arg) + (arg == 7 ? 0 : 100); }, 0, ""},
        {"ioctl 2", [&] { return qcmn_mfal_ioctl(fp, 2, &arg); }, -1, ""},
        {"ioctl 0", [&] { return qcmn_mfal_ioctl(fp, 0, &arg); }, -1, ""},
        {"ioctl fp", [] { return qcmn_mfal_ioctl(nullptr, 1, nullptr); }, -1, assertLine("fp", 239)},
        {"ioctl arg", [&] { return qcmn_mfal_ioctl(fp, 1, nullptr); }, -1, assertLine("arg", 240)},
    };
    for (const auto &c : cases) {
        LogCapture log;
        EXPECT_EQ(c.result, c.call()) << c.name;
        ASSERT_EQ(c.log.empty() ? 0u : 1u, log.lines().size()) << c.name;
        if (c.log.empty()) continue;
        EXPECT_EQ(c.log, log.lines()[0].message) << c.name;
        EXPECT_EQ("QMKVExtractorSO", log.lines()[0].tag) << c.name;
        EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority) << c.name;
    }
    EXPECT_EQ(0, pos()) << "refused calls change no state";
    qcmn_mfal_deinit(&noSource);
}

}  // namespace
