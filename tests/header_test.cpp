// Opening crafted files: the header walk, its error codes and log lines.
#include <gtest/gtest.h>

#include <android/log.h>

#include "demux/qmkvd_codec.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

const Bytes kVideoTrack = tracks({trackEntry(1, 1, "V_VP8")});

Bytes withDocType(const std::string &docType) { return cat({ebmlHeader(docType), el(mkv::Segment, cat({segmentInfo(), kVideoTrack, cluster()}))}); }

TEST(OpenFile, GivesItsCodeAndLogLine) {
    const char *const kNoInfo = "Cannot find enough information. Check file";
    const Bytes zlib = encodings({compression(0)}), crypt = encodings({encryption()});
    struct { const char *name; Bytes bytes; int32_t error; const char *tag; const char *message; } cases[] = {
        {"minimal", minimalFile(), 0, nullptr, nullptr},
        {"webm_doctype_opens_in_the_core", withDocType("webm"), 0, nullptr, nullptr},
        {"empty_file", {}, -6, nullptr, nullptr},
        {"not_ebml", cat({el(0x1F43B675, Bytes{1, 2}), minimalFile()}), -6, "qmkvd_header", "[parser] ebml is not founded"},
        {"doctype_too_long", withDocType("matroskamatr"), -6, "qmkvd_header", "[parser] ebml data is not founded"},
        {"doctype_of_eleven_fits", withDocType("matroskamat"), 0, nullptr, nullptr},
        {"ebml_number_over_8_bytes",
         cat({el(mkv::EBML, {el(0x4286, Bytes(9, 1))}), el(mkv::Segment, cat({segmentInfo(), kVideoTrack, cluster()}))}),
         -6, "qmkvd_header", "[parser] ebml data is not founded"},
        {"ebml_child_over_2g", cat({el(mkv::EBML, el_header(0x4286, 0x80000000ull, 8)), minimalFile()}), -6,
         "qmkvd_header", "[parser] ebml data is not founded"},
        {"no_segment", cat({ebmlHeader(), el(mkv::Tracks, kVideoTrack)}), -6, "qmkvd_header", "[parser] segment is not founded"},
        {"no_cluster", file({segmentInfo(), kVideoTrack}), -6, "qmkvd_header", kNoInfo},
        {"no_info", file({kVideoTrack, cluster()}), -6, "qmkvd_header", kNoInfo},
        {"no_tracks", file({segmentInfo(), cluster()}), -6, "qmkvd_header", kNoInfo},
        {"only_zlib_track", file({segmentInfo(), tracks({trackEntry(1, 1, "V_VP8", {zlib})}), cluster()}), -2, "qmkvd",
         "stream count == 0!!!"},
        {"only_encrypted_track", file({segmentInfo(), tracks({trackEntry(1, 2, "A_VORBIS", {crypt})}), cluster()}), -2,
         "qmkvd", "stream count == 0!!!"},
        {"tracks_without_entries", file({segmentInfo(), tracks({}), cluster()}), -2, "qmkvd", "stream count == 0!!!"},
        {"segment_of_unknown_size",
         cat({ebmlHeader(), ebml_id(mkv::Segment), ebml_unknown_size(8), segmentInfo(), kVideoTrack, cluster()}), 0,
         nullptr, nullptr},
        {"unknown_element_skipped", file({el(0x2F00AA, Bytes(100, 0xEE)), segmentInfo(), kVideoTrack, cluster()}), 0,
         nullptr, nullptr},
        {"cut_after_first_cluster_header", file({segmentInfo(), kVideoTrack, el_header(mkv::Cluster, 5000)}), 0, nullptr,
         nullptr},
        {"cluster_of_unknown_size_hides_tracks",
         file({segmentInfo(), ebml_id(mkv::Cluster), ebml_unknown_size(8), kVideoTrack}), -6, "qmkvd_header", kNoInfo},
        {"element_past_end_of_file",
         cat({ebmlHeader(), ebml_id(mkv::Segment), ebml_unknown_size(8), segmentInfo(), cluster(),
              el_header(0x2F00AA, 1u << 30), kVideoTrack}),
         -6, "qmkvd_header", "Unknown data. Check file. Abnormal file."}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        CoreFile f(c.bytes);
        EXPECT_EQ(c.error, f.error);
        EXPECT_EQ(c.error == 0, f.inst != nullptr);
        EXPECT_TRUE(c.message == nullptr || log.has(c.tag, c.message)) << c.message;
        EXPECT_EQ(c.error == QMKVD_ERR_HEADER, log.has("qmkvd", "[qmkvd_create] header parsing failed"));
    }
}
TEST(Create, FillsTheSummary) {
    CoreFile f(file({segmentInfo(2500.0), tracks({trackEntry(1, 1, "V_MPEG4/ISO/AVC"), trackEntry(2, 2, "A_AAC"),
                                           trackEntry(3, 0x11, "S_TEXT/UTF8"), trackEntry(4, 2, "A_OPUS"),
                                           trackEntry(5, 3, "B_X")}),
                     cluster()}));
    ASSERT_NE(nullptr, f.inst);
    EXPECT_EQ(5, f.format.track_count);
    EXPECT_EQ(1, f.format.video_count);
    EXPECT_EQ(2, f.format.audio_count);
    EXPECT_EQ(1, f.format.subtitle_count);
    const int32_t types[] = {1, 2, 0x11, 2, 0};
    const uint32_t codes[] = {QMKVD_FOURCC('A', 'V', 'C', '1'), 0xFF, QMKVD_FOURCC('S', 'S', 'R', 'T'),
                              QMKVD_FOURCC('O', 'p', 'u', 's'), 0};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(types[i], f.format.track_type[i]) << i;
        EXPECT_EQ(codes[i], f.format.track_codec_types[i]) << i;
        EXPECT_EQ(codes[i], f.inst->streams[i].codec_type) << i;
    }
    EXPECT_EQ(25000000, f.format.duration) << "2.5 s in 100 ns";
    EXPECT_EQ(1u, f.format.seekable);
    ASSERT_EQ(1, f.format.index_count) << "a first cluster, no cues";
    EXPECT_EQ(0u, f.format.index_entries[0].kind);
    EXPECT_EQ((uint64_t)f.inst->first_cluster_pos, f.format.index_entries[0].position);
    EXPECT_EQ(nullptr, f.format.meta);
    EXPECT_STREQ("matroska", f.inst->doc_type);
    EXPECT_EQ(4u, f.inst->doc_type_version);
}

TEST(Create, DurationRoundsToWholeMicroseconds) {
    struct { double ticks; uint32_t scale; int64_t expected; } cases[] = {
        {1000.0, 1000000, 10000000},  // 1 s
        {1.0004, 1000000, 10000},     // 1000400 ns -> 1000 us
        {1.0005, 1000000, 10010},     // 1000500 ns -> 1001 us
        {3.0, 1, 0}, {700.0, 1, 10}};
    for (const auto &c : cases) {
        CoreFile f(file({el(mkv::Info, {uint_el(mkv::TimecodeScale, c.scale), f64_el(mkv::Duration, c.ticks)}),
                         kVideoTrack, cluster()}));
        ASSERT_NE(nullptr, f.inst);
        EXPECT_EQ(c.expected, f.format.duration) << c.ticks << " x " << c.scale;
    }
}

TEST(Create, NalLengthSizeFromCodecPrivate) {
    Bytes avcC = {1, 0x64, 0, 0x1F, 0xFD, 0xE1, 0, 0};
    Bytes hvcC(23, 0);
    hvcC[21] = 0x0E;
    struct { const char *codec; Bytes priv; uint32_t expected; } cases[] = {
        {"V_MPEG4/ISO/AVC", avcC, 2},
        {"V_MPEG4/ISO/AVC", Bytes{1, 2, 3, 4, 0xFF}, 0},  // five bytes are too few
        {"V_MPEGH/ISO/HEVC", hvcC, 3},
        {"V_MPEGH/ISO/HEVC", Bytes(22, 3), 0},
        {"V_MPEG4", avcC, 2},  // a prefix of the AVC codec ID counts as it
        {"V_VP9", avcC, 0},
    };
    for (const auto &c : cases) {
        CoreFile f(file({segmentInfo(), tracks({trackEntry(1, 1, c.codec, {bin_el(mkv::CodecPrivate, c.priv)})}), cluster()}));
        ASSERT_NE(nullptr, f.inst) << c.codec;
        EXPECT_EQ(c.expected, f.inst->streams[0].nal_length_size) << c.codec;
    }
}

// At most 127 tracks are kept; dropped entries give their place back.
TEST(Create, TrackLimit) {
    auto entries = [](int n, bool zlibOdd) {
        const Bytes zlib = encodings({compression(0)});
        Bytes out;
        for (int i = 1; i <= n; ++i)
            out = cat({out, trackEntry((uint32_t)i, 2, "A_VORBIS",
                                       {!zlibOdd ? Bytes{} : i % 2 ? zlib : bin_el(mkv::CodecPrivate, Bytes(8, 7))})});
        return file({segmentInfo(), el(mkv::Tracks, out), cluster()});
    };
    CoreFile max(entries(127, false));
    ASSERT_NE(nullptr, max.inst);
    EXPECT_EQ(127, max.format.track_count);
    EXPECT_EQ(127u, max.inst->streams[126].track.track_number);
    CoreFile over(entries(128, false));
    EXPECT_EQ(nullptr, over.inst);
    EXPECT_EQ(-6, over.error);
    LogCapture log;
    CoreFile half(entries(200, true));
    ASSERT_NE(nullptr, half.inst) << "100 kept of 200";
    EXPECT_EQ(100, half.format.track_count);
    EXPECT_EQ(2u, half.inst->streams[0].track.track_number);
    EXPECT_EQ(200u, half.inst->streams[99].track.track_number);
    EXPECT_TRUE(log.contains("parse_contentencoding : 0 algorism is not supported"));
}

TEST(Create, SecondInfoAndTracksAreSkipped) {
    CoreFile f(file({segmentInfo(1000.0, {str_el(mkv::Title, "first")}), kVideoTrack, segmentInfo(9.0, {str_el(mkv::Title, "second")}),
                     tracks({trackEntry(7, 2, "A_AAC")}), cluster()}));
    ASSERT_NE(nullptr, f.inst);
    EXPECT_STREQ("first", f.inst->info.title);
    EXPECT_EQ(1, f.format.track_count);
    EXPECT_EQ(1u, f.inst->streams[0].track.track_number);
}

TEST(Create, ProbeOpenFailureIsMinus4AndDeleteRefusesForeignHandles) {
    QCMN_MFAL mfal;
    ASSERT_EQ(0, qcmn_mfal_init(&mfal, nullptr));
    LogCapture log;
    qmkvd_format format;
    int32_t error = 0;
    EXPECT_EQ(nullptr, qmkvd_create(&mfal, nullptr, &format, &error));
    EXPECT_EQ(-4, error);
    EXPECT_TRUE(log.has("qmkvd", "[qmkv_create] file open failed"));
    qcmn_mfal_deinit(&mfal);
    qmkvd_delete(nullptr);
    qmkvd fake = {};
    fake.magic = 0x12345678;
    qmkvd_delete(&fake);  // must not free a stack object
    EXPECT_EQ(0x12345678u, fake.magic);
}

}  // namespace
