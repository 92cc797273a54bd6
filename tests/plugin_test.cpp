// The plug-in driven as the framework drives it: definition, sniffing, the
// extractor's queries, track formats and the track sources.
#include <gtest/gtest.h>

#include <string.h>

#include <android-base/properties.h>
#include <host/CallingUid.h>
#include <host/ExtractorHost.h>
#include <media/stagefright/FileSource.h>

#include "demux/qmkvd_codec.h"
#include "qextractorcmn/ExtMediaFormatDef.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_source.h"
#include "tests/support/mkv_builder.h"

extern "C" android::ExtractorDef GETEXTRACTORDEF();

using namespace qmkv_test;
using qmkvhost::Extractor;
using qmkvhost::Plugin;
using qmkvhost::Sample;
using qmkvhost::Track;

namespace {

std::unique_ptr<Plugin> plugin() {
    std::string error;
    std::unique_ptr<Plugin> p = Plugin::fromEntry(GETEXTRACTORDEF, &error);
    EXPECT_NE(nullptr, p) << error;
    return p;
}

int32_t getInt32(AMediaFormat *f, const char *key, int32_t otherwise = INT32_MIN) {
    int32_t v = otherwise;
    AMediaFormat_getInt32(f, key, &v);
    return v;
}

std::string getString(AMediaFormat *f, const char *key) {
    const char *v = nullptr;
    return AMediaFormat_getString(f, key, &v) ? v : "<none>";
}

Bytes getBuffer(AMediaFormat *f, const char *key) {
    void *data = nullptr;
    size_t size = 0;
    if (!AMediaFormat_getBuffer(f, key, &data, &size)) return {};
    return Bytes(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + size);
}

struct Opened {
    std::unique_ptr<Plugin> plugin;
    std::unique_ptr<MemorySource> memory;
    std::unique_ptr<android::FileSource> file;
    std::unique_ptr<Extractor> ex;
    std::vector<AMediaFormat *> formats;
    AMediaFormat *fileMeta = nullptr;
    ~Opened() {
        ex.reset();
        for (AMediaFormat *f : formats) AMediaFormat_delete(f);
        AMediaFormat_delete(fileMeta);
    }
    void readFormats() {
        fileMeta = AMediaFormat_new();
        ex->getMetaData(fileMeta);
        for (size_t i = 0; i < ex->countTracks(); ++i) {
            formats.push_back(AMediaFormat_new());
            ex->getTrackMetaData(formats.back(), i, 0);
        }
    }
};

// The sniffer needs 128 bytes; crafted files are often smaller, so a Void
// element after the Segment pads them.
std::unique_ptr<Opened> openBytes(Bytes bytes) {
    bytes = cat({bytes, el(mkv::Void, Bytes(128, 0))});
    auto o = std::make_unique<Opened>();
    o->plugin = plugin();
    o->memory = std::make_unique<MemorySource>(std::move(bytes));
    o->ex = o->plugin->open(o->memory->source());
    if (o->ex != nullptr) o->readFormats();
    return o;
}

std::unique_ptr<Opened> openFile(const std::string &path) {
    auto o = std::make_unique<Opened>();
    o->plugin = plugin();
    o->file = std::make_unique<android::FileSource>(path.c_str());
    o->ex = o->plugin->open(o->file->wrap());
    if (o->ex != nullptr) o->readFormats();
    return o;
}

TEST(PluginDef, DescribesThePlugin) {
    std::unique_ptr<Plugin> p = plugin();
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(3u, p->def().def_version);
    EXPECT_STREQ("QRT MKV Extractor", p->def().extractor_name);
    EXPECT_EQ(1u, p->def().extractor_version);
    EXPECT_EQ((std::vector<std::string>{"mkv", "mka"}), p->supportedTypes());
}

TEST(Sniff, FindsTheMatroskaDocTypeInTheFirst128Bytes) {
    const Bytes doc = {0x42, 0x82, 0x88, 'm', 'a', 't', 'r', 'o', 's', 'k', 'a'};
    struct { const char *name; size_t offset; size_t size; bool claimed; } cases[] = {
        {"at_0", 0, 128, true}, {"at_116", 116, 128, true}, {"at_117", 117, 200, false},
        {"short_source", 0, 127, false}};
    for (const auto &c : cases) {
        Bytes b(c.size, 0);
        if (c.offset + doc.size() <= b.size()) std::copy(doc.begin(), doc.end(), b.begin() + (long)c.offset);
        MemorySource src(b);
        LogCapture log;
        std::unique_ptr<Plugin> p = plugin();
        qmkvhost::SniffResult r = p->sniff(src.source());
        EXPECT_EQ(c.claimed, (bool)r) << c.name;
        if (c.claimed) {
            EXPECT_FLOAT_EQ(0.7f, r.confidence);
        }
        EXPECT_EQ(c.size < 128, log.has("QMKVExtractorSO", "can't read buffer size of maxScanOffset")) << c.name;
    }
    MemorySource webm(cat({ebmlHeader("webm"), Bytes(200, 0)}));
    EXPECT_FALSE((bool)plugin()->sniff(webm.source())) << "WebM is not claimed";
}

TEST(Extractor, FailedFilesListNoTracks) {
    // Claimed by the sniffer but not a usable file.
    auto o = openBytes(cat({ebmlHeader(), Bytes(200, 0)}));
    ASSERT_NE(nullptr, o->ex);
    EXPECT_EQ(0u, o->ex->countTracks());
    EXPECT_EQ(nullptr, o->ex->getTrack(0));
    AMediaFormat *meta = AMediaFormat_new();
    EXPECT_EQ(AMEDIA_ERROR_UNKNOWN, o->ex->getMetaData(meta));
    AMediaFormat_delete(meta);
    // Only subtitles: refused as a whole.
    auto subs = openBytes(file({segmentInfo(), tracks({trackEntry(1, 0x11, "S_TEXT/UTF8")}),
                                clusterOf(0, {simpleBlock(1, 0, 0x80, Bytes{'h', 'i'})})}));
    ASSERT_NE(nullptr, subs->ex);
    EXPECT_EQ(0u, subs->ex->countTracks());
}

TEST(Extractor, UnsupportedTracksAreListedWithTheirStatus) {
    auto o = openBytes(file({segmentInfo(), tracks({trackEntry(1, 2, "A_DTS"), trackEntry(2, 1, "V_DIRAC"),
                                                     trackEntry(3, 0x11, "S_VOBSUB"), trackEntry(4, 2, "A_FLAC")}),
                             clusterOf(0, {simpleBlock(4, 0, 0x80, Bytes{1, 2})})}));
    ASSERT_NE(nullptr, o->ex);
    ASSERT_EQ(4u, o->formats.size());
    AMediaFormat *dts = o->formats[0];
    EXPECT_EQ(-1002, getInt32(dts, AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_EQ(0x2001, getInt32(dts, AMEDIAFORMAT_KEY_TRACK_FOURCC));
    EXPECT_EQ(1, getInt32(dts, AMEDIAFORMAT_KEY_ERROR_LOGGABLE));
    AMediaFormat *dirac = o->formats[1];
    EXPECT_EQ(-1002, getInt32(dirac, AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_EQ((int32_t)QMKVD_FOURCC('*', 'D', 'I', 'R'), getInt32(dirac, AMEDIAFORMAT_KEY_TRACK_FOURCC));
    EXPECT_EQ(1572864, getInt32(dirac, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE));
    EXPECT_EQ(-1002, getInt32(o->formats[2], AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_EQ(0, getInt32(o->formats[3], AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_EQ("video/x-matroska", getString(o->fileMeta, AMEDIAFORMAT_KEY_MIME));
}

TEST(Extractor, VorbisHeaders) {
    auto vorbisPrivate = [](int idLen) {
        Bytes id((size_t)idLen, 0x11);
        id[0] = 1;
        Bytes comment = {3, 'c'};
        Bytes setup = {5, 's', 'e', 't'};
        return cat({Bytes{2, (uint8_t)idLen, (uint8_t)comment.size()}, id, comment, setup});
    };
    auto good = openBytes(file({segmentInfo(), tracks({trackEntry(1, 2, "A_VORBIS", {bin_el(mkv::CodecPrivate, vorbisPrivate(30))})}),
                                clusterOf(0, {simpleBlock(1, 0, 0x80, Bytes{1})})}));
    ASSERT_EQ(1u, good->formats.size());
    EXPECT_EQ(30u, getBuffer(good->formats[0], AMEDIAFORMAT_KEY_CSD_0).size());
    EXPECT_EQ(Bytes({5, 's', 'e', 't'}), getBuffer(good->formats[0], AMEDIAFORMAT_KEY_CSD_1));
    EXPECT_EQ("audio/x-matroska", getString(good->fileMeta, AMEDIAFORMAT_KEY_MIME));
    LogCapture log;
    Bytes bad = vorbisPrivate(30);
    bad[3] = 9;  // not an identification header
    auto broken = openBytes(file({segmentInfo(), tracks({trackEntry(1, 2, "A_VORBIS", {bin_el(mkv::CodecPrivate, bad)})}),
                                  clusterOf(0, {simpleBlock(1, 0, 0x80, Bytes{1})})}));
    ASSERT_EQ(1u, broken->formats.size());
    EXPECT_EQ(-1003, getInt32(broken->formats[0], AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_TRUE(log.contains("vorbis csd is malformed"));
}

TEST(Extractor, PcmEncodingForThePrivilegedCaller) {
    Bytes f = file({segmentInfo(), tracks({trackEntry(1, 2, "A_PCM/INT/LIT", {el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 48000.0),
                                                                                           uint_el(mkv::Channels, 1),
                                                                                           uint_el(mkv::BitDepth, 24)})})}),
                    clusterOf(0, {simpleBlock(1, 0, 0x80, Bytes(3000, 0x40))})});
    struct { uid_t uid; const char *prop; int32_t encoding; } cases[] = {
        {1000, "true", 2}, {1013, "true", 4}, {1013, "false", 2}};
    for (const auto &c : cases) {
        HostCallingUidScope uid(c.uid);
        android::base::SetProperty("media.extractor.float", c.prop);
        auto o = openBytes(f);
        ASSERT_EQ(1u, o->formats.size());
        EXPECT_EQ(c.encoding, getInt32(o->formats[0], AMEDIAFORMAT_KEY_PCM_ENCODING)) << c.uid << c.prop;
        std::unique_ptr<Track> t = o->ex->getTrack(0);
        ASSERT_EQ(AMEDIA_OK, t->start());
        Sample s;
        ASSERT_EQ(AMEDIA_OK, t->read(&s));
        EXPECT_EQ(c.encoding == 2 ? 2000u : 4000u, s->range_length()) << "1000 samples of 24 bits";
        t->stop();
    }
    android::base::SetProperty("media.extractor.float", "true");
}

TEST(TrackSource, ChecksEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string prefix = "frameworks/avcodec/mm_proprietary/libextractor/qmkv_extractor:";
    EXPECT_DEATH(
        {
            auto o = openBytes(minimalFile());
            std::unique_ptr<Track> t = o->ex->getTrack(0);
            t->start();
            t->start();
        },
        prefix + "1366 CHECK\\(!mStarted\\) failed\\.");
    EXPECT_DEATH(
        {
            auto o = openBytes(minimalFile());
            std::unique_ptr<Track> t = o->ex->getTrack(0);
            t->stop();
        },
        prefix + "1398 CHECK\\(mStarted\\) failed\\.");
    EXPECT_DEATH(
        {
            auto o = openBytes(minimalFile());
            std::unique_ptr<Track> t = o->ex->getTrack(0);
            Sample s;
            t->read(&s);
        },
        prefix + "1407 CHECK\\(mStarted\\) failed\\.");
}

// Every corpus file through the plug-in: what the core delivers, as samples.
class PluginFile : public ::testing::TestWithParam<std::string> {};

TEST_P(PluginFile, SamplesAreTheCoresFrames) {
    QMKV_REQUIRE_CORPUS();
    const std::string path = corpusFile(GetParam());
    auto o = openFile(path);
    ASSERT_NE(nullptr, o->ex);
    FileCore core(path);
    ASSERT_NE(nullptr, core.inst);
    ASSERT_EQ((size_t)core.format.track_count, o->formats.size());
    EXPECT_EQ(15u, o->ex->flags());
    EXPECT_EQ(nullptr, o->ex->getTrack(o->formats.size()));
    for (size_t i = 0; i < o->formats.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        AMediaFormat *f = o->formats[i];
        EXPECT_EQ(0, getInt32(f, AMEDIAFORMAT_KEY_ERROR_TYPE));
        EXPECT_NE("<none>", getString(f, AMEDIAFORMAT_KEY_MIME));
        const std::vector<CoreFrame> frames = readCoreFrames(core.inst, (int)i);
        std::unique_ptr<Track> t = o->ex->getTrack(i);
        ASSERT_EQ(AMEDIA_OK, t->start());
        const int32_t type = core.format.track_type[i];
        const uint32_t codec = core.format.track_codec_types[i];
        const bool converted = codec == 1 || codec == 3 || codec == QMKVD_FOURCC('l', 'p', 'c', 'm');
        size_t n = 0;
        Sample s;
        media_status_t status;
        while ((status = t->read(&s)) == AMEDIA_OK) {
            ASSERT_LT(n, frames.size());
            const CoreFrame &c = frames[n++];
            int64_t timeUs = -1;
            int32_t sync = -1;
            AMediaFormat_getInt64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US, &timeUs);
            AMediaFormat_getInt32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, &sync);
            EXPECT_EQ(c.pts / 10, timeUs);
            EXPECT_EQ((int32_t)c.key, sync);
            const uint8_t *data = static_cast<uint8_t *>(s->data()) + s->range_offset();
            if (type == 0x11 && !c.data.empty()) {
                ASSERT_EQ(c.data.size() + 1, s->range_length()) << "text gets a terminator";
                EXPECT_EQ(0, data[c.data.size()]);
                EXPECT_EQ(0, memcmp(data, c.data.data(), c.data.size()));
            } else if (!converted) {
                ASSERT_EQ(c.data.size(), s->range_length());
                EXPECT_TRUE(c.data.empty() || memcmp(data, c.data.data(), c.data.size()) == 0);
            }
        }
        EXPECT_EQ(AMEDIA_ERROR_END_OF_STREAM, status);
        EXPECT_EQ(frames.size(), n);
        t->stop();
    }
}

TEST_P(PluginFile, SeeksThroughReadOptions) {
    QMKV_REQUIRE_CORPUS();
    auto o = openFile(corpusFile(GetParam()));
    ASSERT_NE(nullptr, o->ex);
    int64_t durationUs = 0;
    AMediaFormat_getInt64(o->formats[0], AMEDIAFORMAT_KEY_DURATION, &durationUs);
    std::unique_ptr<Track> t = o->ex->getTrack(0);
    ASSERT_EQ(AMEDIA_OK, t->start());
    Sample s;
    const uint32_t seek = android::CMediaTrackReadOptions::SEEK;
    ASSERT_EQ(AMEDIA_OK, t->read(&s, seek | android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC, durationUs / 2));
    int64_t timeUs = -1;
    int32_t sync = 0;
    AMediaFormat_getInt64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US, &timeUs);
    AMediaFormat_getInt32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, &sync);
    EXPECT_EQ(1, sync);
    // With cues the previous sync point; without, the crawl goes forward.
    FileCore core(corpusFile(GetParam()));
    if (core.inst->found_cues) {
        EXPECT_LE(timeUs, durationUs / 2);
    } else {
        EXPECT_GE(timeUs, durationUs / 2 - 100000);
    }
    EXPECT_EQ(AMEDIA_ERROR_END_OF_STREAM, t->read(&s, seek, durationUs + 1000000)) << "beyond the duration";
    ASSERT_EQ(AMEDIA_OK, t->read(&s, seek, 0));
    AMediaFormat_getInt64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US, &timeUs);
    EXPECT_LT(timeUs, 100000) << "back at the start";
    t->stop();
}

INSTANTIATE_TEST_SUITE_P(Corpus, PluginFile,
                         ::testing::Values("h264_aac.mkv", "h264_aac_30s.mkv", "hevc_aac.mkv", "vp8_vorbis.mkv",
                                           "av1_opus.mkv", "mpeg4_mp3.mkv", "mpeg2_ac3.mkv", "eac3.mka", "flac.mka",
                                           "opus.mka", "mp3.mka", "pcm_s16le.mka", "pcm_s24le.mka", "pcm_u8.mka",
                                           "pcm_s16be.mka", "pcm_f32le.mka", "h264_srt.mkv", "h264_ass.mkv",
                                           "mkvmerge_h264_aac.mkv", "mkvmerge_nocues.mkv", "laced_vorbis.mka",
                                           "hdrstrip_h264.mkv", "hdrstrip_mp3.mkv"),
                         [](const ::testing::TestParamInfo<std::string> &p) {
                             std::string n = p.param;
                             for (char &c : n)
                                 if (!isalnum((unsigned char)c)) c = '_';
                             return n;
                         });

TEST(PluginMetadata, TagsBecomeFileKeys) {
    QMKV_REQUIRE_CORPUS();
    auto o = openFile(corpusFile("mkvmerge_meta.mkv"));
    ASSERT_NE(nullptr, o->ex);
    EXPECT_NE("<none>", getString(o->fileMeta, AMEDIAFORMAT_KEY_TITLE));
    EXPECT_NE("<none>", getString(o->fileMeta, AMEDIAFORMAT_KEY_ARTIST));
    const std::string enc = getString(o->fileMeta, AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES);
    EXPECT_NE(std::string::npos, enc.find(std::string(AMEDIAFORMAT_KEY_ARTIST) + "=3:")) << enc;
    EXPECT_NE(std::string::npos, enc.find(std::string(AMEDIAFORMAT_KEY_TITLE) + "=3:")) << enc;
    auto plain = openFile(corpusFile("h264_aac.mkv"));
    EXPECT_EQ("<none>", getString(plain->fileMeta, AMEDIAFORMAT_KEY_TITLE));
}

}  // namespace
