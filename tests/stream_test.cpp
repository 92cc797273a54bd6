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

std::vector<CoreFrame> readTrack(qmkvd *inst, int index, bool sizeFirst = true, int32_t *last = nullptr) {
    return readCoreFrames(inst, index, last, sizeFirst);
}

Bytes bytesOf(int n, uint8_t seed) {
    Bytes b((size_t)n);
    for (int i = 0; i < n; ++i) b[(size_t)i] = (uint8_t)(seed + i);
    return b;
}

Bytes audioFile(const std::string &codec, std::initializer_list<Bytes> clusters, std::initializer_list<Bytes> extra = {}) {
    Bytes entry = trackEntry(1, 2, codec, extra);
    Bytes body = cat({segmentInfo(), tracks({entry})});
    for (const Bytes &c : clusters) body.insert(body.end(), c.begin(), c.end());
    return cat({ebmlHeader(), el(mkv::Segment, body)});
}

TEST(Stream, ReaderChoiceFollowsTheCodec) {
    struct { const char *codec; bool onebyone; } cases[] = {
        {"A_AAC", true}, {"A_VORBIS", true}, {"A_OPUS", true}, {"A_MPEG/L3", false}, {"A_AC3", false},
        {"A_EAC3", false}, {"A_FLAC", false}, {"A_PCM/INT/LIT", false}, {"A_PCM/INT/BIG", false},
        {"A_PCM/FLOAT/IEEE", false}, {"A_MPEG/L2", false}, {"A_DTS", true}};
    for (const auto &c : cases) {
        CoreFile f(audioFile(c.codec, {cluster()}));
        ASSERT_NE(nullptr, f.inst) << c.codec;
        EXPECT_EQ(c.onebyone ? qmkvds_get_frm_onebyone : qmkvds_get_frm_default, f.inst->streams[0].get_frm) << c.codec;
    }
}

TEST(Stream, LacedAudioOneFrameAtATime) {
    const std::vector<Bytes> frames = {bytesOf(300, 1), bytesOf(20, 2), bytesOf(7, 3)};
    for (auto lace : {std::make_pair(0x02, xiphLace(frames)), std::make_pair(0x06, ebmlLace(frames))}) {
        // Block 1 at 0 ms (3 frames), block 2 at 30 ms (one frame).
        CoreFile f(audioFile("A_AAC", {clusterOf(0, {simpleBlock(1, 0, (uint8_t)(0x80 | lace.first), lace.second),
                                                    simpleBlock(1, 30, 0x80, bytesOf(5, 9))})}));
        ASSERT_NE(nullptr, f.inst);
        for (bool sizeFirst : {true, false}) {
            int32_t last = 0;
            auto got = readTrack(f.inst, 0, sizeFirst, &last);
            EXPECT_EQ(1, last);
            ASSERT_EQ(4u, got.size()) << "lacing " << lace.first;
            for (int i = 0; i < 3; ++i) EXPECT_EQ(frames[(size_t)i], got[(size_t)i].data) << i;
            EXPECT_EQ(bytesOf(5, 9), got[3].data);
            // The first block has no duration yet; its frames share its time.
            EXPECT_EQ(0, got[0].pts);
            EXPECT_EQ(0, got[2].pts);
            EXPECT_EQ(300000, got[3].pts) << "30 ms in 100 ns";
            EXPECT_EQ(1u, got[0].key);
        }
    }
}

TEST(Stream, LaceTimesStepByTheDurationOfAFrame) {
    // Three unlaced blocks 30 ms apart set the audio duration, then a block
    // of 3 Xiph-laced frames: frames step by a third of the block.
    const std::vector<Bytes> frames = {bytesOf(4, 1), bytesOf(4, 2), bytesOf(4, 3)};
    CoreFile f(audioFile("A_AAC", {clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(3, 0)), simpleBlock(1, 30, 0x80, bytesOf(3, 0)),
                                                 simpleBlock(1, 60, 0x82, xiphLace(frames))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(5u, got.size());
    EXPECT_EQ(600000, got[2].pts);
    EXPECT_EQ(700000, got[3].pts);
    EXPECT_EQ(800000, got[4].pts);
    EXPECT_EQ(900000, got[4].end);
}

TEST(Stream, TwoFrameBlocksShareTheBlockTime) {
    const std::vector<Bytes> two = {bytesOf(4, 1), bytesOf(6, 2)};
    CoreFile f(audioFile("A_VORBIS", {clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(3, 0)), simpleBlock(1, 40, 0x82, xiphLace(two))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(3u, got.size());
    EXPECT_EQ(400000, got[1].pts);
    EXPECT_EQ(400000, got[2].pts);
}

TEST(Stream, FixedLacingDropsTheRemainder) {
    // 3 frames over 10 payload bytes: 3 bytes each, the last byte lost.
    Bytes payload = cat({Bytes{2}, bytesOf(10, 1)});
    CoreFile f(audioFile("A_OPUS", {clusterOf(0, {simpleBlock(1, 0, 0x84, payload)})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(3u, got.size());
    EXPECT_EQ(Bytes({1, 2, 3}), got[0].data);
    EXPECT_EQ(Bytes({7, 8, 9}), got[2].data);
}

TEST(Stream, BatchCodecsTakeTheWholeBlock) {
    const std::vector<Bytes> frames = {bytesOf(4, 1), bytesOf(5, 2), bytesOf(6, 3), bytesOf(7, 4)};
    CoreFile f(audioFile("A_MPEG/L3", {clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(frames))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(cat({frames[0], frames[1], frames[2], frames[3]}), got[0].data);
}

TEST(Stream, HeaderStrippingIsPutBack) {
    Bytes strip = el(mkv::ContentEncodings, {el(mkv::ContentEncoding, {el(mkv::ContentCompression,
                                                                          {uint_el(mkv::ContentCompAlgo, 3),
                                                                           bin_el(mkv::ContentCompSettings, Bytes{0xFF, 0xFB})})})});
    const std::vector<Bytes> frames = {bytesOf(4, 1), bytesOf(5, 2), bytesOf(6, 3), bytesOf(7, 4)};
    {
        // A batch codec: prefix + frame, four times, in one buffer.
        CoreFile f(audioFile("A_MPEG/L3", {clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(frames))})}, {strip}));
        ASSERT_NE(nullptr, f.inst);
        auto got = readTrack(f.inst, 0);
        ASSERT_EQ(1u, got.size());
        Bytes expected;
        for (const Bytes &fr : frames) expected = cat({expected, Bytes{0xFF, 0xFB}, fr});
        EXPECT_EQ(expected, got[0].data);
    }
    {
        // One frame at a time: each frame gets the prefix.
        CoreFile f(audioFile("A_AAC", {clusterOf(0, {simpleBlock(1, 0, 0x82, xiphLace(frames))})}, {strip}));
        ASSERT_NE(nullptr, f.inst);
        auto got = readTrack(f.inst, 0);
        ASSERT_EQ(4u, got.size());
        EXPECT_EQ(cat({Bytes{0xFF, 0xFB}, frames[3]}), got[3].data);
    }
}

TEST(Stream, SizeQueriesDoNotAdvance) {
    CoreFile f(audioFile("A_FLAC", {clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(10, 1)), simpleBlock(1, 20, 0x80, bytesOf(12, 2))})}));
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

TEST(Stream, NegativeTimecodeClampOnlyInAClusterAtZero) {
    CoreFile f(file({segmentInfo(), tracks({trackEntry(1, 1, "V_VP8")}),
                     clusterOf(0, {simpleBlock(1, -3, 0x80, bytesOf(4, 1))}),
                     clusterOf(10, {simpleBlock(1, -3, 0x80, bytesOf(4, 2))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(0, got[0].pts);
    EXPECT_EQ(70000, got[1].pts) << "7 ticks of 1 ms";
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
    auto audio = readTrack(f.inst, 0, true, &last);
    EXPECT_EQ(1u, audio.size()) << "the 25 s gap ends the audio stream";
    EXPECT_EQ(1, last);
    auto subs = readTrack(f.inst, 1);
    ASSERT_GE(subs.size(), 2u);
    EXPECT_EQ(Bytes({'a', 'b', 'c'}), subs[0].data);
    EXPECT_TRUE(subs[1].data.empty()) << "an empty sample fills the gap";
    EXPECT_EQ(250000000 - 1000000, subs[1].pts);
}

TEST(Stream, BlockGroupsAndDurations) {
    Bytes t = tracks({trackEntry(1, 0x11, "S_TEXT/UTF8")});
    Bytes group1 = el(0xA0, {el(0xA1, cat({blockHeader(1, 0, 0), Bytes{'h', 'i'}})), uint_el(0x9B, 1500)});
    Bytes group2 = el(0xA0, {uint_el(0x9B, 1, 9), el(0xA1, cat({blockHeader(1, 2000, 0), Bytes{'x'}})),
                             el(0xA1, cat({blockHeader(1, 2000, 0), Bytes{'y', 'o'}}))});
    Bytes emptyGroup = el_header(0xA0, 0);
    CoreFile f(file({segmentInfo(), t, clusterOf(0, {group1, emptyGroup, group2})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(Bytes({'h', 'i'}), got[0].data);
    EXPECT_EQ(15000000, got[0].end) << "BlockDuration 1500 ms";
    EXPECT_EQ(Bytes({'y', 'o'}), got[1].data) << "the last Block of a group wins";
    EXPECT_EQ(20000000, got[1].pts);
    EXPECT_EQ(40000000, got[1].end) << "a 9-byte BlockDuration is not read: the time since the last block counts";
}

TEST(Stream, ResynchronisesOverJunkBetweenClusters) {
    const Bytes junk = cat({el(mkv::Void, Bytes(3000, 0)), Bytes(2000, 0x00)});
    CoreFile f(file({segmentInfo(), tracks({trackEntry(1, 1, "V_VP8")}), clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(4, 1))}),
                     junk, clusterOf(40, {simpleBlock(1, 0, 0x80, bytesOf(4, 2))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(400000, got[1].pts);
}

TEST(Stream, BadLacingSkipsTheBlockOnly) {
    // Xiph sizes that add up to more than the payload.
    Bytes bad = cat({Bytes{1, 200}, bytesOf(10, 0)});
    CoreFile f(audioFile("A_VORBIS", {clusterOf(0, {simpleBlock(1, 0, 0x82, bad), simpleBlock(1, 10, 0x80, bytesOf(3, 7))})}));
    ASSERT_NE(nullptr, f.inst);
    auto got = readTrack(f.inst, 0);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(bytesOf(3, 7), got[0].data);
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
    auto got = readTrack(f.inst, 0, true, &last);
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

TEST(Stream, DtsTimesComeFromTheFrameCount) {
    Bytes t = tracks({trackEntry(1, 1, "V_VP8", {uint_el(mkv::DefaultDuration, 40000000)})});
    Bytes data = file({segmentInfo(), t, clusterOf(0, {simpleBlock(1, 0, 0x80, bytesOf(2, 1)), simpleBlock(1, 80, 0, bytesOf(2, 2)),
                                                       simpleBlock(1, 40, 0, bytesOf(2, 3))})});
    {
        CoreFile pts(data, QMKVD_OPEN_NO_DTS);
        auto got = readTrack(pts.inst, 0, false);
        ASSERT_EQ(3u, got.size());
        EXPECT_EQ(800000, got[1].pts);
    }
    {
        CoreFile dts(data, 0);
        auto got = readTrack(dts.inst, 0, false);
        ASSERT_EQ(3u, got.size());
        EXPECT_EQ(400000, got[1].pts);
        EXPECT_EQ(800000, got[2].pts);
    }
}

}  // namespace
