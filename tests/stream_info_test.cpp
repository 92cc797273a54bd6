// Codec configuration and parameter records of crafted tracks.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

// A file whose track 0 is `entry`, with one block of track 1 in a Cluster.
std::unique_ptr<CoreFile> open(const Bytes &entry, const Bytes &payload = Bytes{1, 2, 3, 4}, uint8_t flags = 0x80) {
    return std::make_unique<CoreFile>(file({segmentInfo(60000.0), tracks({entry}),
                                            clusterOf(0, {simpleBlock(1, 0, flags, payload)})}));
}

struct Config {
    int32_t result;
    int32_t size;
    Bytes bytes;
};

// Size query, then the bytes into a buffer of that size (plus `extra`).
Config configOf(qmkvd *inst, int index = 0, int32_t extra = 0) {
    Config c{};
    int32_t size = -12345;
    EXPECT_EQ(0, qmkvd_get_format(inst, index, nullptr, &size));
    if (size < 0) return Config{0, size, {}};
    Bytes buf((size_t)(size + extra + 16), 0xEE);
    int32_t n = size + extra;
    c.result = qmkvd_get_format(inst, index, buf.data(), &n);
    EXPECT_TRUE(std::all_of(buf.begin() + size + extra, buf.end(), [](uint8_t b) { return b == 0xEE; }))
        << "nothing is written past the room given";
    c.size = n;
    c.bytes.assign(buf.begin(), buf.begin() + (n > 0 ? n : 0));
    return c;
}

TEST(Format, AacLcConfigFromRateAndChannels) {
    // Object type 2, the sampling frequency index of ISO/IEC 14496-3, the channel configuration.
    const double kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
    for (uint8_t i = 0; i < 12; ++i) {
        const uint8_t channels = 1 + i % 6;
        auto f(open(trackEntry(1, 2, "A_AAC/MPEG4/LC/SBR", {el(mkv::Audio, {f64_el(mkv::SamplingFrequency, kRates[i]),
                                                                     uint_el(mkv::Channels, channels)})})));
        ASSERT_NE(nullptr, f->inst);
        Config got = configOf(f->inst);
        EXPECT_EQ(0, got.result);
        EXPECT_EQ(Bytes({(uint8_t)(0x10 | i >> 1), (uint8_t)((i & 1) << 7 | channels << 3)}), got.bytes) << kRates[i];
    }
    LogCapture log;
    auto f(open(trackEntry(1, 2, "A_AAC/MPEG2/LC", {el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 7350.0)})})));
    Config got = configOf(f->inst);
    EXPECT_EQ(0, got.result);
    EXPECT_EQ(0, got.size);
    EXPECT_TRUE(log.has("qmkvd", "get_aac_default_format(): warning! frequency 7350 not supported"));
}

TEST(Format, GenericCopyAndItsLimit) {
    for (const char *codec : {"A_AAC", "A_AAC/MPEG4/MAIN", "A_VORBIS", "V_VP9", "A_OPUS"}) {
        auto f(open(trackEntry(1, codec[0] == 'V' ? 1 : 2, codec, {bin_el(mkv::CodecPrivate, Bytes{9, 8, 7, 6, 5})})));
        ASSERT_NE(nullptr, f->inst) << codec;
        Config got = configOf(f->inst);
        EXPECT_EQ(0, got.result);
        EXPECT_EQ(Bytes({9, 8, 7, 6, 5}), got.bytes) << codec;
        EXPECT_EQ(-1, configOf(f->inst, 0, -1).result) << "one byte short";
    }
}

TEST(Format, AcmExtraBytes) {
    Bytes wfx(40, 0);
    for (int i = 0; i < 40; ++i) wfx[(size_t)i] = (uint8_t)i;
    wfx[0] = 0x61;
    wfx[1] = 0x01;  // 0x161, Windows Media Audio: whole structure
    auto wma(open(trackEntry(1, 2, "A_MS/ACM", {bin_el(mkv::CodecPrivate, wfx)})));
    EXPECT_EQ(40, configOf(wma->inst).size);
    wfx[0] = 0x55;
    wfx[1] = 0;
    auto mp3(open(trackEntry(1, 2, "A_MS/ACM", {bin_el(mkv::CodecPrivate, wfx)})));
    Config got = configOf(mp3->inst);
    ASSERT_EQ(22, got.size);
    EXPECT_EQ(18, got.bytes[0]);
    EXPECT_EQ(-1, configOf(mp3->inst, 0, -1).result) << "one byte short";
    EXPECT_EQ(0x55u, mp3->format.track_codec_types[0]);
}

TEST(Format, AvcFirstParameterSetsInStartCodeForm) {
    // Two SPS (3 and 2 bytes) and one PPS (2 bytes).
    Bytes avcC = {1, 0x64, 0, 0x1F, 0xFF, 0xE2, 0, 3, 0x67, 0xA, 0xB, 0, 2, 0x67, 0xC, 1, 0, 2, 0x68, 0xD};
    auto f(open(trackEntry(1, 1, "V_MPEG4/ISO/AVC", {bin_el(mkv::CodecPrivate, avcC)})));
    Config got = configOf(f->inst);
    EXPECT_EQ(0, got.result);
    EXPECT_EQ(Bytes({0, 0, 0, 1, 0x67, 0xA, 0xB, 0, 0, 0, 1, 0x68, 0xD}), got.bytes);
    Config small = configOf(f->inst, 0, -1);
    EXPECT_EQ(0, small.size) << "a buffer too small gives no configuration";
    const Bytes ppsCut = {1, 0x64, 0, 0x1F, 0xFF, 0xE1, 0, 1, 0x67, 1, 0};  // the PPS length cut short
    auto cut(open(trackEntry(1, 1, "V_MPEG4/ISO/AVC", {bin_el(mkv::CodecPrivate, ppsCut)})));
    int32_t size = 0;
    EXPECT_EQ(0, qmkvd_get_format(cut->inst, 0, nullptr, &size));
    EXPECT_EQ(0, size) << "nor does a record cut short";
}

TEST(Format, SizeQueriesOfCodecsWithoutAConfiguration) {
    struct { uint8_t type; const char *codec; int32_t size; } cases[] = {
        {0x11, "S_TEXT/UTF8", -12345}, {1, "V_MS/VFW/FOURCC", 0}, {1, "V_MPEG4/MS/V3", 0}, {0x11, "S_TEXT/ASS", 40}};
    for (const auto &c : cases) {
        auto f(open(trackEntry(1, c.type, c.codec, {bin_el(mkv::CodecPrivate, Bytes(40, 1))})));
        int32_t size = -12345;
        EXPECT_EQ(0, qmkvd_get_format(f->inst, 0, nullptr, &size));
        EXPECT_EQ(c.size, size) << c.codec;
    }
}

TEST(Format, Mp3RecordFromTheFirstFrameHeader) {
    // 128 kbit/s (index 9), 44100 Hz (0), padding 1: 417 + 1 bytes.
    const Bytes header = {0xFF, 0xFB, 0x92, 0x44};
    for (uint8_t flags : {(uint8_t)0x80, (uint8_t)0x02}) {
        Bytes payload = flags == 0x02 ? cat({Bytes{1, 4}, header, Bytes(4, 0)}) : cat({header, Bytes(8, 0)});
        auto f(open(trackEntry(1, 2, "A_MPEG/L3"), payload, flags));
        ASSERT_NE(nullptr, f->inst);
        Config got = configOf(f->inst);
        ASSERT_EQ(12, got.size);
        EXPECT_EQ(0, got.result);
        EXPECT_EQ(Bytes({1, 0, 0, 0, 0, 0, 0xA2, 0x01}), Bytes(got.bytes.begin(), got.bytes.begin() + 8)) << int(flags);
        EXPECT_EQ(0xEE, got.bytes[8]) << "bytes 8-11 are left alone";
    }
    // Header stripping: the prefix supplies the first bytes of the header.
    auto f(open(trackEntry(1, 2, "A_MPEG/L3", {encodings({compression(3, {0xFF, 0xFB})})}), Bytes{0x92, 0x44, 0, 0}));
    Config got = configOf(f->inst);
    EXPECT_EQ(0xA2, got.bytes[6]);
}

TEST(Info, VideoRecord) {
    auto f(open(trackEntry(1, 1, "V_MPEG4/ISO/AVC", {uint_el(mkv::DefaultDuration, 40000000),
                                                    el(mkv::Video, {uint_el(mkv::PixelWidth, 1920),
                                                                    uint_el(mkv::PixelHeight, 1080)})})));
    qmkvd_info_vid v;
    ASSERT_EQ(0, qmkvd_get_info_vid(f->inst, 0, &v));
    // 1500 frames: 60 s at 25 fps.
    EXPECT_EQ(std::make_tuple(3110400, 1920, 1, 25u, 1500, 104, QMKVD_FOURCC('A', 'V', 'C', '1')),
              std::make_tuple(v.max_frame_size, v.width, v.valid, v.frame_rate, v.frame_count, v.media_type, v.fourcc));

    auto g(open(trackEntry(1, 1, "V_VP9")));
    ASSERT_EQ(0, qmkvd_get_info_vid(g->inst, 0, &v));
    EXPECT_EQ(std::make_tuple(0u, 0), std::make_tuple(v.frame_rate, v.frame_count));
    EXPECT_EQ(-7, qmkvd_get_info_vid(g->inst, 1, &v));
    EXPECT_EQ(-7, qmkvd_get_info_vid(g->inst, 0, nullptr));
}

TEST(Info, AudioAndTextRecords) {
    auto f(open(trackEntry(1, 2, "A_OPUS", {str_el(mkv::Language, "english"), str_el(mkv::Name, "Commentary"),
                                           uint_el(0x56BB, 80000000), uint_el(0x56AA, 6500000),
                                           el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 48000.0),
                                                           uint_el(mkv::Channels, 2)})})));
    qmkvd_info_aud a;
    ASSERT_EQ(0, qmkvd_get_info_aud(f->inst, 0, &a));
    // 16 bits without a BitDepth.
    EXPECT_EQ(std::make_tuple(48000, 16, 2, 703, 10, 80000000u, 6500000u, 334),
              std::make_tuple(a.sample_rate, a.bits_per_sample, a.channels, a.name_encoding, a.name_length,
                              a.seek_pre_roll, a.codec_delay, a.media_type));
    EXPECT_STREQ("eng", a.language);
    EXPECT_STREQ("Commentary", a.name);

    auto t(open(trackEntry(1, 0x11, "S_TEXT/ASS", {str_el(mkv::Language, "fr")})));
    qmkvd_info_txt x;
    ASSERT_EQ(0, qmkvd_get_info_txt(t->inst, 0, &x));
    EXPECT_EQ(3007, x.media_type);
    EXPECT_STREQ("fr", x.language);
}

TEST(Info, StreamTwinsCheckTheHandle) {
    auto f(open(trackEntry(1, 2, "A_FLAC", {bin_el(mkv::CodecPrivate, Bytes{1, 2})})));
    qmkvd_info_aud a;
    int32_t size = 0;
    EXPECT_EQ(-7, qmkvds_get_info_aud(nullptr, &a));
    EXPECT_EQ(-2, qmkvds_get_info_aud(&f->inst->streams[0], &a)) << "not open";
    qmkvds *s = qmkvds_open(f->inst, 0, nullptr);
    ASSERT_NE(nullptr, s);
    EXPECT_EQ(0, qmkvds_get_info_aud(s, &a));
    EXPECT_EQ(0, qmkvds_get_format(s, nullptr, &size));
    EXPECT_EQ(2, size);
    EXPECT_EQ(-7, qmkvd_get_format(f->inst, 0, nullptr, nullptr));
    int64_t pos = 0, cluster = 0, time = 0;
    uint32_t frames = 0;
    EXPECT_EQ(QMKVD_ERR_IMPOSSIBLE, qmkvds_get_block_pos(s, &pos, &frames, &cluster, &time)) << "no frame read yet";
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvds_get_block_pos(s, nullptr, &frames, &cluster, &time));
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvds_get_block_pos(s, &pos, nullptr, &cluster, &time));
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvds_get_block_pos(s, &pos, &frames, nullptr, &time));
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvds_get_block_pos(s, &pos, &frames, &cluster, nullptr));
    qmkvds_close(s);
}

}  // namespace
