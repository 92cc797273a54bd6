// Info, Tags, SeekHead and the metadata items built from them.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

const Bytes kVideoTrack = tracks({trackEntry(1, 1, "V_VP8")});

Bytes infoWith(std::initializer_list<Bytes> children) { return el(mkv::Info, cat(children)); }

TEST(SegmentInfo, Duration) {
    struct { const char *name; Bytes duration; uint64_t ticks; double value; } cases[] = {
        {"float_1234.9", f32_el(mkv::Duration, 1234.9f), 1234, 1234.0},
        {"float_0.5", f32_el(mkv::Duration, 0.5f), 1, 1.0},
        {"double_1234.5", f64_el(mkv::Duration, 1234.5), 1234, 1234.5},
        {"double_0", f64_el(mkv::Duration, 0.0), 1, 1.0},
        {"two_bytes", uint_el(mkv::Duration, 7, 2), 1, 1.0},
        {"absent", Bytes{}, 0, 0.0},
    };
    for (const auto &c : cases) {
        CoreFile f(file({infoWith({c.duration}), kVideoTrack, cluster()}));
        ASSERT_NE(nullptr, f.inst) << c.name;
        EXPECT_EQ(c.ticks, f.inst->info.duration_ticks) << c.name;
        EXPECT_DOUBLE_EQ(c.value, f.inst->info.duration) << c.name;
        EXPECT_EQ(1000000u, f.inst->info.timecode_scale) << c.name << ": default scale";
    }
}

TEST(SegmentInfo, StringsAndLimits) {
    CoreFile ok(file({infoWith({str_el(mkv::Title, "A title"), str_el(mkv::MuxingApp, "mux"), str_el(0x5741, "writer"),
                                bin_el(0x73A4, Bytes(16, 0xAB)), uint_el(mkv::TimecodeScale, 500000)}),
                      kVideoTrack, cluster()}));
    ASSERT_NE(nullptr, ok.inst);
    EXPECT_STREQ("A title", ok.inst->info.title);
    EXPECT_STREQ("mux", ok.inst->info.muxing_app);
    EXPECT_STREQ("writer", ok.inst->info.writing_app);
    EXPECT_EQ(0xAB, ok.inst->info.segment_uid[15]);
    EXPECT_EQ(500000u, ok.inst->info.timecode_scale);

    for (Bytes bad : {str_el(mkv::Title, std::string(256, 't')), bin_el(0x73A4, Bytes(17, 1)), el(mkv::DateUTC, Bytes(9, 0))}) {
        CoreFile f(file({infoWith({bad}), kVideoTrack, cluster()}));
        EXPECT_EQ(-6, f.error) << "a bad Info fails the header when met directly";
    }
    // A child longer than what is left of Info ends the walk, keeping what it had.
    CoreFile cut(file({infoWith({str_el(mkv::Title, "kept"), el_header(mkv::MuxingApp, 50), Bytes{'x'}}), kVideoTrack, cluster()}));
    ASSERT_NE(nullptr, cut.inst);
    EXPECT_STREQ("kept", cut.inst->info.title);
    EXPECT_STREQ("", cut.inst->info.muxing_app);
}

Bytes simpleTag(const std::string &name, const std::string &value) {
    return el(mkv::SimpleTag, {str_el(mkv::TagName, name), str_el(mkv::TagString, value)});
}

Bytes tagsOf(std::initializer_list<Bytes> simpleTags) {
    return el(mkv::Tags, {el(mkv::Tag, cat({el(mkv::Targets, {uint_el(0x68CA, 50)}), cat(simpleTags)}))});
}

std::string item(const CoreFile &f, int index) {
    if (f.format.meta == nullptr || f.format.meta->items[index].data == nullptr) return "<none>";
    const qmkvd_metadata_item &it = f.format.meta->items[index];
    EXPECT_EQ((uint32_t)QMKVD_STRING_UTF8, it.type);
    return std::string(reinterpret_cast<const char *>(it.data), it.length);
}

TEST(Metadata, FirstValueWinsAndInfoTitleBeatsTags) {
    CoreFile f(file({infoWith({str_el(mkv::Title, "Info title")}), kVideoTrack,
                     tagsOf({simpleTag("TITLE", "Tag title"), simpleTag("ARTIST", "first"), simpleTag("ARTIST", "second"),
                             simpleTag("BAND", "band"), simpleTag("ALBUM", ""), simpleTag("ALBUM", "album"),
                             simpleTag("COMMENT", "comment"), simpleTag("GENRE", "genre"), simpleTag("composer", "lower"),
                             simpleTag("COMPOSER", "comp"), simpleTag("SCREENPLAY_BY", "screen"),
                             simpleTag("WRITTEN_BY", "written"), simpleTag("DATE_RELEASE", "2020")}),
                     cluster()}));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_NE(nullptr, f.format.meta);
    // An empty value does not fill an item; names compare exactly.
    const std::pair<int, const char *> items[] = {
        {QMKVD_META_TITLE, "Info title"}, {QMKVD_META_ARTIST, "first"}, {QMKVD_META_ALBUM, "album"},
        {QMKVD_META_GENRE, "comment"}, {QMKVD_META_COMPOSER, "comp"}, {QMKVD_META_WRITER, "screen"},
        {QMKVD_META_DATE, "2020"}, {4, "<none>"}, {5, "<none>"}};
    for (const auto &i : items) EXPECT_EQ(i.second, item(f, i.first)) << i.first;
    EXPECT_EQ(13u, f.inst->tags.simple_tag_count);
}

TEST(Metadata, ReleaseYearFromDateUtc) {
    struct { int64_t date; uint32_t year; } cases[] = {
        {31536000000000000LL * 19 + 5, 2020}, {1, 2001}, {-31536000000000000LL * 2, 1999}, {-5, 2001}};
    for (const auto &c : cases) {
        CoreFile f(file({infoWith({uint_el(mkv::DateUTC, (uint64_t)c.date, 8)}), kVideoTrack, cluster()}));
        ASSERT_NE(nullptr, f.inst);
        EXPECT_EQ(c.year, f.inst->release_year) << c.date;
        ASSERT_NE(nullptr, f.format.meta);
        EXPECT_EQ((int32_t)c.year, f.format.meta->year);
        EXPECT_EQ(-1, f.format.meta->track_number) << "numbers Matroska does not give stay unset";
    }
    CoreFile none(file({infoWith({}), kVideoTrack, cluster()}));
    EXPECT_EQ(nullptr, none.format.meta);
}

TEST(Tags, LongValuesAreCut) {
    CoreFile f(file({segmentInfo(), kVideoTrack,
                     tagsOf({simpleTag(std::string(300, 'N'), std::string(2000, 'v')), simpleTag("ARTIST", std::string(1023, 'a'))}),
                     cluster()}));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(2u, f.inst->tags.simple_tag_count);
    EXPECT_EQ(std::string(255, 'N'), f.inst->tags.simple_tags[0].tag_name);
    EXPECT_EQ(std::string(1023, 'v'), f.inst->tags.simple_tags[0].tag_string);
    EXPECT_EQ(std::string(1023, 'a'), f.inst->tags.simple_tags[1].tag_string);
}

TEST(Tags, ListGrowsAcrossTagsPastPadding) {
    Bytes tagList;
    for (int t = 0; t < 7; ++t) {
        Bytes simple;
        for (int i = 0; i < 9; ++i) simple = cat({simple, simpleTag("K" + std::to_string(t * 9 + i), "v")});
        // Padding among the simple tags is no tag of its own.
        tagList = cat({tagList, el(mkv::Tag, cat({simple, el(mkv::Void, Bytes(3, 0))}))});
    }
    CoreFile f(file({segmentInfo(), kVideoTrack, el(mkv::Tags, tagList), cluster()}));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(63u, f.inst->tags.simple_tag_count);
    EXPECT_EQ(80u, f.inst->tags.simple_tag_capacity) << "grows by 20";
    EXPECT_STREQ("K62", f.inst->tags.simple_tags[62].tag_name);
}

Bytes seekEntry(uint32_t id, uint64_t position, int width = 0) {
    return el(mkv::Seek, {bin_el(mkv::SeekID, ebml_id(id)), uint_el(mkv::SeekPosition, position, width)});
}

// [SeekHead][Info][Cluster][Tracks][Tags] with the SeekHead naming Tracks
// (off by `tracksBias`) and Tags by their offsets from the Segment's data.
Bytes fileWithTracksAfterClusters(uint64_t tracksBias) {
    const Bytes tags = tagsOf({simpleTag("ARTIST", "via seek")});
    // A SeekHead of fixed size: two entries with 8-byte positions.
    auto head = [&](uint64_t tracksPos, uint64_t tagsPos) {
        return el(mkv::SeekHead, {seekEntry(mkv::Tracks, tracksPos, 8), seekEntry(mkv::Tags, tagsPos, 8)});
    };
    const uint64_t tracksPos = head(0, 0).size() + segmentInfo().size() + cluster().size();
    return file({head(tracksPos + tracksBias, tracksPos + kVideoTrack.size()), segmentInfo(), cluster(), kVideoTrack,
                 tags});
}

TEST(SeekHead, ReachesElementsAfterTheClustersAndAWrongTargetFailsOnlyTheSeekHead) {
    for (uint64_t bias : {0, 1}) {
        LogCapture log;
        CoreFile f(fileWithTracksAfterClusters(bias));
        ASSERT_NE(nullptr, f.inst) << "a wrong target: the walk goes on and meets Tracks and Tags itself";
        EXPECT_EQ(1, f.format.track_count);
        EXPECT_EQ(bias == 0, f.inst->found_seekhead == 1);
        EXPECT_EQ("via seek", item(f, QMKVD_META_ARTIST));
        EXPECT_EQ(bias != 0, log.contains("could not find seekid, seekid = 374648427, id = "));
        EXPECT_EQ(bias != 0, log.contains("parse_seekhead_seek failed"));
    }
}

TEST(SeekHead, OtherLayouts) {
    // A Void before the SeekHead: positions are relative to the SeekHead's
    // own start, not the Segment's data start.
    auto head = [](uint64_t pos) { return el(mkv::SeekHead, {seekEntry(mkv::Tracks, pos)}); };
    // Sized as the real one, with a 2-byte position.
    const uint64_t fromHead = head(0x1000).size() + segmentInfo().size() + cluster().size();
    struct { const char *name; Bytes bytes; int64_t start; } cases[] = {
        {"void_first", file({el(mkv::Void, Bytes(10, 0)), head(fromHead), segmentInfo(), cluster(), kVideoTrack}), -1},
        // Re-based on elements not met yet, whose start is 0.
        {"zero_position_rebases_without_reading",
         file({el(mkv::SeekHead, {seekEntry(mkv::Tracks, 0), seekEntry(mkv::Info, 0)}), segmentInfo(), kVideoTrack,
               cluster()}),
         0},
        // The cluster is found before this second SeekHead; its bogus position is never read.
        {"cluster_already_known",
         file({segmentInfo(), kVideoTrack, cluster(), el(mkv::SeekHead, {seekEntry(mkv::Cluster, 1u << 30)})}), -1}};
    for (const auto &c : cases) {
        CoreFile f(c.bytes);
        ASSERT_NE(nullptr, f.inst) << c.name;
        EXPECT_EQ(1, f.format.track_count) << c.name;
        if (c.start >= 0) {
            EXPECT_EQ(c.start, f.inst->seekhead.start) << c.name;
        }
    }
}

TEST(ChaptersAndAttachments, AreLocatedOnly) {
    CoreFile f(file({segmentInfo(), el(mkv::Chapters, {el(0x45B9, {uint_el(0x73C4, 1)})}),
                     el(mkv::Attachments, {el(0x61A7, {str_el(0x466E, "a.txt"), bin_el(0x465C, Bytes(100, 1))})}),
                     kVideoTrack, cluster()}));
    ASSERT_NE(nullptr, f.inst);
    EXPECT_EQ(1, f.inst->found_chapters);
    EXPECT_EQ(1, f.inst->found_attachments);
    EXPECT_GT(f.inst->attachments.size, 100u);
}

}  // namespace
