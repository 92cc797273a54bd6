// The host's AMediaFormat behaves as the platform's does for a plug-in.
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include <media/NdkMediaFormat.h>
#include <qmkvhost/FormatEntries.h>

using qmkvhost::FormatType;

namespace {

// An AMediaFormat that deletes itself.
struct Format {
    Format() : f(AMediaFormat_new()) {}
    ~Format() { AMediaFormat_delete(f); }
    operator AMediaFormat *() const { return f; }
    AMediaFormat *f;
};

std::vector<std::string> names(AMediaFormat *f) {
    std::vector<std::string> out;
    for (const auto &e : qmkvhost::formatEntries(f)) out.push_back(e.name);
    return out;
}

// One value of each type under key "k": how to store it, and whether the getter of its type finds it unchanged.
const uint8_t kBytes[] = {0, 1, 0xfe, 0xff};
using F = AMediaFormat *;
const struct Typed {
    FormatType type;
    void (*set)(F);
    bool (*found)(F);
} kTyped[] = {
    {FormatType::kInt32, [](F f) { AMediaFormat_setInt32(f, "k", -7); },
     [](F f) { int32_t v = 0; return AMediaFormat_getInt32(f, "k", &v) && v == -7; }},
    {FormatType::kInt64, [](F f) { AMediaFormat_setInt64(f, "k", INT64_MIN); },
     [](F f) { int64_t v = 0; return AMediaFormat_getInt64(f, "k", &v) && v == INT64_MIN; }},
    {FormatType::kSize, [](F f) { AMediaFormat_setSize(f, "k", SIZE_MAX); },
     [](F f) { size_t v = 0; return AMediaFormat_getSize(f, "k", &v) && v == SIZE_MAX; }},
    {FormatType::kFloat, [](F f) { AMediaFormat_setFloat(f, "k", 23.976f); },
     [](F f) { float v = 0; return AMediaFormat_getFloat(f, "k", &v) && v == 23.976f; }},
    {FormatType::kDouble, [](F f) { AMediaFormat_setDouble(f, "k", 1e300); },
     [](F f) { double v = 0; return AMediaFormat_getDouble(f, "k", &v) && v == 1e300; }},
    {FormatType::kRect, [](F f) { AMediaFormat_setRect(f, "k", 1, 2, 3, 4); },
     [](F f) {
         int32_t a, b, c, d;
         return AMediaFormat_getRect(f, "k", &a, &b, &c, &d) && a * 1000 + b * 100 + c * 10 + d == 1234;
     }},
    {FormatType::kString, [](F f) { AMediaFormat_setString(f, "k", "eng"); },
     [](F f) { const char *v = nullptr; return AMediaFormat_getString(f, "k", &v) && !strcmp(v, "eng"); }},
    {FormatType::kBuffer, [](F f) { AMediaFormat_setBuffer(f, "k", kBytes, sizeof(kBytes)); },
     [](F f) {
         void *d;
         size_t n = 0;
         return AMediaFormat_getBuffer(f, "k", &d, &n) && n == 4 && !memcmp(d, kBytes, 4);
     }},
};

// Each type is found only by its own getter, and setting a name again replaces value and type in place.
TEST(HostFormat, EachTypeIsFoundOnlyByItsOwnGetterAndReplacedInPlace) {
    for (const Typed &first : kTyped) {
        for (const Typed &second : kTyped) {
            Format f;
            AMediaFormat_setInt32(f, "before", 1);
            first.set(f);
            EXPECT_TRUE(first.found(f)) << qmkvhost::formatTypeName(first.type);
            AMediaFormat_setInt32(f, "after", 2);
            second.set(f);
            for (const Typed &get : kTyped) {
                EXPECT_EQ(get.type == second.type, get.found(f))
                    << qmkvhost::formatTypeName(first.type) << " then " << qmkvhost::formatTypeName(second.type)
                    << ", read as " << qmkvhost::formatTypeName(get.type);
            }
            EXPECT_EQ((std::vector<std::string>{"before", "k", "after"}), names(f));
            EXPECT_EQ(second.type, qmkvhost::formatEntries(f)[1].type);
        }
    }
}

TEST(HostFormat, CopyReplacesTheTargetWithAnIndependentDuplicateAndClearEmptiesIt) {
    Format from, to;
    const uint8_t csd[] = {1, 2, 3};
    AMediaFormat_setString(from, AMEDIAFORMAT_KEY_MIME, "video/avc");
    AMediaFormat_setInt64(from, AMEDIAFORMAT_KEY_DURATION, 5000000);
    AMediaFormat_setInt64(from, AMEDIAFORMAT_KEY_TIME_US, 40000);
    AMediaFormat_setInt32(from, AMEDIAFORMAT_KEY_IS_SYNC_FRAME, 1);
    AMediaFormat_setString(from, AMEDIAFORMAT_KEY_CDTRACKNUMBER, "3");
    AMediaFormat_setString(from, AMEDIAFORMAT_KEY_DISCNUMBER, "1");
    AMediaFormat_setBuffer(from, AMEDIAFORMAT_KEY_CSD_0, csd, sizeof(csd));
    AMediaFormat_setInt64(to, "stale", 1);
    ASSERT_EQ(AMEDIA_OK, AMediaFormat_copy(to, from));
    AMediaFormat_setInt32(from, AMEDIAFORMAT_KEY_IS_SYNC_FRAME, 0);
    AMediaFormat_clear(from);
    // Also the key texts the framework itself looks up by literal.
    const char *const copied = "mime: string(video/avc), durationUs: int64(5000000), timeUs: int64(40000), "
                               "is-sync-frame: int32(1), cdtracknum: string(3), discnum: string(1), "
                               "csd-0: data(3 bytes)";
    EXPECT_STREQ(copied, AMediaFormat_toString(to));
    void *data = nullptr;
    size_t size = 0;
    ASSERT_TRUE(AMediaFormat_getBuffer(to, AMEDIAFORMAT_KEY_CSD_0, &data, &size));
    EXPECT_EQ(0, memcmp(csd, data, sizeof(csd)));
    EXPECT_EQ(AMEDIA_OK, AMediaFormat_copy(to, to));
    EXPECT_STREQ(copied, AMediaFormat_toString(to));
    EXPECT_EQ(AMEDIA_ERROR_INVALID_PARAMETER, AMediaFormat_copy(nullptr, to));
    EXPECT_EQ(AMEDIA_ERROR_INVALID_PARAMETER, AMediaFormat_copy(to, nullptr));
    EXPECT_STREQ("", AMediaFormat_toString(from));
}

}  // namespace
