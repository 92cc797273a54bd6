// Seeking real files, with and without cues, against libavformat's frames
// and key frames.
#include <gtest/gtest.h>

#include <algorithm>

#include "demux/qmkvds.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

// The frames after a seek must be libavformat's packets of that track from
// some point on, in order, to the end. Returns that point or -1.
long matchesTail(const std::vector<CoreFrame> &ours, const std::vector<std::vector<uint8_t>> &theirs) {
    if (ours.empty()) return -1;
    for (size_t k = 0; k < theirs.size(); ++k) {
        if (theirs[k] != ours[0].data || theirs.size() - k != ours.size()) continue;
        bool same = true;
        for (size_t i = 1; same && i < ours.size(); ++i) same = theirs[k + i] == ours[i].data;
        if (same) return (long)k;
    }
    return -1;
}

class RealSeek : public ::testing::TestWithParam<std::string> {};

TEST_P(RealSeek, LandsOnKeyFramesAndReadsOnToTheEnd) {
    QMKV_REQUIRE_CORPUS();
    const std::string path = corpusFile(GetParam());
    CoreFile core(readBytes(path));
    AvFile av = avOpen(path);
    ASSERT_NE(nullptr, core.inst);
    ASSERT_TRUE(av.ok);
    const std::vector<AvPacket> packets = av.readAll();
    const bool cues = core.inst->found_cues != 0;
    const int64_t durationUs = core.format.duration / 10;

    // Cue times of the video track (track 0 in these files), in µs.
    std::vector<int64_t> cueUs;
    if (cues) {
        uint32_t size = 0, count = 0;
        ASSERT_EQ(0, qmkvd_get_idx_table(core.inst, 0, nullptr, 0, &size, &count));
        std::vector<qmkvd_idx_entry> table(count);
        ASSERT_EQ(0, qmkvd_get_idx_table(core.inst, 0, table.data(), size, &size, &count));
        for (const qmkvd_idx_entry &e : table) cueUs.push_back(e.time / 10);
    }
    ASSERT_EQ(1, core.format.track_type[0]);
    const std::vector<int64_t> keyUs = av.keyFrameTimesUs(0);
    ASSERT_FALSE(keyUs.empty());

    for (int t = 0; t < 2; ++t) {
        std::vector<std::vector<uint8_t>> theirs;
        for (const AvPacket &p : packets)
            if (p.stream == t)
                theirs.push_back(t == 0 && core.inst->streams[0].nal_length_size > 0
                                     ? toStartCodes(p.data, core.inst->streams[0].nal_length_size)
                                     : p.data);
        for (int32_t mode : {0, 1, 3}) {
            for (int64_t target = 0; target < durationUs; target += durationUs / 13 + 17) {
                SCOPED_TRACE("track " + std::to_string(t) + " mode " + std::to_string(mode) + " target " +
                             std::to_string(target));
                const CoreSeek s = seekCoreFrames(core.inst, t, (uint64_t)target * 10, mode);
                const int64_t foundUs = s.found / 10;
                if (s.result == 1) {
                    // Nothing at or after the target: past the last cue, or,
                    // crawling (every mode goes forward), past the last key frame.
                    if (cues) {
                        EXPECT_EQ(1, mode);
                        EXPECT_GT(target, cueUs.back());
                    } else {
                        EXPECT_GT(target, t == 0 ? keyUs.back() : 0);
                    }
                    continue;
                }
                ASSERT_EQ(0, s.result);
                ASSERT_FALSE(s.frames.empty());
                EXPECT_GE(matchesTail(s.frames, theirs), 0) << "frames after the seek are the file's, in order, to the end";
                if (target == 0 && mode != 1) {
                    EXPECT_EQ(0, s.found) << "a seek to 0 rewinds";
                    EXPECT_EQ(0, matchesTail(s.frames, theirs)) << "from the first frame";
                    continue;
                }
                if (t == 0) {
                    EXPECT_EQ(1u, s.frames[0].key);
                    EXPECT_EQ(foundUs, s.frames[0].pts / 10);
                    EXPECT_TRUE(std::find(keyUs.begin(), keyUs.end(), foundUs) != keyUs.end()) << foundUs;
                }
                if (cues) {
                    // The cue chosen by the mode; audio uses the video cues.
                    auto after = std::lower_bound(cueUs.begin(), cueUs.end(), target);
                    auto before = std::upper_bound(cueUs.begin(), cueUs.end(), target);
                    int64_t expected;
                    if (mode == 1) {
                        expected = *after;
                    } else if (before == cueUs.begin()) {
                        expected = 0;  // before the first cue: back to the start
                    } else {
                        expected = *(before - 1);
                        if (mode == 3 && before != cueUs.end() && *before - target < target - expected) expected = *before;
                    }
                    EXPECT_EQ(expected, foundUs);
                } else if (t == 0) {
                    // The crawl: the first key frame at or after the target.
                    auto key = std::lower_bound(keyUs.begin(), keyUs.end(), target);
                    ASSERT_NE(keyUs.end(), key);
                    EXPECT_EQ(*key, foundUs);
                } else {
                    EXPECT_GE(s.frames[0].pts / 10, target) << "audio resumes at or after the target";
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, RealSeek,
                         ::testing::Values("h264_aac_30s.mkv", "h264_aac_cues_front.mkv", "mkvmerge_nocues.mkv",
                                           "mkvmerge_h264_aac.mkv", "vp9_opus.webm", "hdrstrip_h264.mkv",
                                           "live_gst_h264_aac.mkv", "live_gst_vp8_opus.mkv", "live_ff_h264_aac.mkv",
                                           "live_pipe_vp9_opus.mkv"),
                         testName);

}  // namespace
