// Track formats through the plug-in against independent readings: codec
// configuration against libavformat's extradata, PCM against ffmpeg's own
// conversion to 16 bits, colour and HDR keys, unsupported codecs.
#include <gtest/gtest.h>

#include <stdio.h>

#include <host/ExtractorHost.h>
#include <media/stagefright/FileSource.h>

#include "qextractorcmn/ExtMediaFormatDef.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"

extern "C" android::ExtractorDef GETEXTRACTORDEF();

using namespace qmkv_test;

namespace {

using Bytes = std::vector<uint8_t>;

struct Opened {
    std::unique_ptr<qmkvhost::Plugin> plugin;
    std::unique_ptr<android::FileSource> file;
    std::unique_ptr<qmkvhost::Extractor> ex;
    std::vector<AMediaFormat *> formats;
    ~Opened() {
        ex.reset();
        for (AMediaFormat *f : formats) AMediaFormat_delete(f);
    }
};

std::unique_ptr<Opened> open(const std::string &path) {
    auto o = std::make_unique<Opened>();
    std::string error;
    o->plugin = qmkvhost::Plugin::fromEntry(GETEXTRACTORDEF, &error);
    o->file = std::make_unique<android::FileSource>(path.c_str());
    o->ex = o->plugin->open(o->file->wrap());
    if (o->ex == nullptr) return o;
    for (size_t i = 0; i < o->ex->countTracks(); ++i) {
        o->formats.push_back(AMediaFormat_new());
        o->ex->getTrackMetaData(o->formats.back(), i, 0);
    }
    return o;
}

Bytes buffer(AMediaFormat *f, const char *key) {
    void *d = nullptr;
    size_t n = 0;
    if (!AMediaFormat_getBuffer(f, key, &d, &n)) return {};
    return Bytes(static_cast<uint8_t *>(d), static_cast<uint8_t *>(d) + n);
}

std::string str(AMediaFormat *f, const char *key) {
    const char *v = nullptr;
    return AMediaFormat_getString(f, key, &v) ? v : "";
}

int32_t i32(AMediaFormat *f, const char *key) {
    int32_t v = INT32_MIN;
    AMediaFormat_getInt32(f, key, &v);
    return v;
}

Bytes startCoded(const uint8_t *p, size_t n) {
    Bytes out = {0, 0, 0, 1};
    out.insert(out.end(), p, p + n);
    return out;
}

// The first SPS and the first PPS of an avcC record, in start-code form.
std::pair<Bytes, Bytes> avcParameterSets(const Bytes &avcc) {
    size_t o = 6;
    const size_t sps = avcc[5] & 0x1F;
    Bytes first;
    for (size_t i = 0; i < sps; ++i) {
        const size_t len = (size_t)(avcc[o] << 8 | avcc[o + 1]);
        if (i == 0) first = startCoded(&avcc[o + 2], len);
        o += 2 + len;
    }
    const size_t len = (size_t)(avcc[o + 1] << 8 | avcc[o + 2]);
    return {first, startCoded(&avcc[o + 3], len)};
}

// Every NAL unit of an hvcC record, in start-code form.
Bytes hevcParameterSets(const Bytes &hvcc) {
    Bytes out;
    size_t o = 23;
    for (size_t a = 0; a < hvcc[22]; ++a) {
        const size_t n = (size_t)(hvcc[o + 1] << 8 | hvcc[o + 2]);
        o += 3;
        for (size_t k = 0; k < n; ++k) {
            const size_t len = (size_t)(hvcc[o] << 8 | hvcc[o + 1]);
            const Bytes nal = startCoded(&hvcc[o + 2], len);
            out.insert(out.end(), nal.begin(), nal.end());
            o += 2 + len;
        }
    }
    return out;
}

class Formats : public ::testing::TestWithParam<std::string> {};

TEST_P(Formats, MatchLibavformat) {
    QMKV_REQUIRE_CORPUS();
    const std::string path = corpusFile(GetParam());
    auto o = open(path);
    ASSERT_NE(nullptr, o->ex);
    AvFile av = avOpen(path);
    ASSERT_TRUE(av.ok);
    std::vector<const AvStream *> streams;
    for (const AvStream &s : av.streams)
        if (s.media_type <= kAvSubtitle) streams.push_back(&s);
    ASSERT_EQ(streams.size(), o->formats.size()) << "every track is listed";
    for (size_t i = 0; i < streams.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i) + " " + streams[i]->codec_name);
        AMediaFormat *f = o->formats[i];
        const AvStream &s = *streams[i];
        const std::string mime = str(f, AMEDIAFORMAT_KEY_MIME);
        if (s.media_type == kAvVideo) {
            EXPECT_EQ(s.width, i32(f, AMEDIAFORMAT_KEY_WIDTH));
            EXPECT_EQ(s.height, i32(f, AMEDIAFORMAT_KEY_HEIGHT));
        }
        if (s.media_type == kAvAudio) {
            EXPECT_EQ(s.sample_rate, i32(f, AMEDIAFORMAT_KEY_SAMPLE_RATE));
            EXPECT_EQ(s.channels, i32(f, AMEDIAFORMAT_KEY_CHANNEL_COUNT));
        }
        auto lang = s.metadata.find("language");
        if (s.media_type != kAvVideo && lang != s.metadata.end() && lang->second.size() == 3) {
            EXPECT_EQ(lang->second, str(f, AMEDIAFORMAT_KEY_LANGUAGE));
        }
        const Bytes csd0 = buffer(f, AMEDIAFORMAT_KEY_CSD_0), csd1 = buffer(f, AMEDIAFORMAT_KEY_CSD_1);
        if (s.codec_name == "h264") {
            EXPECT_EQ("video/avc", mime);
            const auto ps = avcParameterSets(s.extradata);
            EXPECT_EQ(ps.first, csd0);
            EXPECT_EQ(ps.second, csd1);
        } else if (s.codec_name == "hevc") {
            EXPECT_EQ("video/hevc", mime);
            EXPECT_EQ(hevcParameterSets(s.extradata), csd0);
        } else if (s.codec_name == "aac") {
            EXPECT_EQ(s.extradata, csd0) << "the AudioSpecificConfig";
            EXPECT_EQ(2, i32(f, AMEDIAFORMAT_KEY_AAC_PROFILE));
        } else if (s.codec_name == "opus") {
            EXPECT_EQ(s.extradata, csd0) << "OpusHead";
            EXPECT_EQ(8u, csd1.size());
            EXPECT_EQ(8u, buffer(f, AMEDIAFORMAT_KEY_CSD_2).size());
        } else if (s.codec_name == "vorbis") {
            // Xiph-laced identification, comment and setup headers.
            const Bytes &x = s.extradata;
            ASSERT_EQ(2, x[0]);
            const size_t a = x[1], b = x[2];
            EXPECT_EQ(Bytes(x.begin() + 3, x.begin() + 3 + (long)a), csd0);
            EXPECT_EQ(Bytes(x.begin() + 3 + (long)(a + b), x.end()), csd1);
        }
        EXPECT_EQ(0, i32(f, AMEDIAFORMAT_KEY_ERROR_TYPE));
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, Formats,
                         ::testing::Values("h264_aac.mkv", "hevc_aac.mkv", "vp8_vorbis.mkv", "av1_opus.mkv",
                                           "mpeg4_mp3.mkv", "mkvmerge_meta.mkv", "laced_vorbis.mka", "opus.mka",
                                           "h264_srt.mkv", "mkvmerge_h264_aac.mkv"),
                         [](const ::testing::TestParamInfo<std::string> &p) {
                             std::string n = p.param;
                             for (char &c : n)
                                 if (!isalnum((unsigned char)c)) c = '_';
                             return n;
                         });

// ffmpeg's own conversion of the file's audio to 16-bit little-endian.
Bytes ffmpegS16(const std::string &path) {
    const std::string cmd = "ffmpeg -hide_banner -nostdin -loglevel error -i '" + path + "' -f s16le -";
    FILE *p = popen(cmd.c_str(), "r");
    Bytes out;
    if (p == nullptr) return out;
    uint8_t buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out.insert(out.end(), buf, buf + n);
    pclose(p);
    return out;
}

class Pcm : public ::testing::TestWithParam<std::string> {};

TEST_P(Pcm, ComesOutAsFfmpegsSixteenBits) {
    QMKV_REQUIRE_CORPUS();
    const std::string path = corpusFile(GetParam());
    auto o = open(path);
    ASSERT_NE(nullptr, o->ex);
    ASSERT_EQ(1u, o->formats.size());
    EXPECT_EQ(2, i32(o->formats[0], AMEDIAFORMAT_KEY_PCM_ENCODING));
    std::unique_ptr<qmkvhost::Track> t = o->ex->getTrack(0);
    ASSERT_EQ(AMEDIA_OK, t->start());
    Bytes ours;
    qmkvhost::Sample s;
    while (t->read(&s) == AMEDIA_OK) {
        const uint8_t *d = static_cast<const uint8_t *>(s->data()) + s->range_offset();
        ours.insert(ours.end(), d, d + s->range_length());
    }
    t->stop();
    const Bytes theirs = ffmpegS16(path);
    ASSERT_EQ(theirs.size(), ours.size());
    // Float samples may differ by one step where ffmpeg rounds a tie the
    // other way; integer conversions are exact.
    const int tolerance = GetParam() == "pcm_f32le.mka" ? 1 : 0;
    size_t mismatches = 0;
    for (size_t i = 0; i + 1 < ours.size(); i += 2) {
        const int a = (int16_t)(ours[i] | ours[i + 1] << 8), b = (int16_t)(theirs[i] | theirs[i + 1] << 8);
        if (abs(a - b) > tolerance) ++mismatches;
    }
    EXPECT_EQ(0u, mismatches);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Pcm,
                         ::testing::Values("pcm_u8.mka", "pcm_s16le.mka", "pcm_s24le.mka", "pcm_s32le.mka",
                                           "pcm_s16be.mka", "pcm_s24be.mka", "pcm_s32be.mka", "pcm_f32le.mka"),
                         [](const ::testing::TestParamInfo<std::string> &p) {
                             std::string n = p.param;
                             for (char &c : n)
                                 if (!isalnum((unsigned char)c)) c = '_';
                             return n;
                         });

TEST(PluginColour, ColourAndHdrKeys) {
    QMKV_REQUIRE_CORPUS();
    auto o = open(corpusFile("colour_hdr.mkv"));
    ASSERT_NE(nullptr, o->ex);
    AMediaFormat *v = o->formats[0];
    EXPECT_EQ(2, i32(v, AMEDIAFORMAT_KEY_COLOR_RANGE)) << "limited";
    EXPECT_EQ(6, i32(v, AMEDIAFORMAT_KEY_COLOR_STANDARD)) << "BT.2020";
    EXPECT_EQ(6, i32(v, AMEDIAFORMAT_KEY_COLOR_TRANSFER)) << "ST 2084";
    const Bytes hdr = buffer(v, AMEDIAFORMAT_KEY_HDR_STATIC_INFO);
    ASSERT_EQ(25u, hdr.size());
    auto u16 = [&](size_t at) { return hdr[at] | hdr[at + 1] << 8; };
    EXPECT_EQ(0, hdr[0]);
    EXPECT_EQ(35400, u16(1)) << "red x 0.708";
    EXPECT_EQ(15635, u16(13)) << "white x 0.3127";
    EXPECT_EQ(1000, u16(17)) << "max luminance";
    EXPECT_EQ(50, u16(19)) << "min luminance 0.005";
    EXPECT_EQ(1000, u16(21)) << "MaxCLL";
    EXPECT_EQ(400, u16(23)) << "MaxFALL";
}

TEST(PluginUnsupported, TracksOutsideTheWhitelistsAreListed) {
    QMKV_REQUIRE_CORPUS();
    auto o = open(corpusFile("theora_alac.mkv"));
    ASSERT_NE(nullptr, o->ex);
    ASSERT_EQ(2u, o->formats.size());
    for (AMediaFormat *f : o->formats) {
        EXPECT_EQ(-1002, i32(f, AMEDIAFORMAT_KEY_ERROR_TYPE));
        EXPECT_EQ(1, i32(f, AMEDIAFORMAT_KEY_ERROR_LOGGABLE));
    }
    EXPECT_EQ(0x4F454854, i32(o->formats[0], AMEDIAFORMAT_KEY_TRACK_FOURCC)) << "THEO";
    EXPECT_EQ(0x63616C61, i32(o->formats[1], AMEDIAFORMAT_KEY_TRACK_FOURCC)) << "alac";
    EXPECT_EQ("video/unknown", str(o->formats[0], AMEDIAFORMAT_KEY_MIME));
}

}  // namespace
