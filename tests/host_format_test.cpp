// The host's AMediaFormat, MIME mapping and calling-uid hook behave as the
// platform's do for a plug-in.
#include <gtest/gtest.h>

#include <string.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <android/binder_ibinder.h>
#include <host/CallingUid.h>
#include <host/FormatEntries.h>
#include <media/NdkMediaFormat.h>
#include <media/stagefright/FourCC2MIME.h>
#include <media/stagefright/MediaDefs.h>

#include "qextractorcmn/ExtMediaFormatDef.h"

using qmkvhost::FormatType;

namespace {

// An AMediaFormat that deletes itself.
struct Format {
    Format() : f(AMediaFormat_new()) {}
    ~Format() { AMediaFormat_delete(f); }
    Format(const Format &) = delete;
    Format &operator=(const Format &) = delete;
    operator AMediaFormat *() const { return f; }
    AMediaFormat *f;
};

std::vector<std::string> names(AMediaFormat *f) {
    std::vector<std::string> out;
    for (const auto &e : qmkvhost::formatEntries(f)) out.push_back(e.name);
    return out;
}

// Which typed getter finds key "k".
struct Getter {
    FormatType type;
    std::function<bool(AMediaFormat *)> get;
};

const std::vector<Getter> &getters() {
    static const std::vector<Getter> all = {
        {FormatType::kInt32, [](AMediaFormat *f) { int32_t v; return AMediaFormat_getInt32(f, "k", &v); }},
        {FormatType::kInt64, [](AMediaFormat *f) { int64_t v; return AMediaFormat_getInt64(f, "k", &v); }},
        {FormatType::kSize, [](AMediaFormat *f) { size_t v; return AMediaFormat_getSize(f, "k", &v); }},
        {FormatType::kFloat, [](AMediaFormat *f) { float v; return AMediaFormat_getFloat(f, "k", &v); }},
        {FormatType::kDouble, [](AMediaFormat *f) { double v; return AMediaFormat_getDouble(f, "k", &v); }},
        {FormatType::kRect,
         [](AMediaFormat *f) { int32_t a, b, c, d; return AMediaFormat_getRect(f, "k", &a, &b, &c, &d); }},
        {FormatType::kString, [](AMediaFormat *f) { const char *v; return AMediaFormat_getString(f, "k", &v); }},
        {FormatType::kBuffer,
         [](AMediaFormat *f) { void *d; size_t n; return AMediaFormat_getBuffer(f, "k", &d, &n); }},
    };
    return all;
}

struct Setter {
    FormatType type;
    std::function<void(AMediaFormat *)> set;
    std::function<bool(AMediaFormat *)> valueMatches;
};

const std::vector<Setter> &setters() {
    static const uint8_t kBytes[] = {0, 1, 0xfe, 0xff};
    static const std::vector<Setter> all = {
        {FormatType::kInt32, [](AMediaFormat *f) { AMediaFormat_setInt32(f, "k", -7); },
         [](AMediaFormat *f) { int32_t v = 0; return AMediaFormat_getInt32(f, "k", &v) && v == -7; }},
        {FormatType::kInt64, [](AMediaFormat *f) { AMediaFormat_setInt64(f, "k", INT64_MIN); },
         [](AMediaFormat *f) { int64_t v = 0; return AMediaFormat_getInt64(f, "k", &v) && v == INT64_MIN; }},
        {FormatType::kSize, [](AMediaFormat *f) { AMediaFormat_setSize(f, "k", SIZE_MAX); },
         [](AMediaFormat *f) { size_t v = 0; return AMediaFormat_getSize(f, "k", &v) && v == SIZE_MAX; }},
        {FormatType::kFloat, [](AMediaFormat *f) { AMediaFormat_setFloat(f, "k", 23.976f); },
         [](AMediaFormat *f) { float v = 0; return AMediaFormat_getFloat(f, "k", &v) && v == 23.976f; }},
        {FormatType::kDouble, [](AMediaFormat *f) { AMediaFormat_setDouble(f, "k", 1e300); },
         [](AMediaFormat *f) { double v = 0; return AMediaFormat_getDouble(f, "k", &v) && v == 1e300; }},
        {FormatType::kRect, [](AMediaFormat *f) { AMediaFormat_setRect(f, "k", 1, 2, 3, 4); },
         [](AMediaFormat *f) {
             int32_t a = 0, b = 0, c = 0, d = 0;
             return AMediaFormat_getRect(f, "k", &a, &b, &c, &d) && a == 1 && b == 2 && c == 3 && d == 4;
         }},
        {FormatType::kString, [](AMediaFormat *f) { AMediaFormat_setString(f, "k", "eng"); },
         [](AMediaFormat *f) { const char *v = nullptr; return AMediaFormat_getString(f, "k", &v) && !strcmp(v, "eng"); }},
        {FormatType::kBuffer, [](AMediaFormat *f) { AMediaFormat_setBuffer(f, "k", kBytes, sizeof(kBytes)); },
         [](AMediaFormat *f) {
             void *d = nullptr;
             size_t n = 0;
             return AMediaFormat_getBuffer(f, "k", &d, &n) && n == sizeof(kBytes) && !memcmp(d, kBytes, n);
         }},
    };
    return all;
}

TEST(HostFormat, EachTypeIsFoundOnlyByItsOwnGetter) {
    for (const Setter &s : setters()) {
        Format f;
        s.set(f);
        EXPECT_TRUE(s.valueMatches(f)) << qmkvhost::formatTypeName(s.type);
        for (const Getter &g : getters()) {
            EXPECT_EQ(g.type == s.type, g.get(f))
                << "stored " << qmkvhost::formatTypeName(s.type) << ", read as " << qmkvhost::formatTypeName(g.type);
        }
        auto entries = qmkvhost::formatEntries(f);
        ASSERT_EQ(1u, entries.size());
        EXPECT_EQ(s.type, entries[0].type);
    }
}

TEST(HostFormat, SettingANameAgainReplacesValueAndTypeInPlace) {
    for (const Setter &first : setters()) {
        for (const Setter &second : setters()) {
            Format f;
            AMediaFormat_setInt32(f, "before", 1);
            first.set(f);
            AMediaFormat_setInt32(f, "after", 2);
            second.set(f);
            EXPECT_TRUE(second.valueMatches(f));
            EXPECT_EQ((std::vector<std::string>{"before", "k", "after"}), names(f));
            EXPECT_EQ(second.type, qmkvhost::formatEntries(f)[1].type);
        }
    }
}

TEST(HostFormat, MissingNamesAndNullArgumentsFindNothing) {
    Format f;
    AMediaFormat_setInt32(f, "width", 640);
    int32_t v = 5;
    EXPECT_FALSE(AMediaFormat_getInt32(f, "Width", &v));  // names are case-sensitive
    EXPECT_FALSE(AMediaFormat_getInt32(f, "height", &v));
    EXPECT_FALSE(AMediaFormat_getInt32(f, nullptr, &v));
    EXPECT_FALSE(AMediaFormat_getInt32(nullptr, "width", &v));
    EXPECT_EQ(5, v);
    AMediaFormat_setInt32(nullptr, "width", 1);
    AMediaFormat_setString(f, "title", nullptr);  // ignored
    EXPECT_EQ(std::vector<std::string>{"width"}, names(f));
}

TEST(HostFormat, StringsAreCopiedAndStayPutWhileOtherEntriesChange) {
    Format f;
    char text[] = "English";
    AMediaFormat_setString(f, AMEDIAFORMAT_KEY_LANGUAGE, text);
    text[0] = 'X';
    const char *got = nullptr;
    ASSERT_TRUE(AMediaFormat_getString(f, AMEDIAFORMAT_KEY_LANGUAGE, &got));
    EXPECT_STREQ("English", got);
    for (int i = 0; i < 100; ++i) AMediaFormat_setInt32(f, ("key" + std::to_string(i)).c_str(), i);
    EXPECT_STREQ("English", got);  // same pointer, still valid

    // A value taken from the entry it replaces.
    AMediaFormat_setString(f, AMEDIAFORMAT_KEY_LANGUAGE, got);
    ASSERT_TRUE(AMediaFormat_getString(f, AMEDIAFORMAT_KEY_LANGUAGE, &got));
    EXPECT_STREQ("English", got);
    AMediaFormat_setString(f, AMEDIAFORMAT_KEY_LANGUAGE, "");
    ASSERT_TRUE(AMediaFormat_getString(f, AMEDIAFORMAT_KEY_LANGUAGE, &got));
    EXPECT_STREQ("", got);
}

TEST(HostFormat, BuffersAreCopiedByteForByte) {
    struct Case {
        std::vector<uint8_t> bytes;
    };
    const Case cases[] = {{{}}, {{0}}, {{0, 0, 0, 1, 0x67, 0x42}}, {std::vector<uint8_t>(70000, 0xAB)}};
    for (const Case &c : cases) {
        Format f;
        std::vector<uint8_t> source = c.bytes;
        AMediaFormat_setBuffer(f, AMEDIAFORMAT_KEY_CSD_0, source.data(), source.size());
        std::fill(source.begin(), source.end(), 0x55);
        void *data = nullptr;
        size_t size = 99;
        ASSERT_TRUE(AMediaFormat_getBuffer(f, AMEDIAFORMAT_KEY_CSD_0, &data, &size));
        ASSERT_EQ(c.bytes.size(), size);
        ASSERT_NE(nullptr, data);
        if (size > 0) {
            EXPECT_EQ(0, memcmp(c.bytes.data(), data, size));
        }
    }
    Format f;
    AMediaFormat_setBuffer(f, AMEDIAFORMAT_KEY_CSD_1, nullptr, 4);  // ignored
    EXPECT_TRUE(names(f).empty());
}

TEST(HostFormat, CopyReplacesTheTargetWithAnIndependentDuplicate) {
    Format from, to;
    const uint8_t csd[] = {1, 2, 3};
    AMediaFormat_setString(from, AMEDIAFORMAT_KEY_MIME, "video/avc");
    AMediaFormat_setInt32(from, AMEDIAFORMAT_KEY_WIDTH, 1920);
    AMediaFormat_setBuffer(from, AMEDIAFORMAT_KEY_CSD_0, csd, sizeof(csd));
    AMediaFormat_setInt64(to, "stale", 1);

    ASSERT_EQ(AMEDIA_OK, AMediaFormat_copy(to, from));
    EXPECT_EQ((std::vector<std::string>{"mime", "width", "csd-0"}), names(to));
    AMediaFormat_setInt32(from, AMEDIAFORMAT_KEY_WIDTH, 1);
    AMediaFormat_clear(from);
    int32_t width = 0;
    EXPECT_TRUE(AMediaFormat_getInt32(to, AMEDIAFORMAT_KEY_WIDTH, &width));
    EXPECT_EQ(1920, width);
    void *data = nullptr;
    size_t size = 0;
    ASSERT_TRUE(AMediaFormat_getBuffer(to, AMEDIAFORMAT_KEY_CSD_0, &data, &size));
    EXPECT_EQ(0, memcmp(csd, data, sizeof(csd)));

    EXPECT_EQ(AMEDIA_OK, AMediaFormat_copy(to, to));
    EXPECT_EQ(3u, names(to).size());
    EXPECT_EQ(AMEDIA_ERROR_INVALID_PARAMETER, AMediaFormat_copy(nullptr, to));
    EXPECT_EQ(AMEDIA_ERROR_INVALID_PARAMETER, AMediaFormat_copy(to, nullptr));
}

TEST(HostFormat, ClearEmptiesTheFormatForReuse) {
    Format f;
    AMediaFormat_setInt64(f, AMEDIAFORMAT_KEY_TIME_US, 40000);
    AMediaFormat_setInt32(f, AMEDIAFORMAT_KEY_IS_SYNC_FRAME, 1);
    AMediaFormat_clear(f);
    EXPECT_TRUE(names(f).empty());
    EXPECT_STREQ("", AMediaFormat_toString(f));
    int64_t t = 0;
    EXPECT_FALSE(AMediaFormat_getInt64(f, AMEDIAFORMAT_KEY_TIME_US, &t));
    AMediaFormat_setInt64(f, AMEDIAFORMAT_KEY_TIME_US, 80000);
    EXPECT_TRUE(AMediaFormat_getInt64(f, AMEDIAFORMAT_KEY_TIME_US, &t));
    EXPECT_EQ(80000, t);
}

TEST(HostFormat, ToStringNamesEveryEntryWithItsType) {
    Format f;
    const uint8_t csd[] = {1, 2};
    AMediaFormat_setString(f, "mime", "audio/raw");
    AMediaFormat_setInt32(f, "channel-count", 2);
    AMediaFormat_setInt64(f, "durationUs", 5000000);
    AMediaFormat_setBuffer(f, "csd-0", csd, 2);
    EXPECT_STREQ("mime: string(audio/raw), channel-count: int32(2), durationUs: int64(5000000), "
                 "csd-0: data(2 bytes)",
                 AMediaFormat_toString(f));
}

TEST(HostFormat, KeyNamesAreDistinct) {
    const char *const keys[] = {
        AMEDIAFORMAT_KEY_AAC_PROFILE, AMEDIAFORMAT_KEY_ALBUM, AMEDIAFORMAT_KEY_ALBUMARTIST,
        AMEDIAFORMAT_KEY_ARTIST, AMEDIAFORMAT_KEY_AUTHOR, AMEDIAFORMAT_KEY_BITS_PER_SAMPLE,
        AMEDIAFORMAT_KEY_CDTRACKNUMBER, AMEDIAFORMAT_KEY_CHANNEL_COUNT, AMEDIAFORMAT_KEY_COLOR_RANGE,
        AMEDIAFORMAT_KEY_COLOR_STANDARD, AMEDIAFORMAT_KEY_COLOR_TRANSFER, AMEDIAFORMAT_KEY_COMPILATION,
        AMEDIAFORMAT_KEY_COMPOSER, AMEDIAFORMAT_KEY_CSD_0, AMEDIAFORMAT_KEY_CSD_1, AMEDIAFORMAT_KEY_CSD_2,
        AMEDIAFORMAT_KEY_DATE, AMEDIAFORMAT_KEY_DISCNUMBER, AMEDIAFORMAT_KEY_DISPLAY_HEIGHT,
        AMEDIAFORMAT_KEY_DISPLAY_WIDTH, AMEDIAFORMAT_KEY_DURATION, AMEDIAFORMAT_KEY_FRAME_RATE,
        AMEDIAFORMAT_KEY_GENRE, AMEDIAFORMAT_KEY_HDR_STATIC_INFO, AMEDIAFORMAT_KEY_HEIGHT,
        AMEDIAFORMAT_KEY_IS_SYNC_FRAME, AMEDIAFORMAT_KEY_LANGUAGE, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE,
        AMEDIAFORMAT_KEY_MIME, AMEDIAFORMAT_KEY_PCM_ENCODING, AMEDIAFORMAT_KEY_SAMPLE_RATE,
        AMEDIAFORMAT_KEY_TIME_US, AMEDIAFORMAT_KEY_TITLE, AMEDIAFORMAT_KEY_VALID_SAMPLES,
        AMEDIAFORMAT_KEY_WIDTH, AMEDIAFORMAT_KEY_YEAR,
        // the vendor's additions must not shadow a platform key either
        AMEDIAFORMAT_KEY_FOURCC, AMEDIAFORMAT_KEY_TRACK_FOURCC, AMEDIAFORMAT_KEY_ERROR_TYPE,
        AMEDIAFORMAT_KEY_ERROR_LOGGABLE, AMEDIAFORMAT_KEY_TRACK_NAME, AMEDIAFORMAT_KEY_IS_MP4_DP,
        AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL, AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING, AMEDIAFORMAT_KEY_WRITER,
        AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES};
    std::set<std::string> seen;
    for (const char *k : keys) EXPECT_TRUE(seen.insert(k).second) << k;
}

// The few keys whose text the framework itself looks up by literal.
TEST(HostFormat, SampleKeysMatchTheFramework) {
    EXPECT_STREQ("timeUs", AMEDIAFORMAT_KEY_TIME_US);
    EXPECT_STREQ("durationUs", AMEDIAFORMAT_KEY_DURATION);
    EXPECT_STREQ("is-sync-frame", AMEDIAFORMAT_KEY_IS_SYNC_FRAME);
    EXPECT_STREQ("cdtracknum", AMEDIAFORMAT_KEY_CDTRACKNUMBER);
    EXPECT_STREQ("discnum", AMEDIAFORMAT_KEY_DISCNUMBER);
}

TEST(HostFourCC2MIME, EveryWhitelistedCodeHasTheMediaTypeOfItsCodec) {
    using namespace android;
    struct Row {
        const char *codes;  // four-character codes, or "" for the numeric tags
        std::vector<uint32_t> tags;
        const char *mime;
    };
    const Row rows[] = {
        {"MPG2mpg2", {}, "video/mpeg2"},
        {"MP43", {}, MEDIA_MIMETYPE_VIDEO_DIVX3},
        {"H263S263h263s263", {}, "video/3gpp"},
        {"AVC1avc1H264X264h264x264", {}, "video/avc"},
        {"hvc1hev1", {}, "video/hevc"},
        {"VP80", {}, "video/x-vnd.on2.vp8"},
        {"VP90", {}, "video/x-vnd.on2.vp9"},
        {"av01", {}, "video/av01"},
        {"FMP4fmp4XVIDxvidMP4Vmp4v", {}, "video/mp4v-es"},
        {"lpcm", {1, 3}, "audio/raw"},
        {"", {2}, MEDIA_MIMETYPE_AUDIO_MS_ADPCM},
        {"", {0x11}, MEDIA_MIMETYPE_AUDIO_DVI_IMA_ADPCM},
        {"", {0x50}, "audio/mpeg-L2"},
        {"", {0x55}, "audio/mpeg"},
        {"", {0x92, 0x2000}, "audio/ac3"},
        {"MP4Amp4a", {0xFF}, "audio/mp4a-latm"},
        {"", {0x160, 0x161}, "audio/x-ms-wma"},
        {"", {0x6751, 0x2674F}, "audio/vorbis"},
        {"", {0xF1AC}, "audio/flac"},
        {"ec-3", {}, "audio/eac3"},
        {"Opus", {}, "audio/opus"},
        {"SSRT", {}, "application/x-subrip"},
        {"SASSSSSA", {}, "text/x-ssa"},
    };
    for (const Row &row : rows) {
        std::vector<uint32_t> codes = row.tags;
        for (const char *p = row.codes; *p != '\0'; p += 4) {
            uint32_t code = 0;
            memcpy(&code, p, 4);  // first character in the lowest byte
            codes.push_back(code);
        }
        for (uint32_t code : codes) EXPECT_STREQ(row.mime, FourCC2MIME(code)) << std::hex << code;
    }
    EXPECT_STREQ("video/avc", FourCC2MIME(0x31435641));  // "AVC1"
    EXPECT_STREQ("text/x-ssa", FourCC2MIME(0x53534153));  // "SASS"
}

TEST(HostFourCC2MIME, AnyOtherCodeIsUnknown) {
    const uint32_t others[] = {0, 6, 7, 0x162, 0x2001, 0x3F3F3F2A /* "*???" */, 0x52494423 /* "#DIR" */,
                               0x31435660 /* not "AVC1" */, 0x31637641 /* "Avc1" */, 0x63616C61 /* "alac" */,
                               0xFFFFFFFF};
    for (uint32_t code : others) EXPECT_STREQ(android::MEDIA_MIMETYPE_UNKNOWN, android::FourCC2MIME(code)) << std::hex << code;
    EXPECT_STREQ("unknown", android::MEDIA_MIMETYPE_UNKNOWN);
}

TEST(HostCallingUid, IsThisProcessUnlessATestPlaysAnotherCaller) {
    EXPECT_EQ(getuid(), AIBinder_getCallingUid());
    {
        HostCallingUidScope media(1013);
        EXPECT_EQ(1013u, AIBinder_getCallingUid());
        host_setCallingUid(0);
        EXPECT_EQ(0u, AIBinder_getCallingUid());
    }
    EXPECT_EQ(getuid(), AIBinder_getCallingUid());
}

}  // namespace
