// Stream handles over crafted files: blocks, lacing, times, size queries,
// header stripping, gaps and damage.
#include <gtest/gtest.h>

#include <vector>

#include "demux/qmkvd_codec.h"
#include "demux/qmkvds.h"
#include "tests/support/file_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

Bytes bytesOf(int n, uint8_t seed) {
    Bytes b((size_t)n);
    for (int i = 0; i < n; ++i) b[(size_t)i] = (uint8_t)(seed + i);
    return b;
}

Bytes audioFile(const std::string &codec, const Bytes &cluster, std::initializer_list<Bytes> extra = {}) {
    return file({segmentInfo(), tracks({trackEntry(1, 2, codec, extra)}), cluster});
}

TEST(Stream, ReaderChoiceFollowsTheCodec) {
    struct { const char *codec; bool onebyone; } cases[] = {
        {"A_AAC", true}, {"A_VORBIS", true}, {"A_OPUS", true}, {"A_MPEG/L3", false}, {"A_AC3", false},
        {"A_EAC3", false}, {"A_FLAC", false}, {"A_PCM/INT/LIT", false}, {"A_PCM/INT/BIG", false},
        {"A_PCM/FLOAT/IEEE", false}, {"A_MPEG/L2", false}, {"A_DTS", true}};
    for (const auto &c : cases) {
        CoreFile f(audioFile(c.codec, cluster()));
        ASSERT_NE(nullptr, f.inst) << c.codec;
        EXPECT_EQ(c.onebyone ? qmkvds_get_frm_onebyone : qmkvds_get_frm_default, f.inst->streams[0].get_frm) << c.codec;
    }
}

// What a frame must be; an empty `data` and a negative time are not checked.
struct Want {
    Bytes data;
    int64_t pts = -1, end = -1;
};

// Each file's track 0 read to its end, with and without a size query first.
TEST(Stream, FramesOfCraftedBlocks) {
    const std::vector<Bytes> three = {bytesOf(300, 1), bytesOf(20, 2), bytesOf(7, 3)};
    const std::vector<Bytes> small = {bytesOf(4, 1), bytesOf(4, 2), bytesOf(4, 3)};
    const std::vector<Bytes> two = {bytesOf(4, 1), bytesOf(6, 2)};
    const std::vector<Bytes> four = {bytesOf(4, 1), bytesOf(5, 2), bytesOf(6, 3), bytesOf(7, 4)};
    const Bytes head = {0xFF, 0xFB};
    const Bytes strip = encodings({compression(3, head)});
    const Bytes vp8 = tracks({trackEntry(1, 1, "V_VP8")}), subs = tracks({trackEntry(1, 0x11, "S_TEXT/UTF8")});
    const Bytes timed = tracks({trackEntry(1, 1, "V_VP8", {uint_el(mkv::DefaultDuration, 40000000)})});
    const Bytes timedBlocks = clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(2, 1)), simpleBlock(1, 80, 0, bytesOf(2, 2)),
                                            simpleBlock(1, 40, 0, bytesOf(2, 3))});
    const Bytes group1 = el(0xA0, {el(0xA1, cat({blockHeader(1, 0, 0), Bytes{'h', 'i'}})), uint_el(0x9B, 1500)});
    const Bytes group2 = el(0xA0, {uint_el(0x9B, 1, 9), el(0xA1, cat({blockHeader(1, 2000, 0), Bytes{'x'}})),
                                   el(0xA1, cat({blockHeader(1, 2000, 0), Bytes{'y', 'o'}}))});
    struct {
        const char *name;
        Bytes file;
        std::vector<Want> want;
        uint32_t firstKey = 1;
        uint32_t openParams = QMKVD_OPEN_NO_DTS;
    } cases[] = {
        // The first block has no duration yet: its frames share its time.
        {"xiph_laced_one_frame_at_a_time",
         audioFile("A_AAC", clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(three)), simpleBlock(1, 30, 0x80, bytesOf(5, 9))})),
         {{three[0], 0}, {three[1], 0}, {three[2], 0}, {bytesOf(5, 9), 300000}}},
        {"ebml_laced_one_frame_at_a_time",
         audioFile("A_AAC", clusterOf(0, {simpleBlock(1, 0, 0x86, ebmlLace(three)), simpleBlock(1, 30, 0x80, bytesOf(5, 9))})),
         {{three[0], 0}, {three[1], 0}, {three[2], 0}, {bytesOf(5, 9), 300000}}},
        // Three blocks 30 ms apart set the duration: laced frames step by a third of it.
        {"lace_times_step_by_a_frame",
         audioFile("A_AAC", clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(3, 0)), simpleBlock(1, 30, 0x80, bytesOf(3, 0)),
                                          simpleBlock(1, 60, 0x82, xiphLace(small))})),
         {{}, {}, {small[0], 600000}, {small[1], 700000}, {small[2], 800000, 900000}}},
        {"two_frame_blocks_share_the_block_time",
         audioFile("A_VORBIS", clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(3, 0)), simpleBlock(1, 40, 0x82, xiphLace(two))})),
         {{}, {two[0], 400000}, {two[1], 400000}}},
        {"fixed_lacing_drops_the_remainder",  // 3 frames over 10 bytes
         audioFile("A_OPUS", clusterOf(0, {simpleBlock(1, 0, 0x84, cat({Bytes{2}, bytesOf(10, 1)}))})),
         {{{1, 2, 3}}, {{4, 5, 6}}, {{7, 8, 9}}}},
        {"batch_codec_takes_the_whole_block", audioFile("A_MPEG/L3", clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(four))})),
         {{cat({four[0], four[1], four[2], four[3]})}}},
        {"stripped_header_before_each_frame_of_a_batch",
         audioFile("A_MPEG/L3", clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(four))}), {strip}),
         {{cat({head, four[0], head, four[1], head, four[2], head, four[3]})}}},
        {"stripped_header_before_each_frame",
         audioFile("A_AAC", clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(four))}), {strip}),
         {{cat({head, four[0]})}, {cat({head, four[1]})}, {cat({head, four[2]})}, {cat({head, four[3]})}}},
        {"bad_lacing_skips_the_block_only",  // Xiph sizes adding up to more than the payload
         audioFile("A_VORBIS", clusterOf(0, {simpleBlock(1, 0, 0x82, cat({Bytes{1, 200}, bytesOf(10, 0)})),
                                             simpleBlock(1, 10, 0x80, bytesOf(3, 7))})),
         {{bytesOf(3, 7)}}},
        {"negative_time_clamped_only_in_a_cluster_at_zero",
         file({segmentInfo(), vp8, clusterOf(0, {simpleBlock(1, -3, 0x80, bytesOf(4, 1))}),
               clusterOf(10, {simpleBlock(1, -3, 0x80, bytesOf(4, 2))})}),
         {{bytesOf(4, 1), 0}, {bytesOf(4, 2), 70000}}},
        {"resynchronises_over_junk_between_clusters",
         file({segmentInfo(), vp8, clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(4, 1))}), el(mkv::Void, Bytes(3000, 0)),
               Bytes(2000, 0x00), clusterOf(40, {simpleBlock(1, 0, 0x80, bytesOf(4, 2))})}),
         {{bytesOf(4, 1), 0}, {bytesOf(4, 2), 400000}}},
        // The last Block of a group wins; a 9-byte BlockDuration is not read,
        // so the time since the last block counts.
        {"block_groups_and_durations", file({segmentInfo(), subs, clusterOf(0, {group1, el_header(0xA0, 0), group2})}),
         {{{'h', 'i'}, 0, 15000000}, {{'y', 'o'}, 20000000, 40000000}}, 0},
        {"times_as_stored", file({segmentInfo(), timed, timedBlocks}), {{}, {{}, 800000}, {{}, 400000}}},
        {"times_from_the_frame_count", file({segmentInfo(), timed, timedBlocks}), {{}, {{}, 400000}, {{}, 800000}}, 1, 0},
    };
    for (const auto &c : cases) {
        for (bool sizeFirst : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (sizeFirst ? "" : ", read straight"));
            CoreFile f(c.file, c.openParams);
            ASSERT_NE(nullptr, f.inst);
            int32_t last = 0;
            const std::vector<CoreFrame> got = readCoreFrames(f.inst, 0, &last, sizeFirst);
            EXPECT_EQ(1, last);
            ASSERT_EQ(c.want.size(), got.size());
            for (size_t i = 0; i < got.size(); ++i) {
                const Want &w = c.want[i];
                EXPECT_TRUE(w.data.empty() || w.data == got[i].data) << "frame " << i;
                EXPECT_TRUE(w.pts < 0 || w.pts == got[i].pts) << "frame " << i << " at " << got[i].pts;
                EXPECT_TRUE(w.end < 0 || w.end == got[i].end) << "frame " << i << " ends " << got[i].end;
            }
            EXPECT_EQ(c.firstKey, got[0].key);
        }
    }
}

TEST(Stream, SizeQueriesDoNotAdvance) {
    CoreFile f(audioFile("A_FLAC", clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(10, 1)), simpleBlock(1, 20, 0x80, bytesOf(12, 2))})));
    ASSERT_NE(nullptr, f.inst);
    qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
    ASSERT_NE(nullptr, s);
    uint32_t size = 0;
    ASSERT_EQ(0, qmkvds_get_frm(s, nullptr, 0, &size, nullptr, nullptr, nullptr));
    EXPECT_EQ(10u, size);
    ASSERT_EQ(0, qmkvds_get_frm(s, nullptr, 0, &size, nullptr, nullptr, nullptr));
    EXPECT_EQ(10u, size);
    Bytes buf(64);
    ASSERT_EQ(0, qmkvds_get_frm(s, buf.data(), 64, &size, nullptr, nullptr, nullptr));
    EXPECT_EQ(10u, size);
    EXPECT_EQ(1, buf[0]);
    Bytes small(5);
    EXPECT_EQ(-8, qmkvds_get_frm(s, small.data(), 5, &size, nullptr, nullptr, nullptr));
    ASSERT_EQ(0, qmkvds_get_frm(s, buf.data(), 64, &size, nullptr, nullptr, nullptr)) << "the block is kept for a retry";
    EXPECT_EQ(12u, size);
    EXPECT_EQ(1, qmkvds_get_frm(s, buf.data(), 64, &size, nullptr, nullptr, nullptr));
    EXPECT_EQ(1, qmkvds_get_frm(s, buf.data(), 64, &size, nullptr, nullptr, nullptr)) << "end stays end";
    qmkvds_close(s);
}

TEST(Stream, GapEndsAudioButFillsSubtitles) {
    // Track 1 audio, track 2 subtitles; a block of track 3 25 s later.
    Bytes t = tracks({trackEntry(1, 2, "A_FLAC"), trackEntry(2, 0x11, "S_TEXT/UTF8"), trackEntry(3, 1, "V_VP8")});
    CoreFile f(file({segmentInfo(100000.0), t,
                     clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(4, 1)), simpleBlock(2, 0, 0x80, bytesOf(3, 'a')),
                                   simpleBlock(3, 0, 0x80, bytesOf(2, 0))}),
                     clusterOf(25000, {simpleBlock(3, 0, 0x80, bytesOf(2, 0)), simpleBlock(1, 0, 0x80, bytesOf(4, 2)),
                                       simpleBlock(2, 0, 0x80, bytesOf(3, 'b'))})}));
    ASSERT_NE(nullptr, f.inst);
    int32_t last = 0;
    auto audio = readCoreFrames(f.inst, 0, &last);
    EXPECT_EQ(1u, audio.size()) << "the 25 s gap ends the audio stream";
    EXPECT_EQ(1, last);
    auto subs = readCoreFrames(f.inst, 1);
    ASSERT_GE(subs.size(), 2u);
    EXPECT_EQ(Bytes({'a', 'b', 'c'}), subs[0].data);
    EXPECT_TRUE(subs[1].data.empty()) << "an empty sample fills the gap";
    EXPECT_EQ(250000000 - 1000000, subs[1].pts);
}

TEST(Stream, NalTracks) {
    // avcC with 2-byte lengths; the frame 00 03 AA BB CC 00 01 DD.
    Bytes avcC = {1, 0x42, 0, 0x1E, 0xFD, 0xE1, 0, 1, 0x67, 1, 0, 1, 0x68};
    Bytes frame = {0, 3, 0xAA, 0xBB, 0xCC, 0, 1, 0xDD};
    Bytes t = tracks({trackEntry(1, 1, "V_MPEG4/ISO/AVC", {bin_el(mkv::CodecPrivate, avcC)})});
    CoreFile f(file({segmentInfo(), t, clusterOf(0, {simpleBlock(1, 0, 0x80, frame), simpleBlock(1, 40, 0x82, xiphLace({frame, frame}))})}));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(2u, f.inst->streams[0].nal_length_size);
    int32_t last = 0;
    auto got = readCoreFrames(f.inst, 0, &last);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(Bytes({0, 0, 0, 1, 0xAA, 0xBB, 0xCC, 0, 0, 0, 1, 0xDD}), got[0].data);
    EXPECT_EQ(-3, last) << "a laced block in a NAL track";
}

TEST(Stream, FourByteNalSizeQueryAgreesWithTheRead) {
    // A size query reads only the length fields, wherever they lie; the
    // read that follows must deliver exactly that many bytes.
    const Bytes big = bytesOf(20000, 3);
    struct Case {
        const char *name;
        Bytes frame, expect;
    } cases[] = {
        {"one unit", nalFrame({bytesOf(3, 1)}), startCoded({bytesOf(3, 1)})},
        {"two units", nalFrame({bytesOf(5, 1), bytesOf(2, 9)}), startCoded({bytesOf(5, 1), bytesOf(2, 9)})},
        {"length past the frame is cut", Bytes({0, 0, 0, 9, 0xAA, 0xBB}), Bytes({0, 0, 0, 1, 0xAA, 0xBB})},
        {"bare length field at the end", cat({nalFrame({bytesOf(4, 1)}), Bytes({0, 0, 0, 5})}), Bytes()},
        {"units beyond the window", nalFrame({big, big, big}), startCoded({big, big, big})},
        {"beyond the window, cut tail", cat({nalFrame({big, big}), Bytes({0, 0, 7})}), Bytes()},
    };
    Bytes avcC = {1, 0x42, 0, 0x1E, 0xFF, 0xE1, 0, 1, 0x67, 1, 0, 1, 0x68};
    Bytes t = tracks({trackEntry(1, 1, "V_MPEG4/ISO/AVC", {bin_el(mkv::CodecPrivate, avcC)})});
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes next = nalFrame({bytesOf(6, 50)});
        CoreFile f(file({segmentInfo(), t, clusterOf(0, {simpleBlock(1, 0, 0x80, c.frame), simpleBlock(1, 40, 0, next)})}));
        ASSERT_NE(nullptr, f.inst);
        ASSERT_EQ(4u, f.inst->streams[0].nal_length_size);
        qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
        ASSERT_NE(nullptr, s);
        uint32_t queried = 0, size = 0, key = 0;
        int64_t pts = 0, end = 0;
        ASSERT_EQ(0, qmkvds_get_frm(s, nullptr, 0, &queried, &pts, &end, &key));
        EXPECT_EQ(c.expect.size(), queried);
        Bytes buf(c.frame.size() + 1);
        ASSERT_EQ(0, qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, &pts, &end, &key));
        buf.resize(size);
        EXPECT_EQ(c.expect, buf);
        // The stream stays in step: the next block follows whole.
        Bytes after(64);
        ASSERT_EQ(0, qmkvds_get_frm(s, after.data(), (uint32_t)after.size(), &size, &pts, &end, &key));
        after.resize(size);
        EXPECT_EQ(startCoded({bytesOf(6, 50)}), after);
        qmkvds_close(s);
    }
}

TEST(Stream, OpenCloseRules) {
    CoreFile f(minimalFile());
    ASSERT_NE(nullptr, f.inst);
    LogCapture log;
    EXPECT_EQ(nullptr, qmkvds_open(f.inst, 1, nullptr));
    EXPECT_EQ(nullptr, qmkvds_open(f.inst, -1, nullptr));
    EXPECT_EQ(nullptr, qmkvds_open(nullptr, 0, nullptr));
    int32_t err = 7;
    qmkvds *s = qmkvds_open(f.inst, 0, &err);
    ASSERT_NE(nullptr, s);
    EXPECT_EQ(0, err);
    EXPECT_EQ(nullptr, qmkvds_open(f.inst, 0, &err));
    EXPECT_EQ(-4, err);
    EXPECT_TRUE(log.has("qmkvd", "stream already opened"));
    EXPECT_TRUE(log.has("qmkvd", "strm_open() failed"));
    uint32_t size;
    EXPECT_EQ(-7, qmkvds_get_frm(s, nullptr, 0, nullptr, nullptr, nullptr, nullptr));
    qmkvds_close(s);
    EXPECT_EQ(-2, qmkvds_get_frm(s, nullptr, 0, &size, nullptr, nullptr, nullptr));
    qmkvds_close(s);
    EXPECT_TRUE(log.has("qmkvd", "ERR: stream 0 already closed!"));
    EXPECT_EQ(-7, qmkvds_get_frm(nullptr, nullptr, 0, &size, nullptr, nullptr, nullptr));
    // Left open: deleting the instance closes it.
    ASSERT_NE(nullptr, qmkvds_open(f.inst, 0, nullptr));
}

}  // namespace
