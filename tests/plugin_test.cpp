// The plug-in driven as the framework drives it: definition, sniffing, the
// extractor's queries, track formats and the track sources; formats and PCM
// against libavformat and ffmpeg.
#include <gtest/gtest.h>

#include <string.h>

#include <android-base/properties.h>
#include <qmkvhost/CallingUid.h>

#include "demux/qmkvd_codec.h"
#include "qextractorcmn/ExtMediaFormatDef.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_source.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/plugin_run.h"

using namespace qmkv_test;
using qmkvhost::Plugin;
using qmkvhost::Sample;
using qmkvhost::Track;

namespace {

// The sniffer needs 128 bytes; crafted files are often smaller, so a Void
// element after the Segment pads them.
std::unique_ptr<PluginRun> openBytes(const Bytes &bytes) {
    return std::make_unique<PluginRun>(cat({bytes, el(mkv::Void, Bytes(128, 0))}));
}

std::unique_ptr<PluginRun> openFile(const std::string &path) { return std::make_unique<PluginRun>(path); }

// One track of `entry` with one block of `payload`.
Bytes oneTrack(const Bytes &entry, const Bytes &payload = Bytes{1}) {
    return file({segmentInfo(), tracks({entry}), clusterOf(0, {simpleBlock(1, 0, 0x80, payload)})});
}

TEST(Plugin, DefinitionAndSniffingTheMatroskaDocTypeInTheFirst128Bytes) {
    std::unique_ptr<Plugin> def = loadPlugin();
    ASSERT_NE(nullptr, def);
    EXPECT_EQ(3u, def->def().def_version);
    EXPECT_STREQ("QRT MKV Extractor", def->def().extractor_name);
    EXPECT_EQ(1u, def->def().extractor_version);
    EXPECT_EQ((std::vector<std::string>{"mkv", "mka"}), def->supportedTypes());
    // DocType elements as writers encode them: the ID, a size field of 1 to 8
    // bytes, "matroska" and what follows it (zero bytes of padding).
    auto doc = [](const Bytes &size, const Bytes &after = {}) {
        return cat({{0x42, 0x82}, size, {'m', 'a', 't', 'r', 'o', 's', 'k', 'a'}, after});
    };
    const Bytes size8 = doc({0x01, 0, 0, 0, 0, 0, 0, 0x0B}, {0, 0, 0});
    struct { const char *name; Bytes element; size_t offset; size_t size; bool claimed; } cases[] = {
        {"at_0", doc({0x88}), 0, 128, true}, {"at_116", doc({0x88}), 116, 128, true},
        {"at_117", doc({0x88}), 117, 200, false}, {"short_source", doc({0x88}), 0, 127, false},
        {"zero_padded", doc({0x89}, {0}), 30, 128, true}, {"two_byte_size", doc({0x40, 0x08}), 115, 128, true},
        {"eight_byte_size_padded", size8, 106, 128, true}, {"eight_byte_size_at_107", size8, 107, 200, false},
        {"other_text_after", doc({0x89}, {'x'}), 0, 128, false}, {"size_7", doc({0x87}), 0, 128, false},
        {"unknown_size", doc({0xFF}), 0, 128, false}, {"bad_size_field", doc({0x00, 0x88}), 0, 128, false}};
    for (const auto &c : cases) {
        Bytes b(c.size, 0);
        const Bytes &d = c.element;
        if (c.offset + d.size() <= b.size()) std::copy(d.begin(), d.end(), b.begin() + (long)c.offset);
        MemorySource src(b);
        LogCapture log;
        qmkvhost::SniffResult r = loadPlugin()->sniff(src.source());
        EXPECT_EQ(c.claimed, (bool)r) << c.name;
        EXPECT_FLOAT_EQ(c.claimed ? 0.7f : 0.0f, r.confidence);
        EXPECT_EQ(c.size < 128, log.has("QMKVExtractorSO", "can't read buffer size of maxScanOffset")) << c.name;
    }
    MemorySource webm(cat({ebmlHeader("webm"), Bytes(200, 0)}));
    EXPECT_FALSE((bool)loadPlugin()->sniff(webm.source())) << "WebM is not claimed";
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
    auto subs = openBytes(oneTrack(trackEntry(1, 0x11, "S_TEXT/UTF8"), Bytes{'h', 'i'}));
    ASSERT_NE(nullptr, subs->ex);
    EXPECT_EQ(0u, subs->ex->countTracks());
}

TEST(Extractor, UnsupportedTracksAreListedWithTheirStatus) {
    auto o = openBytes(file({segmentInfo(), tracks({trackEntry(1, 2, "A_DTS"), trackEntry(2, 1, "V_DIRAC"),
                                                     trackEntry(3, 0x11, "S_VOBSUB"), trackEntry(4, 2, "A_FLAC")}),
                             clusterOf(0, {simpleBlock(4, 0, 0x80, Bytes{1, 2})})}));
    ASSERT_NE(nullptr, o->ex);
    ASSERT_EQ(4u, o->formats.size());
    for (int i : {0, 1, 2}) EXPECT_EQ(-1002, i32(o->formats[i], AMEDIAFORMAT_KEY_ERROR_TYPE)) << i;
    EXPECT_EQ(0x2001, i32(o->formats[0], AMEDIAFORMAT_KEY_TRACK_FOURCC));
    EXPECT_EQ(1, i32(o->formats[0], AMEDIAFORMAT_KEY_ERROR_LOGGABLE));
    EXPECT_EQ((int32_t)QMKVD_FOURCC('*', 'D', 'I', 'R'), i32(o->formats[1], AMEDIAFORMAT_KEY_TRACK_FOURCC));
    EXPECT_EQ(1572864, i32(o->formats[1], AMEDIAFORMAT_KEY_MAX_INPUT_SIZE));
    EXPECT_EQ(0, i32(o->formats[3], AMEDIAFORMAT_KEY_ERROR_TYPE));
    EXPECT_EQ("video/x-matroska", str(o->fileMeta, AMEDIAFORMAT_KEY_MIME));
    const char *const words[] = {"unsupported: codec 0x2001 is not in the audio whitelist",
                                 "unsupported: codec *DIR is not in the video whitelist",
                                 "unsupported: an unidentified codec is not in the subtitle whitelist", "plays"};
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(words[i], str(o->formats[i], AMEDIAFORMAT_KEY_TRACK_STATUS)) << i;
}

TEST(Extractor, MalformedConfigurationsFailTheTrackInTheParsersWords) {
    Bytes vorbis = cat({Bytes{2, 30, 2}, Bytes(30, 0x11), Bytes{3, 'c'}, Bytes{5, 's', 'e', 't'}});
    vorbis[3] = 9;  // not an identification header
    // One SPS, cut after its level, and one PPS.
    const Bytes avcC = {1, 0x42, 0, 0x1E, 0xFF, 0xE1, 0, 4, 0x67, 0x42, 0, 0x1E, 1, 0, 2, 0x68, 0xCE};
    LogCapture log;
    auto o = openBytes(file({segmentInfo(),
                             tracks({trackEntry(1, 2, "A_VORBIS", {bin_el(mkv::CodecPrivate, vorbis)}),
                                     trackEntry(2, 1, "V_MPEG4/ISO/AVC", {bin_el(mkv::CodecPrivate, avcC)}),
                                     trackEntry(3, 2, "A_AAC", {bin_el(mkv::CodecPrivate, {0x16, 0x90})})}),
                             clusterOf(0, {simpleBlock(1, 0, 0x80, Bytes{1})})}));
    ASSERT_EQ(3u, o->formats.size());
    const char *const words[] = {"Vorbis header packets malformed", "AVC SPS cut short",
                                 "AAC AudioSpecificConfig: reserved sampling frequency"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(-1003, i32(o->formats[i], AMEDIAFORMAT_KEY_ERROR_TYPE)) << i;
        EXPECT_EQ(std::string("bad codec configuration: ") + words[i],
                  str(o->formats[i], AMEDIAFORMAT_KEY_TRACK_STATUS));
    }
    EXPECT_TRUE(log.contains("vorbis csd is malformed"));
}

TEST(Extractor, PcmEncodingForThePrivilegedCaller) {
    const Bytes f = oneTrack(trackEntry(1, 2, "A_PCM/INT/LIT", {el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 48000.0),
                                                                                 uint_el(mkv::Channels, 1),
                                                                                 uint_el(mkv::BitDepth, 24)})}),
                             Bytes(3000, 0x40));
    struct { uid_t uid; const char *prop; int32_t encoding; } cases[] = {
        {1000, "true", 2}, {1013, "true", 4}, {1013, "false", 2}};
    for (const auto &c : cases) {
        HostCallingUidScope uid(c.uid);
        android::base::SetProperty("media.extractor.float", c.prop);
        auto o = openBytes(f);
        ASSERT_EQ(1u, o->formats.size());
        EXPECT_EQ(c.encoding, i32(o->formats[0], AMEDIAFORMAT_KEY_PCM_ENCODING)) << c.uid << c.prop;
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
    struct { void (*misuse)(Track *); const char *check; } cases[] = {
        {[](Track *t) { t->start(), t->start(); }, "1366 CHECK\\(!mStarted\\) failed\\."},
        {[](Track *t) { t->stop(); }, "1398 CHECK\\(mStarted\\) failed\\."},
        {[](Track *t) { Sample s; t->read(&s); }, "1407 CHECK\\(mStarted\\) failed\\."},
    };
    for (const auto &c : cases) {
        EXPECT_DEATH(c.misuse(openBytes(minimalFile())->ex->getTrack(0).get()), prefix + c.check);
    }
}

Bytes startCoded(const uint8_t *p, size_t n) { return qmkv_test::startCoded({Bytes(p, p + n)}); }

// The first SPS and the first PPS of an avcC record, in start-code form.
std::pair<Bytes, Bytes> avcParameterSets(const Bytes &avcc) {
    size_t o = 6;
    Bytes first;
    for (size_t i = 0; i < (size_t)(avcc[5] & 0x1F); ++i) {
        const size_t len = (size_t)(avcc[o] << 8 | avcc[o + 1]);
        if (i == 0) first = startCoded(&avcc[o + 2], len);
        o += 2 + len;
    }
    return {first, startCoded(&avcc[o + 3], (size_t)(avcc[o + 1] << 8 | avcc[o + 2]))};
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

// Track formats against libavformat's reading of the same file.
void expectFormat(AMediaFormat *f, const AvStream &s) {
    const std::string mime = str(f, AMEDIAFORMAT_KEY_MIME);
    EXPECT_NE("<none>", mime);
    EXPECT_EQ(s.codec_name == "theora" ? -1002 : 0, i32(f, AMEDIAFORMAT_KEY_ERROR_TYPE)) << "only Theora is refused";
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
    } else if (s.codec_name.rfind("pcm_", 0) == 0) {
        EXPECT_EQ(2, i32(f, AMEDIAFORMAT_KEY_PCM_ENCODING));
    }
}

// Every corpus file through the plug-in: formats as libavformat reads them,
// samples as the core delivers its frames, PCM as ffmpeg converts it, seeks.
class PluginFile : public ::testing::TestWithParam<std::string> {};

TEST_P(PluginFile, FormatsSamplesAndSeeksMatchTheCoreAndLibavformat) {
    QMKV_REQUIRE_CORPUS();
    const std::string path = corpusFile(GetParam());
    auto o = openFile(path);
    ASSERT_NE(nullptr, o->ex);
    CoreFile core(readBytes(path));
    ASSERT_NE(nullptr, core.inst);
    AvFile av = avOpen(path);
    ASSERT_TRUE(av.ok);
    std::vector<const AvStream *> streams;
    bool video = false;
    for (const AvStream &s : av.streams) {
        if (s.media_type <= kAvSubtitle) streams.push_back(&s);
        video |= s.media_type == kAvVideo;
    }
    ASSERT_EQ(streams.size(), o->formats.size()) << "every track is listed";
    ASSERT_EQ((size_t)core.format.track_count, o->formats.size());
    EXPECT_EQ(video ? "video/x-matroska" : "audio/x-matroska", str(o->fileMeta, AMEDIAFORMAT_KEY_MIME));
    EXPECT_EQ(15u, o->ex->flags());
    EXPECT_EQ(nullptr, o->ex->getTrack(o->formats.size()));
    for (size_t i = 0; i < o->formats.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i) + " " + streams[i]->codec_name);
        expectFormat(o->formats[i], *streams[i]);
        const std::vector<CoreFrame> frames = readCoreFrames(core.inst, (int)i);
        std::unique_ptr<Track> t = o->ex->getTrack(i);
        ASSERT_EQ(AMEDIA_OK, t->start());
        const uint32_t codec = core.format.track_codec_types[i];
        const bool converted = codec == 1 || codec == 3 || codec == QMKVD_FOURCC('l', 'p', 'c', 'm');
        size_t n = 0;
        Bytes pcm;
        Sample s;
        media_status_t status;
        while ((status = t->read(&s)) == AMEDIA_OK) {
            ASSERT_LT(n, frames.size());
            const CoreFrame &c = frames[n++];
            EXPECT_EQ(c.pts / 10, i64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US));
            EXPECT_EQ((int32_t)c.key, i32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME));
            const uint8_t *data = static_cast<uint8_t *>(s->data()) + s->range_offset();
            if (converted) {
                pcm.insert(pcm.end(), data, data + s->range_length());
            } else if (core.format.track_type[i] == 0x11 && !c.data.empty()) {
                ASSERT_EQ(c.data.size() + 1, s->range_length()) << "text gets a terminator";
                EXPECT_EQ(0, data[c.data.size()]);
                EXPECT_EQ(0, memcmp(data, c.data.data(), c.data.size()));
            } else {
                ASSERT_EQ(c.data.size(), s->range_length());
                EXPECT_TRUE(c.data.empty() || memcmp(data, c.data.data(), c.data.size()) == 0);
            }
        }
        EXPECT_EQ(AMEDIA_ERROR_END_OF_STREAM, status);
        EXPECT_EQ(frames.size(), n);
        t->stop();
        if (!converted) continue;
        // ffmpeg's own conversion to 16-bit little-endian.
        const Bytes theirs = commandOutput("ffmpeg -hide_banner -nostdin -loglevel error -i '" + path + "' -f s16le -");
        ASSERT_EQ(theirs.size(), pcm.size());
        // Float samples may differ by one step where ffmpeg rounds a tie the
        // other way; integer conversions are exact.
        const int tolerance = codec == 3 ? 1 : 0;
        size_t mismatches = 0;
        for (size_t k = 0; k + 1 < pcm.size(); k += 2) {
            const int a = (int16_t)(pcm[k] | pcm[k + 1] << 8), b = (int16_t)(theirs[k] | theirs[k + 1] << 8);
            mismatches += abs(a - b) > tolerance;
        }
        EXPECT_EQ(0u, mismatches) << "PCM as ffmpeg's own conversion to 16 bits";
    }
    // Seeks through the read options.
    const int64_t durationUs = i64(o->formats[0], AMEDIAFORMAT_KEY_DURATION);
    std::unique_ptr<Track> t = o->ex->getTrack(0);
    ASSERT_EQ(AMEDIA_OK, t->start());
    Sample s;
    const uint32_t seek = android::CMediaTrackReadOptions::SEEK;
    ASSERT_EQ(AMEDIA_OK, t->read(&s, seek | android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC, durationUs / 2));
    const int64_t timeUs = i64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US);
    // The flag is the landing block's own: GStreamer leaves it off some audio frames.
    const std::vector<CoreFrame> frames0 = readCoreFrames(core.inst, 0);
    auto landing = std::find_if(frames0.begin(), frames0.end(), [&](const CoreFrame &f) { return f.pts / 10 == timeUs; });
    ASSERT_NE(frames0.end(), landing);
    EXPECT_EQ(landing->key, i32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME));
    EXPECT_TRUE(landing->key || core.format.track_type[0] == 2) << "video lands on a key frame";
    // With cues the previous sync point; without, the crawl goes forward.
    if (core.inst->found_cues) {
        EXPECT_LE(timeUs, durationUs / 2);
    } else {
        EXPECT_GE(timeUs, durationUs / 2 - 100000);
    }
    EXPECT_EQ(AMEDIA_ERROR_END_OF_STREAM, t->read(&s, seek, durationUs + 1000000)) << "beyond the duration";
    ASSERT_EQ(AMEDIA_OK, t->read(&s, seek, 0));
    EXPECT_LT(i64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US), 100000) << "back at the start";
    t->stop();
}

INSTANTIATE_TEST_SUITE_P(Corpus, PluginFile,
                         // Not WebM (not claimed), nor files with a dropped track or only unsupported ones
                         // (theora_alac: below), nor Blocks in BlockGroups, which carry no key flag.
                         ::testing::ValuesIn(knownNamesBut({"vp9_opus.webm", "zlib_aac_srt.mkv", "theora_alac.mkv",
                                                            "mkvmerge_blockgroups.mkv"})),
                         testName);

TEST(PluginCorpus, TagsColourHdrAndUnsupportedTracks) {
    QMKV_REQUIRE_CORPUS();
    auto meta = openFile(corpusFile("mkvmerge_meta.mkv"));
    ASSERT_NE(nullptr, meta->ex);
    EXPECT_NE("<none>", str(meta->fileMeta, AMEDIAFORMAT_KEY_TITLE));
    EXPECT_NE("<none>", str(meta->fileMeta, AMEDIAFORMAT_KEY_ARTIST));
    const std::string enc = str(meta->fileMeta, AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES);
    EXPECT_NE(std::string::npos, enc.find(std::string(AMEDIAFORMAT_KEY_ARTIST) + "=3:")) << enc;
    EXPECT_NE(std::string::npos, enc.find(std::string(AMEDIAFORMAT_KEY_TITLE) + "=3:")) << enc;
    EXPECT_EQ("<none>", str(openFile(corpusFile("h264_aac.mkv"))->fileMeta, AMEDIAFORMAT_KEY_TITLE));

    auto hdr = openFile(corpusFile("colour_hdr.mkv"));
    ASSERT_NE(nullptr, hdr->ex);
    AMediaFormat *v = hdr->formats[0];
    EXPECT_EQ(2, i32(v, AMEDIAFORMAT_KEY_COLOR_RANGE)) << "limited";
    EXPECT_EQ(6, i32(v, AMEDIAFORMAT_KEY_COLOR_STANDARD)) << "BT.2020";
    EXPECT_EQ(6, i32(v, AMEDIAFORMAT_KEY_COLOR_TRANSFER)) << "ST 2084";
    const Bytes info = buffer(v, AMEDIAFORMAT_KEY_HDR_STATIC_INFO);
    ASSERT_EQ(25u, info.size());
    auto u16 = [&](size_t at) { return info[at] | info[at + 1] << 8; };
    EXPECT_EQ(0, info[0]);
    EXPECT_EQ(35400, u16(1)) << "red x 0.708";
    EXPECT_EQ(15635, u16(13)) << "white x 0.3127";
    EXPECT_EQ(1000, u16(17)) << "max luminance";
    EXPECT_EQ(50, u16(19)) << "min luminance 0.005";
    EXPECT_EQ(1000, u16(21)) << "MaxCLL";
    EXPECT_EQ(400, u16(23)) << "MaxFALL";

    auto un = openFile(corpusFile("theora_alac.mkv"));
    ASSERT_NE(nullptr, un->ex);
    ASSERT_EQ(2u, un->formats.size());
    for (AMediaFormat *f : un->formats) {
        EXPECT_EQ(-1002, i32(f, AMEDIAFORMAT_KEY_ERROR_TYPE));
        EXPECT_EQ(1, i32(f, AMEDIAFORMAT_KEY_ERROR_LOGGABLE));
    }
    EXPECT_EQ(0x4F454854, i32(un->formats[0], AMEDIAFORMAT_KEY_TRACK_FOURCC)) << "THEO";
    EXPECT_EQ(0x63616C61, i32(un->formats[1], AMEDIAFORMAT_KEY_TRACK_FOURCC)) << "alac";
    EXPECT_EQ("video/unknown", str(un->formats[0], AMEDIAFORMAT_KEY_MIME));
}

}  // namespace
