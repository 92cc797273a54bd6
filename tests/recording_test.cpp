// Recordings as they are written: no Duration, no Cues, a Segment and
// Clusters of unknown size, files cut off in the middle of a block; and
// elements standing between the EBML header and the Segment.
#include <gtest/gtest.h>

#include "demux/qmkvd_tail.h"
#include "demux/qmkvds.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/plugin_run.h"
#include "tests/support/temp_dir.h"

using namespace qmkv_test;

namespace {

const char *const kLiveFiles[] = {"live_gst_h264_aac.mkv", "live_gst_vp8_opus.mkv", "live_ff_h264_aac.mkv",
                                  "live_pipe_vp9_opus.mkv"};

std::string withCues(const std::string &live) { return live.substr(0, live.size() - 4) + "_cues.mkv"; }

// What libavformat reads of a file: its packets per stream (no attachments).
struct AvRead {
    std::vector<std::vector<AvPacket>> tracks;
    std::vector<int> numbers;  // each stream's TrackNumber
    int64_t endUs = 0;    // the latest packet end
    int64_t frameUs = 0;  // the longest packet: one frame
};

AvRead avRead(const std::string &path) {
    AvRead r;
    const AvFile f = avOpen(path);
    if (!f.ok) return r;
    r.tracks.resize(f.streams.size());
    for (const AvStream &s : f.streams) r.numbers.push_back(s.id);
    for (const AvPacket &p : f.readAll()) {
        if (p.stream < 0 || (size_t)p.stream >= r.tracks.size()) continue;
        r.endUs = std::max(r.endUs, p.pts_us + p.duration_us);
        r.frameUs = std::max(r.frameUs, p.duration_us);
        r.tracks[p.stream].push_back(p);
    }
    return r;
}

TEST(Recording, TheDurationIsTheEndOfTheLastFrameOnBothPaths) {
    QMKV_REQUIRE_CORPUS();
    TempDir dir;
    for (const char *name : kLiveFiles) {
        const Bytes whole = readBytes(corpusFile(name));
        // Whole, and cut off as a crashed recording or a broken download is.
        for (int percent : {100, 93, 71}) {
            SCOPED_TRACE(std::string(name) + " kept " + std::to_string(percent) + "%");
            const Bytes bytes(whole.begin(), whole.begin() + (long)(whole.size() * percent / 100));
            const std::string path = dir.path + "/cut.mkv";
            writeBytes(path, bytes);
            const AvRead av = avRead(path);
            ASSERT_GT(av.frameUs, 0);
            CoreFile core(bytes);
            ASSERT_NE(nullptr, core.inst);
            EXPECT_EQ(1, core.inst->duration_from_frames);
            EXPECT_NEAR(av.endUs, core.format.duration / 10, av.frameUs);
            PluginRun plugin(bytes);
            ASSERT_EQ((size_t)core.format.track_count, plugin.tracks());
            for (size_t t = 0; t < plugin.tracks(); ++t) EXPECT_NEAR(av.endUs, i64(plugin.formats[t], AMEDIAFORMAT_KEY_DURATION), av.frameUs);
        }
        // The same streams with a Duration keep it.
        CoreFile remux(readBytes(corpusFile(withCues(name))));
        ASSERT_NE(nullptr, remux.inst);
        EXPECT_EQ(0, remux.inst->duration_from_frames);
        EXPECT_NE(0u, remux.inst->info.duration_ticks);
    }
}

// How a crafted recording is laid out: five Clusters of ten VP8 frames at 25
// frames a second, a key frame first in each.
struct Layout {
    bool duration = false;  // the Info carries one
    bool unknownSizes = false;  // Segment and Clusters of unknown size
    bool cues = false;  // a CuePoint for each Cluster, before them
    Bytes tail;  // after the last Cluster
    Bytes last = Bytes(100, 7);  // the last frame's payload
    uint64_t lastDuration = 0;   // when set, the last frame is in a BlockGroup with this BlockDuration
};

Bytes recording(const Layout &l) {
    const int kClusters = 5;
    const Bytes info = l.duration ? segmentInfo(kClusters * 400.0) : el(mkv::Info, {uint_el(mkv::TimecodeScale, 1000000)});
    const Bytes head = cat({info, tracks({trackEntry(1, 1, "V_VP8", {uint_el(mkv::DefaultDuration, 40000000),
                                                                     el(mkv::Video, {uint_el(mkv::PixelWidth, 64),
                                                                                     uint_el(mkv::PixelHeight, 48)})})})});
    std::vector<Bytes> clusters;
    for (int c = 0; c < kClusters; ++c) {
        Bytes blocks = uint_el(mkv::Timecode, (uint64_t)c * 400);
        for (int f = 0; f < 10; ++f) {
            // A VP8 key frame's header (the crawl looks at the bit stream), or
            // bytes of an inter frame.
            const Bytes key = cat({{0x10, 0x02, 0x00, 0x9D, 0x01, 0x2A, 0x40, 0x00, 0x30, 0x00}, Bytes(90, 7)});
            const bool last = c == kClusters - 1 && f == 9;
            const Bytes &payload = last ? l.last : f == 0 ? key : Bytes(100, 7);
            const Bytes block = last && l.lastDuration != 0
                                    ? el(0xA0, {el(0xA1, cat({blockHeader(1, (int16_t)(f * 40), 0), payload})),
                                                uint_el(0x9B, l.lastDuration)})
                                    : simpleBlock(1, (int16_t)(f * 40), f == 0 ? 0x80 : 0, payload);
            blocks = cat({blocks, block});
        }
        clusters.push_back(l.unknownSizes ? cat({ebml_id(mkv::Cluster), ebml_unknown_size(8), blocks})
                                          : el(mkv::Cluster, blocks));
    }
    Bytes cues;
    if (l.cues) {
        // Positions count from the Segment's data; 4-byte fields keep the
        // Cues' own size fixed while they are worked out.
        Bytes points;
        uint64_t pos = head.size() + 4 + 1 + kClusters * 18;  // the Cues' ID, size and points
        for (int c = 0; c < kClusters; ++c) {
            points = cat({points, el(mkv::CuePoint, {uint_el(mkv::CueTime, (uint64_t)c * 400, 2),
                                                     el(mkv::CueTrackPositions, {uint_el(mkv::CueTrack, 1),
                                                                                 uint_el(mkv::CueClusterPosition, pos, 4)})})});
            pos += clusters[c].size();
        }
        cues = el(mkv::Cues, points);
    }
    Bytes body = cat({head, cues});
    for (const Bytes &c : clusters) body.insert(body.end(), c.begin(), c.end());
    body.insert(body.end(), l.tail.begin(), l.tail.end());
    return cat({ebmlHeader(), l.unknownSizes ? cat({ebml_id(mkv::Segment), ebml_unknown_size(8), body}) : el(mkv::Segment, body)});
}

TEST(Recording, CrawlsAndCuesCrossClustersOfUnknownSize) {
    for (const bool cues : {false, true}) {
        SCOPED_TRACE(cues ? "with Cues" : "without Cues");
        Layout l;
        l.unknownSizes = true;
        l.cues = cues;
        // The recording stopped right after it began a Cluster.
        const Bytes bytes = cat({recording(l), ebml_id(mkv::Cluster), ebml_unknown_size(8), uint_el(mkv::Timecode, 2000)});
        CoreFile core(bytes);
        ASSERT_NE(nullptr, core.inst);
        EXPECT_EQ(cues, core.inst->found_cues != 0);
        EXPECT_EQ(20000000, core.format.duration);
        EXPECT_EQ(50u, readCoreFrames(core.inst, 0).size());
        // Key frames every 400 ms; the crawl always goes forward.
        struct { int32_t mode; int64_t targetMs, landsMs; } seeks[] = {
            {QMKVDS_SEEK_NEXT, 1000, 1200}, {QMKVDS_SEEK_PREVIOUS, 1000, cues ? 800 : 1200},
            {QMKVDS_SEEK_CLOSEST, 1100, 1200}, {QMKVDS_SEEK_NEXT, 1700, 0}};
        for (const auto &k : seeks) {
            SCOPED_TRACE("mode " + std::to_string(k.mode) + " to " + std::to_string(k.targetMs) + " ms");
            const CoreSeek r = seekCoreFrames(core.inst, 0, (uint64_t)k.targetMs * 10000, k.mode);
            if (k.landsMs == 0) {
                EXPECT_EQ(QMKVD_END_OF_STREAM, r.result);
                continue;
            }
            ASSERT_EQ(0, r.result);
            EXPECT_EQ(k.landsMs * 10000, r.found);
            ASSERT_FALSE(r.frames.empty());
            EXPECT_EQ(k.landsMs * 10000, r.frames[0].pts);
            EXPECT_EQ((size_t)(2000 - k.landsMs) / 40, r.frames.size()) << "to the end, across the Clusters";
        }
        // The framework's seeks through the plug-in.
        PluginRun plugin(bytes);
        ASSERT_EQ(1u, plugin.tracks());
        const uint32_t seek = android::CMediaTrackReadOptions::SEEK;
        const auto after = plugin.read(0, seek | android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC, 1000000);
        ASSERT_FALSE(after.empty());
        EXPECT_EQ(cues ? 800000 : 1200000, after[0].second);
        EXPECT_EQ(cues ? 30u : 20u, after.size());
    }
}

TEST(Recording, TheTailIsReadInAFewBoundedReadsAndNotFooledByFrameBytes) {
    // A Cluster ID inside the last frame, followed by what no Cluster holds.
    // A size byte of 0xFF runs past the end of the file, as a cut Cluster's.
    const Bytes decoys[] = {
        {0x1F, 0x43, 0xB6, 0x75, 0xFF, 0xE7, 0x81, 0x09, 0xA3, 0x80},              // a block of size 0
        {0x1F, 0x43, 0xB6, 0x75, 0xFF, 0xA3, 0x84, 0x81, 0x00, 0x00, 0x80},        // no Timestamp first
        {0x1F, 0x43, 0xB6, 0x75, 0xFF, 0xE7, 0x81, 0x63, 0xA3, 0x84, 0x85, 0x00,  // a block of no track,
         0x00, 0x80, 0xA3, 0x84, 0x81, 0x00, 0x00, 0x80},                          // then one of track 1
        {0x1F, 0x43, 0xB6, 0x75, 0x89, 0xE7, 0x81, 0x63, 0xA3, 0x84, 0x81, 0x00,  // its size ends inside
         0x00, 0x80},                                                              // the frame
    };
    for (const Bytes &decoy : decoys) {
        Layout l;
        l.last = cat({Bytes(50, 7), decoy, Bytes(30, 7)});
        CoreFile core(recording(l));
        ASSERT_NE(nullptr, core.inst);
        EXPECT_EQ(20000000, core.format.duration) << "the last frame starts at 1.96 s and lasts 40 ms";
    }

    // Cluster IDs of unknown size, each inside a Void that the one before
    // it walks over: looking at every candidate in full would take the
    // square of the tail's length.
    Bytes nested;
    const Bytes unit = {0xEC, 0x8F, 0x1F, 0x43, 0xB6, 0x75, 0x01, 0xFF, 0xFF,
                        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xE7, 0x81, 0x00};
    while (nested.size() < (2u << 20)) nested.insert(nested.end(), unit.begin(), unit.end());
    // Durations in 100 ns.
    struct Case { const char *name; Bytes tail; int64_t duration; uint64_t lastDuration = 0; } cases[] = {
        {"the last frame in a BlockGroup lasting 100 ms", {}, 20600000, 100},
        {"2 MiB of nested Cluster IDs: the search gives up", el(mkv::Void, nested), 0},
        {"tail within the first piece", {}, 20000000},
        {"Cues-sized tail of 300 KiB", el(mkv::Void, Bytes(300 << 10, 0)), 20000000},
        {"the last Cluster 5 MiB from the end: length unknown", el(mkv::Void, Bytes(5 << 20, 0)), 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Layout l;
        l.tail = c.tail;
        l.lastDuration = c.lastDuration;
        const Bytes bytes = recording(l);
        CoreFile core(bytes);
        ASSERT_NE(nullptr, core.inst);
        EXPECT_EQ(c.duration, core.format.duration);
        EXPECT_EQ(c.duration != 0, core.inst->duration_from_frames != 0);
        // The search again, counted on its own.
        const int reads = core.file.mem.readCalls;
        const uint64_t asked = core.file.mem.askedBytes;
        EXPECT_EQ(c.duration != 0 ? c.duration * 100 : -1, qmkvd_find_end_ns(core.inst));
        EXPECT_GE(core.file.mem.readCalls - reads, 1);
        EXPECT_LE(core.file.mem.readCalls - reads, QMKVD_TAIL_PIECES);
        EXPECT_LE(core.file.mem.askedBytes - asked, (uint64_t)QMKVD_TAIL_BYTES);
        EXPECT_EQ(50u, readCoreFrames(core.inst, 0).size()) << "plays whatever its length";
        // and seeks: an unknown length rules no target out.
        PluginRun plugin(bytes);
        ASSERT_EQ(1u, plugin.tracks());
        const auto after = plugin.read(
            0, android::CMediaTrackReadOptions::SEEK | android::CMediaTrackReadOptions::SEEK_NEXT_SYNC, 1000000);
        ASSERT_EQ(20u, after.size());
        EXPECT_EQ(1200000, after[0].second) << "the key frame that starts the Cluster after 1 s";
    }
}

TEST(Recording, ElementsBeforeTheSegmentArePassedOver) {
    QMKV_REQUIRE_CORPUS();
    const Bytes original = readBytes(corpusFile("mkvmerge_h264_aac.mkv"));
    // The EBML header ends where the Segment's ID begins.
    const Bytes segmentId = ebml_id(mkv::Segment);
    const long split = std::search(original.begin(), original.end(), segmentId.begin(), segmentId.end()) - original.begin();
    const Bytes head(original.begin(), original.begin() + split), rest(original.begin() + split, original.end());
    CoreFile reference(original);
    ASSERT_NE(nullptr, reference.inst);
    Bytes sixteen;
    for (int i = 0; i < 16; ++i) sixteen = cat({sixteen, el(mkv::Void, Bytes(3, 0))});
    struct Case { const char *name; Bytes between; bool opens; } cases[] = {
        {"a Void", el(mkv::Void, Bytes(10, 0)), true},
        {"a Void with an 8-byte size", el(mkv::Void, Bytes(300, 0), 8), true},
        {"an empty Void and an unknown element", cat({el(mkv::Void, Bytes{}), el(0x4321, Bytes(5, 1))}), true},
        {"sixteen elements", sixteen, true},
        {"seventeen elements", cat({sixteen, el(mkv::Void, Bytes(3, 0))}), false},
        {"a Void that runs past the file", el_header(mkv::Void, 1u << 30), false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        CoreFile core(cat({head, c.between, rest}));
        if (!c.opens) {
            EXPECT_EQ(QMKVD_ERR_HEADER, core.error);
            EXPECT_TRUE(log.has("qmkvd_header", "[parser] segment is not founded"));
            continue;
        }
        ASSERT_NE(nullptr, core.inst);
        EXPECT_EQ(reference.format.duration, core.format.duration);
        ASSERT_EQ(reference.format.track_count, core.format.track_count);
        EXPECT_EQ(reference.inst->cues.cue_count, core.inst->cues.cue_count);
        for (int t = 0; t < core.format.track_count; ++t) {
            const std::vector<CoreFrame> a = readCoreFrames(reference.inst, t), b = readCoreFrames(core.inst, t);
            ASSERT_EQ(a.size(), b.size());
            for (size_t i = 0; i < a.size(); ++i) ASSERT_TRUE(a[i].pts == b[i].pts && a[i].data == b[i].data);
        }
        PluginRun plugin(cat({head, c.between, rest}));
        EXPECT_EQ((size_t)reference.format.track_count, plugin.tracks());
    }
}

TEST(Recording, SeeksLandWhereTheRemuxWithCuesLandsOnBothPaths) {
    QMKV_REQUIRE_CORPUS();
    for (const char *name : kLiveFiles) {
        SCOPED_TRACE(name);
        const Bytes live = readBytes(corpusFile(name)), cued = readBytes(corpusFile(withCues(name)));
        CoreFile a(live), b(cued);
        ASSERT_NE(nullptr, a.inst);
        ASSERT_NE(nullptr, b.inst);
        ASSERT_EQ(0, a.inst->found_cues);
        ASSERT_EQ(1, b.inst->found_cues);
        ASSERT_EQ(1, a.format.track_type[0]);
        PluginRun pa(live), pb(cued);
        const int64_t durationUs = a.format.duration / 10;
        int landed = 0;
        for (int k = 0; k < 10; ++k) {
            const int64_t targetUs = durationUs * k / 10 + 12345;
            SCOPED_TRACE("target " + std::to_string(targetUs));
            // The next key frame, through the core's crawl and through its cues.
            const CoreSeek sa = seekCoreFrames(a.inst, 0, (uint64_t)targetUs * 10, QMKVDS_SEEK_NEXT);
            const CoreSeek sb = seekCoreFrames(b.inst, 0, (uint64_t)targetUs * 10, QMKVDS_SEEK_NEXT);
            EXPECT_EQ(sb.result, sa.result);
            EXPECT_TRUE(sa.result != 0 || sa.found == sb.found) << sa.found << " against " << sb.found;
            EXPECT_EQ(sb.frames.size(), sa.frames.size());
            landed += sa.result == 0;
            // The framework's next-sync seek through the plug-in.
            const uint32_t seek = android::CMediaTrackReadOptions::SEEK | android::CMediaTrackReadOptions::SEEK_NEXT_SYNC;
            const auto fa = pa.read(0, seek, targetUs), fb = pb.read(0, seek, targetUs);
            // mkvmerge rewrites some H.264 units: the same frames, not the same bytes.
            ASSERT_EQ(fb.size(), fa.size());
            for (size_t i = 0; i < fa.size(); ++i) ASSERT_EQ(fb[i].second, fa[i].second);
        }
        EXPECT_GE(landed, 8) << "all but the targets after the last key frame land";
    }
}

// Every corpus file cut at 50 evenly spaced points, one shard of the corpus
// per test.
class CutOff : public ::testing::TestWithParam<int> {};

TEST_P(CutOff, DeliversAPrefixOfTheWholeFileAndAtLeastWhatLibavformatDoes) {
    QMKV_REQUIRE_CORPUS();
    const int kShards = 8;
    TempDir dir;
    const std::string cutPath = dir.path + "/cut.mkv";
    const std::vector<std::string> files = corpusFiles();
    for (size_t n = (size_t)GetParam(); n < files.size(); n += kShards) {
        const std::string &name = files[n];
        const Bytes whole = readBytes(corpusFile(name));
        CoreFile full(whole);
        ASSERT_NE(nullptr, full.inst) << name;
        const bool claimed = PluginRun(whole).tracks() > 0;  // not WebM
        std::vector<std::vector<CoreFrame>> frames;
        for (int t = 0; t < full.format.track_count; ++t) frames.push_back(readCoreFrames(full.inst, t));
        for (int i = 1; i <= 50; ++i) {
            const size_t cut = whole.size() * (size_t)i / 51;
            SCOPED_TRACE(name + " cut at " + std::to_string(cut));
            const Bytes bytes(whole.begin(), whole.begin() + (long)cut);
            CoreFile core(bytes);
            if (core.inst == nullptr) continue;  // cut before the first Cluster
            if (full.inst->duration_from_frames == 0) {
                EXPECT_EQ(full.format.duration, core.format.duration) << "an Info's Duration stands";
            }
            writeBytes(cutPath, bytes);
            const AvRead av = avRead(cutPath);
            PluginRun plugin(bytes);
            ASSERT_EQ(claimed ? (size_t)core.format.track_count : 0u, plugin.tracks());
            for (int t = 0; t < core.format.track_count; ++t) {
                const std::vector<CoreFrame> got = readCoreFrames(core.inst, t);
                ASSERT_LE(got.size(), frames[t].size());
                for (size_t k = 0; k < got.size(); ++k) {
                    ASSERT_EQ(frames[t][k].pts, got[k].pts) << "track " << t << " frame " << k;
                    ASSERT_TRUE(frames[t][k].data == got[k].data) << "track " << t << " frame " << k;
                }
                const bool text = core.format.track_type[t] == 0x11;  // gaps are empty samples
                const auto samples = claimed ? plugin.read((size_t)t) : decltype(plugin.read(0)){};
                EXPECT_EQ(claimed ? got.size() : 0u, samples.size()) << "track " << t;
                for (size_t k = 0; !text && k < got.size(); ++k) {
                    ASSERT_FALSE(got[k].data.empty()) << "track " << t << " frame " << k;
                    ASSERT_TRUE(!claimed || samples[k].first != 0) << "track " << t << " sample " << k;
                }
                // The core keeps fewer tracks than libavformat lists (it
                // drops what it cannot carry): matched by TrackNumber.
                const int number = (int)core.inst->streams[t].track.track_number;
                for (size_t k = 0; !text && k < av.numbers.size(); ++k) {
                    if (av.numbers[k] != number) continue;
                    EXPECT_GE(got.size(), av.tracks[k].size()) << "track " << t;
                }
                // A seek into what is there lands on one of its frames; Cues
                // may point past the cut (a read failure, -1).
                if (got.empty()) continue;
                const CoreSeek r = seekCoreFrames(core.inst, t, (uint64_t)got[got.size() / 2].pts, QMKVDS_SEEK_NEXT);
                EXPECT_TRUE(r.result == 0 || r.result == QMKVD_END_OF_STREAM ||
                            (r.result == QMKVD_ERR_READ && core.inst->found_cues))
                    << "track " << t << ": " << r.result;
                if (!r.frames.empty()) {
                    EXPECT_TRUE(std::any_of(got.begin(), got.end(), [&](const CoreFrame &f) { return f.pts == r.frames[0].pts; }))
                        << "track " << t;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CutOff, ::testing::Range(0, 8));

}  // namespace
