// Seeking over crafted files: cues, the crawl, modes, bad cues, the index
// table.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "demux/qmkvd_codec.h"
#include "demux/qmkvds.h"
#include "tests/support/file_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

const int64_t kSecond = 10000000;  // 100 ns units

// VP8 frames: the key-frame test looks at bytes 3-5.
Bytes vp8Frame(bool key, uint8_t tag) {
    return key ? Bytes{0x10, 0x02, 0x00, 0x9D, 0x01, 0x2A, tag, tag} : Bytes{0x10, 0x02, 0, 0, 0, 0, tag, tag};
}

// Video track 1 (VP8) and audio track 2 (FLAC); one Cluster per second for
// `seconds` seconds, each with a key frame at its start, then 24 more video
// frames and an audio block every 100 ms. Cues (for the video track) at
// every `cueEvery` seconds unless 0; `cueBias` moves every cue position but
// the first. `stripped`: the video track's frames are stored without the
// two bytes they all begin with (header stripping).
Bytes makeFile(int seconds, int cueEvery, int64_t cueBias = 0, bool keyFrames = true, bool stripped = false) {
    const Bytes prefix = {0x10, 0x02};
    // A SeekHead first, so that cue positions count from the Segment's data.
    auto seekHead = [](uint64_t infoPos) {
        return el(mkv::SeekHead, {el(mkv::Seek, {bin_el(mkv::SeekID, ebml_id(mkv::Info)), uint_el(mkv::SeekPosition, infoPos, 8)})});
    };
    Bytes body = cat({seekHead(seekHead(0).size()), segmentInfo(seconds * 1000.0),
                      tracks({stripped ? trackEntry(1, 1, "V_VP8", {encodings({compression(3, prefix)})})
                                       : trackEntry(1, 1, "V_VP8"),
                              trackEntry(2, 2, "A_FLAC")})});
    Bytes points;
    for (int s = 0; s < seconds; ++s) {
        Bytes blocks;
        for (int i = 0; i < 25; ++i) {
            const bool key = i == 0 && keyFrames;
            Bytes frame = vp8Frame(key, (uint8_t)i);
            if (stripped) frame.erase(frame.begin(), frame.begin() + (long)prefix.size());
            blocks = cat({blocks, simpleBlock(1, (int16_t)(i * 40), key ? 0x80 : 0x00, frame)});
            if (i % 2 == 0 && i < 20)
                blocks = cat({blocks, simpleBlock(2, (int16_t)(i * 50), 0x80, Bytes{(uint8_t)s, (uint8_t)i, 0xAA})});
        }
        if (cueEvery > 0 && s % cueEvery == 0) {
            const uint64_t pos = (uint64_t)((int64_t)body.size() + (s > 0 ? cueBias : 0));
            points = cat({points, el(mkv::CuePoint, {uint_el(mkv::CueTime, (uint64_t)s * 1000),
                                                     el(mkv::CueTrackPositions, {uint_el(mkv::CueTrack, 1),
                                                                                 uint_el(mkv::CueClusterPosition, pos, 8)})})});
        }
        body = cat({body, el(mkv::Cluster, cat({uint_el(mkv::Timecode, (uint64_t)s * 1000), blocks}))});
    }
    if (cueEvery > 0) body = cat({body, el(mkv::Cues, points)});
    return cat({ebmlHeader(), el(mkv::Segment, body)});
}

// The first frame read after a seek (a failed test when there is none).
const CoreFrame &first(const CoreSeek &r) {
    static const CoreFrame none;
    EXPECT_FALSE(r.frames.empty());
    return r.frames.empty() ? none : r.frames[0];
}

TEST(CueSeek, ModesLandOnTheRightCue) {
    struct { const char *name; int64_t time; int32_t mode; int32_t result; int64_t landed; } cases[] = {
        {"zero_prev", 0, 0, 0, 0}, {"zero_closest", 0, 3, 0, 0},
        {"prev_7s", 7 * kSecond, 0, 0, 5 * kSecond}, {"next_7s", 7 * kSecond, 1, 0, 10 * kSecond},
        {"closest_7s", 7 * kSecond, 3, 0, 5 * kSecond}, {"closest_tie_7_5s", 75 * kSecond / 10, 3, 0, 5 * kSecond},
        {"closest_8s", 8 * kSecond, 3, 0, 10 * kSecond}, {"exact_5s_next", 5 * kSecond, 1, 0, 5 * kSecond},
        {"next_past_last_cue", 11 * kSecond, 1, 1, 0}, {"prev_past_last_cue", 11 * kSecond, 0, 0, 10 * kSecond},
        {"mode_4", 3 * kSecond, 4, -3, 0}};
    // Cues at 0, 5 and 10 s in a 12 s file.
    CoreFile f(makeFile(12, 5));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(3u, f.inst->cues.cue_count);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const CoreSeek r = seekCoreFrames(f.inst, 0, c.time, c.mode);
        EXPECT_EQ(c.result, r.result);
        if (c.result != 0) continue;
        EXPECT_EQ(c.landed, r.found);
        EXPECT_EQ(c.landed, first(r).pts) << "the first frame read is the cue's";
        EXPECT_EQ(1u, first(r).key);
        EXPECT_EQ((size_t)((12 * kSecond - c.landed) / (kSecond / 25)), r.frames.size()) << "reads on to the end";
    }
}

TEST(Seek, PastTheLastCueEndsTheStreamUntilTheNextSeek) {
    CoreFile f(makeFile(12, 5));
    qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
    uint64_t t = 11 * kSecond;
    int64_t found = -1;
    EXPECT_EQ(1, qmkvds_seek(s, &t, &found, 1));
    uint32_t size;
    Bytes buf(100);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(1, qmkvds_get_frm(s, buf.data(), 100, &size, nullptr, nullptr, nullptr));
    t = 0;
    EXPECT_EQ(0, qmkvds_seek(s, &t, &found, 0));
    EXPECT_EQ(0, qmkvds_get_frm(s, buf.data(), 100, &size, nullptr, nullptr, nullptr));
    qmkvds_close(s);
}

TEST(Seek, PreviousCueStepsBackFromTheLastOneUsed) {
    CoreFile f(makeFile(12, 2));  // cues every 2 s
    qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
    uint64_t t = 9 * kSecond;
    int64_t found = -1;
    ASSERT_EQ(0, qmkvds_seek(s, &t, &found, 0));
    EXPECT_EQ(8 * kSecond, found);
    // Down to the first cue, which it stays on.
    for (int64_t expected : {6 * kSecond, 4 * kSecond, 2 * kSecond, 0 * kSecond, 0 * kSecond}) {
        ASSERT_EQ(0, qmkvds_seek(s, nullptr, &found, 2));
        EXPECT_EQ(expected, found);
    }
    qmkvds_close(s);
}

TEST(Crawl, WithoutCues) {
    struct { int64_t time; int32_t mode; int64_t video; int64_t audio; } cases[] = {
        {7 * kSecond + 1, 0, 8 * kSecond, 7 * kSecond + 1000000},  // at or after: next key / next audio block
        {7 * kSecond, 1, 7 * kSecond, 7 * kSecond},
        {3 * kSecond + 500000, 3, 4 * kSecond, 3 * kSecond + 1000000},
    };
    // The key-frame test sees a stripped frame's bytes with its prefix.
    for (bool stripped : {false, true}) {
        SCOPED_TRACE(stripped ? "stripped" : "whole");
        CoreFile f(makeFile(12, 0, 0, true, stripped));
        ASSERT_NE(nullptr, f.inst);
        ASSERT_EQ(0, f.inst->found_cues);
        for (const auto &c : cases) {
            const CoreSeek v = seekCoreFrames(f.inst, 0, c.time, c.mode);
            ASSERT_EQ(0, v.result) << c.time;
            EXPECT_EQ(c.video, v.found);
            EXPECT_EQ(c.video, first(v).pts);
            EXPECT_EQ(1u, first(v).key);
            const CoreSeek a = seekCoreFrames(f.inst, 1, c.time, c.mode);
            ASSERT_EQ(0, a.result);
            EXPECT_EQ(c.audio, first(a).pts) << "audio resumes at its first block at or after the target";
            EXPECT_TRUE(std::is_sorted(a.frames.begin(), a.frames.end(),
                                       [](const CoreFrame &x, const CoreFrame &y) { return x.pts < y.pts; }));
        }
        EXPECT_EQ(1, seekCoreFrames(f.inst, 0, 11 * kSecond + 500000, 1).result) << "no key frame after the target";
        EXPECT_EQ(-3, seekCoreFrames(f.inst, 0, 3 * kSecond, 2).result) << "previous-cue mode needs cues";
    }
}

TEST(Crawl, KeyFrameBeyondTheBudget) {
    // 60 s without a single key frame after the first cluster: 1500 frames.
    CoreFile f(makeFile(60, 0, 0, false));
    ASSERT_NE(nullptr, f.inst);
    LogCapture log;
    EXPECT_EQ(-2, seekCoreFrames(f.inst, 0, 1 * kSecond, 1).result);
    EXPECT_TRUE(log.has("qmkvd", "No Key frame found within next 1024 frames"));
}

TEST(Crawl, ClusterListIsBuiltOncePerStream) {
    CoreFile f(makeFile(12, 0));
    qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
    uint64_t t = 5 * kSecond;
    int64_t found;
    ASSERT_EQ(0, qmkvds_seek(s, &t, &found, 1));
    int nodes = 0;
    for (qmkvd_cluster_node *n = s->demux->cluster_list; n != nullptr; n = n->next) nodes++;
    EXPECT_EQ(12, nodes);
    const int reads = f.file.mem.readCalls;
    t = 9 * kSecond;
    ASSERT_EQ(0, qmkvds_seek(s, &t, &found, 1));
    EXPECT_LT(f.file.mem.readCalls - reads, 40) << "a second seek walks the list, not the file";
    EXPECT_EQ(9 * kSecond, found);
    EXPECT_EQ(nullptr, qmkvds_find_cluster_list(nullptr, 0));
    EXPECT_EQ(s->demux->cluster_list, qmkvds_find_cluster_list(s->demux->cluster_list, -5));
    EXPECT_EQ(12000000000ll - 1000000000, qmkvds_find_cluster_list(s->demux->cluster_list, 1ll << 60)->time);
    qmkvds_close(s);
}

TEST(Cues, PointingAtNonClustersAreCondemned) {
    LogCapture log;
    CoreFile f(makeFile(12, 5, 3));  // positions after the first 3 bytes off
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(1, f.inst->found_cues);
    const CoreSeek r = seekCoreFrames(f.inst, 0, 7 * kSecond, 0);
    ASSERT_EQ(0, r.result);
    EXPECT_EQ(0, f.inst->found_cues) << "condemned for the whole file";
    EXPECT_EQ(0u, f.inst->cues.cue_count);
    EXPECT_EQ(7 * kSecond, r.found) << "the crawl found the key frame at 7 s";
    EXPECT_EQ(1u, first(r).key);
}

TEST(IndexTable, CueTimesOfTheVideoTrack) {
    CoreFile f(makeFile(12, 5));
    uint32_t size = 0, count = 0;
    ASSERT_EQ(0, qmkvd_get_idx_table(f.inst, 0, nullptr, 0, &size, &count));
    EXPECT_EQ(48u, size);
    EXPECT_EQ(3u, count);
    std::vector<qmkvd_idx_entry> table(3, qmkvd_idx_entry{9, 9, 9});
    EXPECT_EQ(-8, qmkvd_get_idx_table(f.inst, 0, table.data(), 47, &size, &count));
    EXPECT_EQ(9, table[0].time) << "nothing written";
    ASSERT_EQ(0, qmkvd_get_idx_table(f.inst, 0, table.data(), 48, &size, &count));
    EXPECT_EQ((std::vector<int64_t>{0, 5 * kSecond, 10 * kSecond}),
              (std::vector<int64_t>{table[0].time, table[1].time, table[2].time}));
    EXPECT_EQ(0u, table[1].flags);
    EXPECT_EQ(-3, qmkvd_get_idx_table(f.inst, 1, nullptr, 0, &size, &count)) << "audio";
    EXPECT_EQ(-7, qmkvd_get_idx_table(f.inst, 2, nullptr, 0, &size, &count));
    CoreFile none(makeFile(3, 0));
    EXPECT_EQ(-3, qmkvd_get_idx_table(none.inst, 0, nullptr, 0, &size, &count)) << "no cues";
}

}  // namespace
