// The core against libavformat over the real-muxer corpus: tracks, codec
// codes, durations, cues, and every frame's bytes, times and key flags; and
// seeks, with and without cues, against libavformat's frames and key frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "demux/qmkvd_codec.h"
#include "demux/qmkvds.h"
#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

// The codec code our table gives each libavcodec codec of the corpus.
uint32_t expectedCode(const std::string &avCodec) {
    static const std::map<std::string, uint32_t> kCodes = {
        {"h264", QMKVD_FOURCC('A', 'V', 'C', '1')}, {"hevc", QMKVD_FOURCC('h', 'e', 'v', '1')},
        {"vp8", QMKVD_FOURCC('V', 'P', '8', '0')},  {"vp9", QMKVD_FOURCC('V', 'P', '9', '0')},
        {"av1", QMKVD_FOURCC('a', 'v', '0', '1')},  {"mpeg4", QMKVD_FOURCC('M', 'P', '4', 'V')},
        {"mpeg2video", QMKVD_FOURCC('m', 'p', 'g', '2')}, {"theora", QMKVD_FOURCC('T', 'H', 'E', 'O')},
        {"aac", 0xFF}, {"mp3", 0x55}, {"ac3", 0x2000}, {"eac3", QMKVD_FOURCC('e', 'c', '-', '3')},
        {"flac", 0xF1AC}, {"vorbis", 0x2674F}, {"opus", QMKVD_FOURCC('O', 'p', 'u', 's')},
        {"pcm_s16le", 1}, {"pcm_s24le", 1}, {"pcm_s32le", 1}, {"pcm_u8", 1},
        {"pcm_s16be", QMKVD_FOURCC('l', 'p', 'c', 'm')}, {"pcm_s24be", QMKVD_FOURCC('l', 'p', 'c', 'm')},
        {"pcm_s32be", QMKVD_FOURCC('l', 'p', 'c', 'm')}, {"pcm_f32le", 3},
        {"subrip", QMKVD_FOURCC('S', 'S', 'R', 'T')}, {"ass", QMKVD_FOURCC('S', 'A', 'S', 'S')},
        {"ssa", QMKVD_FOURCC('S', 'A', 'S', 'S')},
    };
    auto it = kCodes.find(avCodec);
    return it == kCodes.end() ? 0xFFFFFFFFu : it->second;
}

int32_t expectedType(int avMediaType) {
    switch (avMediaType) {
        case kAvVideo: return 1;
        case kAvAudio: return 2;
        case kAvSubtitle: return 0x11;
        default: return -1;
    }
}

// Pairs each kept core track with its libavformat stream. Streams the core
// drops (zlib-compressed tracks) are passed over.
std::vector<int> matchStreams(const CoreFile &core, const AvFile &av) {
    std::vector<int> match;
    size_t a = 0;
    for (int t = 0; t < core.format.track_count; ++t) {
        while (a < av.streams.size() && (expectedCode(av.streams[a].codec_name) != core.format.track_codec_types[t] ||
                                         expectedType(av.streams[a].media_type) != core.format.track_type[t]))
            ++a;
        match.push_back(a < av.streams.size() ? (int)a++ : -1);
    }
    return match;
}

bool isAudioOnly(const AvFile &av) {
    for (const AvStream &s : av.streams)
        if (s.media_type != kAvAudio) return false;
    return true;
}

// A corpus file opened by the core and by libavformat, with libavformat's packets.
class OpenedFile : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        QMKV_REQUIRE_CORPUS();
        const std::string path = corpusFile(GetParam());
        core = std::make_unique<CoreFile>(readBytes(path));
        av = avOpen(path);
        ASSERT_TRUE(av.ok) << av.error;
        ASSERT_EQ(0, core->error);
        ASSERT_NE(nullptr, core->inst);
        packets = av.readAll();
    }
    std::unique_ptr<CoreFile> core;
    AvFile av;
    std::vector<AvPacket> packets;
};

class RealFile : public OpenedFile {};

TEST_P(RealFile, HasTheTracksAndFramesLibavformatSees) {
    const std::vector<int> match = matchStreams(*core, av);
    const int kept = core->format.track_count;
    int avTracks = 0;
    for (const AvStream &s : av.streams) avTracks += s.media_type <= kAvSubtitle;
    if (GetParam().rfind("zlib", 0) == 0) {
        EXPECT_LT(kept, avTracks) << "zlib-compressed tracks are dropped";
    } else {
        EXPECT_EQ(avTracks, kept);
    }
    // Duration in 100 ns, to the microsecond.
    if (av.duration_us != kAvNoTime) {
        EXPECT_NEAR(av.duration_us, core->format.duration / 10, 1000);
    }
    // Cue points that name audio tracks are dropped, so audio-only files
    // have none; every other file here but one has an index.
    if (isAudioOnly(av) || GetParam() == "mkvmerge_nocues.mkv") {
        EXPECT_EQ(0u, core->inst->cues.cue_count);
    } else {
        EXPECT_GT(core->inst->cues.cue_count, 0u);
        EXPECT_EQ(2, core->format.index_count);
    }
    for (int t = 0; t < core->format.track_count; ++t) {
        SCOPED_TRACE("track " + std::to_string(t));
        EXPECT_GE(match[(size_t)t], 0) << "codec " << std::hex << core->format.track_codec_types[t];
        if (match[(size_t)t] < 0) continue;
        const qmkvds &slot = core->inst->streams[t];
        int32_t last = 0;
        std::vector<CoreFrame> ours = readCoreFrames(core->inst, t, &last);
        EXPECT_EQ(1, last) << "the track reads to its end";
        if (slot.stream_type == QMKVD_TRACK_SUBTITLE) {
            // Empty samples fill gaps between subtitles; libavformat has none.
            std::vector<CoreFrame> text;
            for (CoreFrame &f : ours)
                if (!f.data.empty()) text.push_back(std::move(f));
            ours.swap(text);
        }
        std::vector<const AvPacket *> theirs;
        for (const AvPacket &p : packets)
            if (p.stream == match[(size_t)t]) theirs.push_back(&p);

        std::vector<uint8_t> ourBytes, theirBytes;
        for (const CoreFrame &f : ours) ourBytes.insert(ourBytes.end(), f.data.begin(), f.data.end());
        for (const AvPacket *p : theirs) {
            const std::vector<uint8_t> d = slot.nal_length_size > 0 ? toStartCodes(p->data, slot.nal_length_size) : p->data;
            theirBytes.insert(theirBytes.end(), d.begin(), d.end());
        }
        EXPECT_EQ(theirBytes.size(), ourBytes.size());
        EXPECT_TRUE(theirBytes == ourBytes) << "concatenated frame bytes differ";

        // A whole laced block is one frame for the batch audio codecs.
        const bool wholeBlocks = slot.stream_type == QMKVD_TRACK_AUDIO && slot.get_frm == qmkvds_get_frm_default;
        // libavformat takes the codec delay off every time; blocks carry it.
        const int64_t delayUs = (int64_t)((slot.track.codec_delay + 500000) / 1000000) * 1000;
        // Frames after the first of a laced block get times of our own making.
        const bool laced = GetParam().find("laced") != std::string::npos || GetParam().rfind("mkvmerge", 0) == 0 ||
                           GetParam().rfind("hdrstrip", 0) == 0;
        if (!wholeBlocks) {
            ASSERT_EQ(theirs.size(), ours.size());
            std::map<int64_t, uint32_t> framesPerBlock;  // as libavformat splits the blocks
            for (const AvPacket *p : theirs) framesPerBlock[p->pos]++;
            for (size_t i = 0; i < ours.size(); ++i) {
                EXPECT_EQ(theirs[i]->pos, ours[i].blockPos) << "frame " << i;
                EXPECT_EQ(framesPerBlock[theirs[i]->pos], ours[i].laces) << "frame " << i;
                if (theirs[i]->pts_us != kAvNoTime && (slot.stream_type != QMKVD_TRACK_AUDIO || !laced)) {
                    EXPECT_EQ(std::max<int64_t>(0, theirs[i]->pts_us + delayUs), ours[i].pts / 10) << "frame " << i;
                }
                if (slot.stream_type == QMKVD_TRACK_VIDEO) {
                    // Key flags come from the block's flags byte alone, which a
                    // Block inside a BlockGroup does not set.
                    const bool key = GetParam() == "mkvmerge_blockgroups.mkv" ? false : theirs[i]->key;
                    EXPECT_EQ(key, ours[i].key == 1) << "frame " << i;
                }
            }
        } else {
            EXPECT_LE(ours.size(), theirs.size());
        }
    }
}

// The recordings have tests of their own; so have the tracks of colour_hdr and theora_alac.
INSTANTIATE_TEST_SUITE_P(Corpus, RealFile,
                         ::testing::ValuesIn(knownNamesBut({"live_", "colour_hdr.mkv", "theora_alac.mkv"})), testName);

class RealSeek : public OpenedFile {};

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

TEST_P(RealSeek, LandsOnKeyFramesAndReadsOnToTheEnd) {
    const bool cues = core->inst->found_cues != 0;
    const int64_t durationUs = core->format.duration / 10;

    // Cue times of the video track (track 0 in these files), in µs.
    std::vector<int64_t> cueUs;
    if (cues) {
        uint32_t size = 0, count = 0;
        ASSERT_EQ(0, qmkvd_get_idx_table(core->inst, 0, nullptr, 0, &size, &count));
        std::vector<qmkvd_idx_entry> table(count);
        ASSERT_EQ(0, qmkvd_get_idx_table(core->inst, 0, table.data(), size, &size, &count));
        for (const qmkvd_idx_entry &e : table) cueUs.push_back(e.time / 10);
    }
    ASSERT_EQ(1, core->format.track_type[0]);
    const std::vector<int64_t> keyUs = av.keyFrameTimesUs(0);
    ASSERT_FALSE(keyUs.empty());

    for (int t = 0; t < 2; ++t) {
        std::vector<std::vector<uint8_t>> theirs;
        for (const AvPacket &p : packets)
            if (p.stream == t)
                theirs.push_back(t == 0 && core->inst->streams[0].nal_length_size > 0
                                     ? toStartCodes(p.data, core->inst->streams[0].nal_length_size)
                                     : p.data);
        for (int32_t mode : {0, 1, 3}) {
            for (int64_t target = 0; target < durationUs; target += durationUs / 13 + 17) {
                SCOPED_TRACE("track " + std::to_string(t) + " mode " + std::to_string(mode) + " target " +
                             std::to_string(target));
                const CoreSeek s = seekCoreFrames(core->inst, t, (uint64_t)target * 10, mode);
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
