#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "demux/qmkvd_cues.h"
#include "tests/support/ebml_writer.h"
#include "tests/support/memory_file.h"

using namespace qmkv_test;

namespace {

const uint32_t kCues = 0x1C53BB6B;
const uint32_t kCuePoint = 0xBB;
const uint32_t kCueTime = 0xB3;
const uint32_t kCueTrackPositions = 0xB7;
const uint32_t kCueTrack = 0xF7;
const uint32_t kCueClusterPosition = 0xF1;
const uint32_t kCueBlockNumber = 0x5378;
const uint32_t kVoid = 0xEC;
const uint32_t kCrc32 = 0xBF;

const uint32_t kVideo = 1;
const uint32_t kAudio = 2;
const uint32_t kSubs = 3;

// The instance is large; tests build it on the heap like the real creator.
struct InstanceDeleter {
    void operator()(qmkvd *inst) const {
        free(inst->cues.cue_points);
        free(inst);
    }
};
using Instance = std::unique_ptr<qmkvd, InstanceDeleter>;

Instance make_instance() {
    Instance inst(static_cast<qmkvd *>(calloc(1, sizeof(qmkvd))));
    inst->magic = QMKVD_MAGIC;
    inst->self = inst.get();
    inst->info.timecode_scale = 1000000;
    return inst;
}

void add_stream(qmkvd *inst, uint32_t track_number, uint8_t track_type) {
    qmkvds &s = inst->streams[inst->stream_count];
    s.index = inst->stream_count++;
    s.magic = QMKVDS_MAGIC;
    s.demux = inst;
    s.track.track_number = track_number;
    s.track.track_type = track_type;
    s.stream_type = track_type;
}

// Typical tracks: 1 video, 2 audio, 3 subtitles.
void add_av_streams(qmkvd *inst) {
    add_stream(inst, kVideo, QMKVD_TRACK_VIDEO);
    add_stream(inst, kAudio, QMKVD_TRACK_AUDIO);
    add_stream(inst, kSubs, QMKVD_TRACK_SUBTITLE);
}

Bytes positions(uint64_t track, uint64_t cluster, int64_t block = -1) {
    Bytes b = cat({uint_el(kCueTrack, track), uint_el(kCueClusterPosition, cluster)});
    if (block >= 0) b = cat({b, uint_el(kCueBlockNumber, (uint64_t)block)});
    return el(kCueTrackPositions, b);
}

Bytes cue_point(uint64_t time, std::initializer_list<Bytes> track_positions) {
    return el(kCuePoint, cat({uint_el(kCueTime, time), cat(track_positions)}));
}

// A file: some leading bytes, then the Cues element, then `tail`.
struct CuesFile {
    Bytes bytes;
    int64_t cues_pos;   // data position of the Cues element
    uint32_t cues_size;
};

const size_t kLead = 5;

CuesFile cues_file(const Bytes &payload, const Bytes &tail = {}) {
    CuesFile f;
    Bytes header = el_header(kCues, payload.size());
    f.bytes = cat({Bytes(kLead, 0x42), header, payload, tail});
    f.cues_pos = (int64_t)(kLead + header.size());
    f.cues_size = (uint32_t)payload.size();
    return f;
}

// Parses the file's Cues into the instance's own table.
int32_t parse(qmkvd *inst, const CuesFile &f, bool size_known = true, uint32_t cues_size = 0) {
    MemoryFile mf(f.bytes);
    inst->file_size = size_known ? (int64_t)f.bytes.size() : 0;
    inst->cues.cues_pos = f.cues_pos;
    inst->cues.cues_size = cues_size != 0 ? cues_size : f.cues_size;
    return parse_cues_ctx_fast(inst, &mf.mfal, mf.fp, &inst->cues);
}

void expect_empty(const qmkvd *inst) {
    EXPECT_EQ(0u, inst->cues.cue_count);
    EXPECT_EQ(0u, inst->cues.cue_capacity);
    EXPECT_EQ(nullptr, inst->cues.cue_points);
}

// ---------------------------------------------------------------- parsing

TEST(CuesParse, StoresEveryFieldOfACuePoint) {
    Instance inst = make_instance();
    add_av_streams(inst.get());
    Bytes p0 = cue_point(0, {positions(kVideo, 0x1234, 1)});
    Bytes p1 = el(kCuePoint, cat({uint_el(kCueTime, 5000), positions(kSubs, 0x99), positions(kVideo, 0x5678, 7)}));
    CuesFile f = cues_file(cat({p0, p1}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(2u, inst->cues.cue_count);
    EXPECT_EQ(256u, inst->cues.cue_capacity);

    const qmkvd_cue_point &a = inst->cues.cue_points[0];
    EXPECT_EQ(f.cues_pos + 2, a.cue_point_pos);
    EXPECT_EQ(p0.size() - 2, a.cue_point_size);
    EXPECT_EQ(0u, a.cue_time);
    EXPECT_EQ(f.cues_pos + 2 + 3 + 2, a.track_positions_pos) << "CuePoint header, CueTime, CueTrackPositions header";
    EXPECT_EQ(positions(kVideo, 0x1234, 1).size() - 2, a.track_positions_size);
    EXPECT_EQ(kVideo, a.cue_track);
    EXPECT_EQ(0x1234u, a.cue_cluster_position);
    EXPECT_EQ(1u, a.cue_block_number);
    EXPECT_EQ(1u, a.track_positions_count);

    const qmkvd_cue_point &b = inst->cues.cue_points[1];
    const int64_t b_data = f.cues_pos + (int64_t)p0.size() + 2;
    EXPECT_EQ(b_data, b.cue_point_pos);
    EXPECT_EQ(5000u, b.cue_time);
    EXPECT_EQ(2u, b.track_positions_count);
    EXPECT_EQ(kVideo, b.cue_track) << "the last CueTrackPositions wins";
    EXPECT_EQ(0x5678u, b.cue_cluster_position);
    EXPECT_EQ(7u, b.cue_block_number);
    EXPECT_EQ(b_data + 4 + (int64_t)positions(kSubs, 0x99).size() + 2, b.track_positions_pos);
}

TEST(CuesParse, ReadsTheWholeElementInOneRead) {
    Instance inst = make_instance();
    Bytes payload;
    for (int i = 0; i < 100; ++i) payload = cat({payload, cue_point((uint64_t)i * 10, {positions(kVideo, 100 + i)})});
    CuesFile f = cues_file(payload, Bytes(1000, 0));
    MemoryFile mf(f.bytes);
    inst->file_size = (int64_t)f.bytes.size();
    inst->cues.cues_pos = f.cues_pos;
    inst->cues.cues_size = f.cues_size;
    mf.mem.readCalls = 0;
    ASSERT_EQ(0, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, &inst->cues));
    EXPECT_EQ(100u, inst->cues.cue_count);
    EXPECT_EQ(1, mf.mem.readCalls);
}

TEST(CuesParse, SkipsOtherChildren) {
    Instance inst = make_instance();
    CuesFile f = cues_file(cat({el(kCrc32, Bytes{1, 2, 3, 4}), cue_point(10, {positions(kVideo, 50)}),
                                el(kVoid, Bytes(7, 0)), cue_point(20, {positions(kVideo, 60)}),
                                el(kVoid, Bytes{})}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(2u, inst->cues.cue_count);
    EXPECT_EQ(50u, inst->cues.cue_points[0].cue_cluster_position);
    EXPECT_EQ(60u, inst->cues.cue_points[1].cue_cluster_position);
}

TEST(CuesParse, UnknownChildrenOfACuePointAreSkipped) {
    Instance inst = make_instance();
    Bytes tp = el(kCueTrackPositions, {el(0xF0, Bytes{9}), uint_el(kCueTrack, 1), el(kVoid, Bytes{0, 0}),
                                       uint_el(kCueClusterPosition, 77)});
    CuesFile f = cues_file(el(kCuePoint, {el(kVoid, Bytes{0}), uint_el(kCueTime, 3), tp}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(1u, inst->cues.cue_count);
    EXPECT_EQ(3u, inst->cues.cue_points[0].cue_time);
    EXPECT_EQ(77u, inst->cues.cue_points[0].cue_cluster_position);
}

TEST(CuesParse, ZeroSizeGivesNoCues) {
    Instance inst = make_instance();
    CuesFile f = cues_file(cue_point(1, {positions(kVideo, 1)}));
    MemoryFile mf(f.bytes);
    inst->file_size = (int64_t)f.bytes.size();
    inst->cues.cues_pos = f.cues_pos;
    inst->cues.cues_size = 0;
    mf.mem.readCalls = 0;
    EXPECT_EQ(0, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, &inst->cues));
    expect_empty(inst.get());
    EXPECT_EQ(0, mf.mem.readCalls);
}

TEST(CuesParse, ElementWithoutCuePointsIsNotAnError) {
    Instance inst = make_instance();
    ASSERT_EQ(0, parse(inst.get(), cues_file(el(kVoid, Bytes(20, 0)))));
    expect_empty(inst.get());
}

TEST(CuesParse, ASecondParseReplacesTheFirstTable) {
    Instance inst = make_instance();
    ASSERT_EQ(0, parse(inst.get(), cues_file(cat({cue_point(1, {positions(kVideo, 1)}),
                                                  cue_point(2, {positions(kVideo, 2)})}))));
    ASSERT_EQ(2u, inst->cues.cue_count);
    ASSERT_EQ(0, parse(inst.get(), cues_file(cue_point(9, {positions(kVideo, 90)}))));
    ASSERT_EQ(1u, inst->cues.cue_count);
    EXPECT_EQ(90u, inst->cues.cue_points[0].cue_cluster_position);
    // LeakSanitizer checks that the first array was released.
}

TEST(CuesParse, ParsesIntoATableOtherThanTheInstances) {
    Instance inst = make_instance();
    add_av_streams(inst.get());
    CuesFile f = cues_file(cat({cue_point(1, {positions(kAudio, 1)}), cue_point(2, {positions(kVideo, 2)})}));
    MemoryFile mf(f.bytes);
    inst->file_size = (int64_t)f.bytes.size();
    qmkvd_cue_table table = {};
    table.cues_pos = f.cues_pos;
    table.cues_size = f.cues_size;
    ASSERT_EQ(0, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, &table));
    ASSERT_EQ(1u, table.cue_count);
    EXPECT_EQ(2u, table.cue_points[0].cue_time);
    expect_empty(inst.get());
    free(table.cue_points);
}

// ------------------------------------------------- which cue points are kept

struct KeepCase {
    const char *name;
    bool with_streams;  // false: the Cues come before the Tracks
    Bytes point;
    bool kept;
    uint32_t track;     // expected values when kept
    uint64_t cluster;
    uint32_t positions_count;
};

void PrintTo(const KeepCase &c, std::ostream *os) { *os << c.name; }

class CuesKeep : public ::testing::TestWithParam<KeepCase> {};

TEST_P(CuesKeep, KeepsOrDropsThePoint) {
    const KeepCase &c = GetParam();
    for (int order = 0; order < 2; ++order) {
        // Alone, and after a kept point (so that a dropped slot is reused).
        Instance inst = make_instance();
        if (c.with_streams) add_av_streams(inst.get());
        Bytes first = cue_point(1, {positions(kVideo, 11)});
        CuesFile f = cues_file(order == 0 ? c.point : cat({first, c.point, first}));
        ASSERT_EQ(0, parse(inst.get(), f));
        const uint32_t others = order == 0 ? 0 : 2;
        ASSERT_EQ(others + (c.kept ? 1 : 0), inst->cues.cue_count);
        if (order == 0 && !c.kept) {
            expect_empty(inst.get());
            continue;
        }
        if (order == 1) {
            EXPECT_EQ(11u, inst->cues.cue_points[0].cue_cluster_position);
            const qmkvd_cue_point &last = inst->cues.cue_points[inst->cues.cue_count - 1];
            EXPECT_EQ(11u, last.cue_cluster_position);
            EXPECT_EQ(1u, last.track_positions_count) << "a reused slot starts clean";
        }
        if (c.kept) {
            const qmkvd_cue_point &p = inst->cues.cue_points[order == 0 ? 0 : 1];
            EXPECT_EQ(c.track, p.cue_track);
            EXPECT_EQ(c.cluster, p.cue_cluster_position);
            EXPECT_EQ(c.positions_count, p.track_positions_count);
            EXPECT_EQ(77u, p.cue_time);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CuesKeep,
    ::testing::Values(
        KeepCase{"video", true, cue_point(77, {positions(kVideo, 500)}), true, kVideo, 500, 1},
        KeepCase{"subtitle", true, cue_point(77, {positions(kSubs, 500)}), true, kSubs, 500, 1},
        KeepCase{"audio_dropped", true, cue_point(77, {positions(kAudio, 500)}), false, 0, 0, 0},
        KeepCase{"video_then_audio_dropped", true, cue_point(77, {positions(kVideo, 500), positions(kAudio, 600)}),
                 false, 0, 0, 0},
        KeepCase{"audio_then_video_kept", true, cue_point(77, {positions(kAudio, 600), positions(kVideo, 500)}),
                 true, kVideo, 500, 2},
        KeepCase{"audio_track_before_position_dropped", true,
                 el(kCuePoint, {uint_el(kCueTime, 77),
                                el(kCueTrackPositions, {uint_el(kCueTrack, kAudio), uint_el(kCueClusterPosition, 9)})}),
                 false, 0, 0, 0},
        KeepCase{"position_before_audio_track_dropped", true,
                 el(kCuePoint, {uint_el(kCueTime, 77),
                                el(kCueTrackPositions, {uint_el(kCueClusterPosition, 9), uint_el(kCueTrack, kAudio)})}),
                 false, 0, 0, 0},
        KeepCase{"track_without_stream_kept", true, cue_point(77, {positions(9, 500)}), true, 9, 500, 1},
        KeepCase{"audio_number_before_tracks_kept", false, cue_point(77, {positions(kAudio, 500)}), true, kAudio, 500,
                 1},
        KeepCase{"cluster_position_zero_dropped", true, cue_point(77, {positions(kVideo, 0)}), false, 0, 0, 0},
        KeepCase{"no_cluster_position_dropped", true,
                 el(kCuePoint, {uint_el(kCueTime, 77), el(kCueTrackPositions, {uint_el(kCueTrack, kVideo)})}), false,
                 0, 0, 0},
        KeepCase{"no_track_positions_dropped", true, el(kCuePoint, {uint_el(kCueTime, 77)}), false, 0, 0, 0},
        KeepCase{"later_positions_without_cluster_drops", true,
                 cue_point(77, {positions(kVideo, 500), el(kCueTrackPositions, {uint_el(kCueTrack, kSubs)})}), false,
                 0, 0, 0},
        KeepCase{"later_position_zero_drops", true, cue_point(77, {positions(kVideo, 500), positions(kSubs, 0)}),
                 false, 0, 0, 0},
        KeepCase{"track_number_wider_than_32_bits", true, cue_point(77, {positions(0x100000002ull, 500)}), true, 2,
                 500, 1}));

TEST(CuesKeep, EveryPointOnAudioLeavesNoCues) {
    Instance inst = make_instance();
    add_av_streams(inst.get());
    Bytes payload;
    for (int i = 0; i < 50; ++i) payload = cat({payload, cue_point((uint64_t)i, {positions(kAudio, 100 + i)})});
    ASSERT_EQ(0, parse(inst.get(), cues_file(payload)));
    expect_empty(inst.get());
}

TEST(CuesKeep, AudioStreamWithAnotherNumberDoesNotDrop) {
    Instance inst = make_instance();
    add_stream(inst.get(), 5, QMKVD_TRACK_AUDIO);
    add_stream(inst.get(), 2, QMKVD_TRACK_VIDEO);
    ASSERT_EQ(0, parse(inst.get(), cues_file(cat({cue_point(1, {positions(2, 10)}), cue_point(2, {positions(5, 20)})}))));
    ASSERT_EQ(1u, inst->cues.cue_count);
    EXPECT_EQ(2u, inst->cues.cue_points[0].cue_track);
}

// ------------------------------------------------------------ table growth

Bytes fixed_size_points(int count, uint64_t first_time = 0) {
    Bytes payload;
    payload.reserve((size_t)count * 24);
    for (int i = 0; i < count; ++i) {
        Bytes tp = el(kCueTrackPositions, {uint_el(kCueTrack, kVideo, 1), uint_el(kCueClusterPosition, 1000 + i, 4)});
        Bytes p = el(kCuePoint, {uint_el(kCueTime, first_time + (uint64_t)i, 4), tp});
        payload.insert(payload.end(), p.begin(), p.end());
    }
    return payload;
}

struct GrowthCase {
    int points;
    uint32_t capacity;
};

class CuesGrowth : public ::testing::TestWithParam<GrowthCase> {};

TEST_P(CuesGrowth, GrowsByTheStepOfTheFirstPoint) {
    const GrowthCase &c = GetParam();
    Instance inst = make_instance();
    ASSERT_EQ(0, parse(inst.get(), cues_file(fixed_size_points(c.points))));
    ASSERT_EQ((uint32_t)c.points, inst->cues.cue_count);
    EXPECT_EQ(c.capacity, inst->cues.cue_capacity);
    for (int i = 0; i < c.points; ++i) {
        ASSERT_EQ((uint64_t)i, inst->cues.cue_points[i].cue_time) << i;
        ASSERT_EQ((uint64_t)(1000 + i), inst->cues.cue_points[i].cue_cluster_position) << i;
    }
}

// Every point here is 19 bytes, 17 of data: the estimate is the Cues size
// over the first point's data size, 19/17 of the count. Below 2561 the step
// is 256; from there a tenth of the estimate, at most 4096.
INSTANTIATE_TEST_SUITE_P(Steps, CuesGrowth,
                         ::testing::Values(GrowthCase{1, 256}, GrowthCase{256, 256}, GrowthCase{257, 512},
                                           GrowthCase{1000, 1024},   // estimate 1117: still 256
                                           GrowthCase{2291, 2304},   // estimate 2560: 256
                                           GrowthCase{2300, 2313},   // estimate 2570: 257
                                           GrowthCase{3000, 3015},   // estimate 3352: 335
                                           GrowthCase{50000, 53248}  // estimate 55882: capped at 4096
                                           ));

TEST(CuesGrowthStep, ComesFromTheFirstPointOnly) {
    // A large first point makes the estimate small: step 256, even though
    // 3000 small points follow.
    Instance inst = make_instance();
    Bytes big = el(kCuePoint, {uint_el(kCueTime, 0), el(kVoid, Bytes(4000, 0)), positions(kVideo, 5)});
    Bytes payload = cat({big, fixed_size_points(3000, 1)});
    ASSERT_EQ(0, parse(inst.get(), cues_file(payload)));
    EXPECT_EQ(3001u, inst->cues.cue_count);
    EXPECT_EQ(256u * 12, inst->cues.cue_capacity);
}

// ----------------------------------------------------------- damaged Cues

struct DamageCase {
    const char *name;
    Bytes payload;
    Bytes tail;
};

void PrintTo(const DamageCase &c, std::ostream *os) { *os << c.name; }

class CuesDamaged : public ::testing::TestWithParam<DamageCase> {};

TEST_P(CuesDamaged, FailsAndFreesTheTable) {
    const DamageCase &c = GetParam();
    for (bool size_known : {true, false}) {
        Instance inst = make_instance();
        add_av_streams(inst.get());
        EXPECT_EQ(-1, parse(inst.get(), cues_file(c.payload, c.tail), size_known)) << size_known;
        expect_empty(inst.get());
    }
}

Bytes good_points() { return cat({cue_point(0, {positions(kVideo, 10)}), cue_point(10, {positions(kVideo, 20)})}); }

// A CuePoint whose declared size runs past the Cues element; the bytes after
// the element are present in the file.
Bytes point_header_past_end(uint64_t size, int size_length = 0) { return el_header(kCuePoint, size, size_length); }

INSTANTIATE_TEST_SUITE_P(
    Cases, CuesDamaged,
    ::testing::Values(
        DamageCase{"zero_id_byte", {0x00, 0x81, 0x00}, {}},
        DamageCase{"zero_id_byte_after_points", cat({good_points(), Bytes{0x00, 0x81, 0x00}}), {}},
        DamageCase{"five_byte_id", cat({good_points(), Bytes{0x08, 1, 2, 3, 4, 0x81, 0}}), {}},
        DamageCase{"zero_size_byte", cat({good_points(), Bytes{0xBB, 0x00, 0x81}}), {}},
        DamageCase{"header_cut_by_element_end", cat({good_points(), Bytes{0xBB}}), Bytes(32, 0x81)},
        DamageCase{"cue_point_past_end", cat({good_points(), point_header_past_end(10), Bytes{0xB3, 0x81, 1}}),
                   Bytes(64, 0x81)},
        DamageCase{"first_cue_point_past_end", cat({point_header_past_end(10), Bytes{0xB3, 0x81, 1}}),
                   Bytes(64, 0x81)},
        DamageCase{"cue_point_size_above_2g", cat({good_points(), point_header_past_end(0x80000000ull)}),
                   Bytes(16, 0)},
        DamageCase{"cue_point_unknown_size", cat({good_points(), Bytes{0xBB, 0xFF}}), Bytes(200, 0)},
        DamageCase{"child_size_above_2g",
                   cat({good_points(), el(kCuePoint, cat({el_header(kCueTime, 0x80000000ull, 8), Bytes{1}}))}), {}},
        DamageCase{"positions_child_above_2g",
                   cat({good_points(),
                        el(kCuePoint, {uint_el(kCueTime, 1),
                                       el(kCueTrackPositions, cat({el_header(kCueClusterPosition, 0xFFFFFFFFFull),
                                                                   Bytes{1}}))})}),
                   {}},
        DamageCase{"bad_header_inside_cue_point",
                   cat({good_points(), el(kCuePoint, Bytes{0x00, 0x81, 0x01})}), {}},
        DamageCase{"header_cut_by_cue_point_end",
                   cat({good_points(), el(kCuePoint, cat({uint_el(kCueTime, 1), Bytes{0x53}})), cue_point(2, {})}),
                   {}},
        DamageCase{"bad_header_inside_positions",
                   cat({good_points(), el(kCuePoint, {uint_el(kCueTime, 1), el(kCueTrackPositions, Bytes{0x40, 0x00})})}),
                   {}},
        DamageCase{"cue_time_wider_than_8_bytes",
                   cat({good_points(), el(kCuePoint, {el(kCueTime, Bytes(9, 1)), positions(kVideo, 5)})}), {}},
        DamageCase{"cluster_position_wider_than_8_bytes",
                   cat({good_points(), el(kCuePoint, {uint_el(kCueTime, 1),
                                                      el(kCueTrackPositions, {uint_el(kCueTrack, 1),
                                                                              el(kCueClusterPosition, Bytes(9, 1))})})}),
                   {}},
        DamageCase{"cue_track_wider_than_8_bytes",
                   cat({good_points(), el(kCuePoint, {uint_el(kCueTime, 1),
                                                      el(kCueTrackPositions, {el(kCueTrack, Bytes(9, 0)),
                                                                              uint_el(kCueClusterPosition, 3)})})}),
                   {}}));

TEST(CuesDamaged, ChildLongerThanItsParentEndsTheParentOnly) {
    // A CueTime whose size runs past its CuePoint ends that CuePoint's walk
    // with what it has; the next CuePoint is read normally.
    Instance inst = make_instance();
    Bytes inner = cat({positions(kVideo, 40), el_header(kCueTime, 5), Bytes{1, 2}});
    Bytes tp_inner = cat({uint_el(kCueClusterPosition, 33), el_header(kCueTrack, 9), Bytes{1}});
    CuesFile f = cues_file(cat({el(kCuePoint, inner), el(kCuePoint, {uint_el(kCueTime, 8), el(kCueTrackPositions, tp_inner)}),
                                cue_point(9, {positions(kVideo, 50)})}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(3u, inst->cues.cue_count);
    EXPECT_EQ(40u, inst->cues.cue_points[0].cue_cluster_position);
    EXPECT_EQ(0u, inst->cues.cue_points[0].cue_time);
    EXPECT_EQ(33u, inst->cues.cue_points[1].cue_cluster_position);
    EXPECT_EQ(0u, inst->cues.cue_points[1].cue_track);
    EXPECT_EQ(50u, inst->cues.cue_points[2].cue_cluster_position);
}

TEST(CuesDamaged, ChildOfTheLargestAllowedSizeOnlyEndsItsParent) {
    // 0x7FFFFFFF is not above the limit: the child merely does not fit.
    Instance inst = make_instance();
    CuesFile f = cues_file(cat({el(kCuePoint, cat({positions(kVideo, 40), el_header(kCueTime, 0x7FFFFFFF), Bytes{1}})),
                                cue_point(9, {positions(kVideo, 50)})}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(2u, inst->cues.cue_count);
    EXPECT_EQ(40u, inst->cues.cue_points[0].cue_cluster_position);
}

TEST(CuesDamaged, OtherChildPastTheEndEndsTheWalk) {
    // Only CuePoints are held to the element's end; anything else past it
    // ends the walk normally.
    Instance inst = make_instance();
    CuesFile f = cues_file(cat({good_points(), el_header(kVoid, 100), Bytes{0, 0}}), Bytes(200, 0));
    ASSERT_EQ(0, parse(inst.get(), f));
    EXPECT_EQ(2u, inst->cues.cue_count);
}

TEST(CuesDamaged, NullArguments) {
    Instance inst = make_instance();
    CuesFile f = cues_file(good_points());
    MemoryFile mf(f.bytes);
    inst->cues.cues_pos = f.cues_pos;
    inst->cues.cues_size = f.cues_size;
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, nullptr));
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), nullptr, mf.fp, &inst->cues));
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), &mf.mfal, nullptr, &inst->cues));
    expect_empty(inst.get());
    // Without an instance nothing is dropped for audio and the size is unknown.
    EXPECT_EQ(0, parse_cues_ctx_fast(nullptr, &mf.mfal, mf.fp, &inst->cues));
    EXPECT_EQ(2u, inst->cues.cue_count);
}

// ---------------------------------------------------------- truncated file

struct TruncCase {
    const char *name;
    size_t cut;        // bytes of the payload the file still holds
    uint32_t kept;
};

void PrintTo(const TruncCase &c, std::ostream *os) { *os << c.name; }

class CuesTruncated : public ::testing::TestWithParam<TruncCase> {};

Bytes three_points() {
    return cat({cue_point(0, {positions(kVideo, 10)}), cue_point(10, {positions(kVideo, 20)}),
                cue_point(20, {positions(kVideo, 30)})});
}

TEST_P(CuesTruncated, KeepsWhatTheFileHolds) {
    const TruncCase &c = GetParam();
    const Bytes full = three_points();
    ASSERT_LE(c.cut, full.size());
    CuesFile f = cues_file(full);
    f.bytes.resize((size_t)f.cues_pos + c.cut);
    for (bool size_known : {true, false}) {
        Instance inst = make_instance();
        ASSERT_EQ(0, parse(inst.get(), f, size_known)) << size_known;
        ASSERT_EQ(c.kept, inst->cues.cue_count) << size_known;
        for (uint32_t i = 0; i < c.kept; ++i) EXPECT_EQ(10u * (i + 1), inst->cues.cue_points[i].cue_cluster_position);
        if (c.kept == 0) expect_empty(inst.get());
    }
}

// Each point is 13 bytes: BB 8B | B3 81 t | B7 86 F7 81 01 F1 81 p.
INSTANTIATE_TEST_SUITE_P(Cuts, CuesTruncated,
                         ::testing::Values(TruncCase{"nothing", 0, 0}, TruncCase{"one_byte", 1, 0},
                                           TruncCase{"inside_first", 7, 0}, TruncCase{"first_whole", 13, 1},
                                           TruncCase{"second_header_cut", 14, 1},
                                           TruncCase{"second_header_whole", 15, 1},
                                           TruncCase{"inside_third", 30, 2}, TruncCase{"all_but_one_byte", 38, 2},
                                           TruncCase{"whole", 39, 3}));

// Records the largest read asked for: the buffer a read fills is never
// larger than the read, so this shows how much the parser set aside.
int32_t g_largest_read = 0;
int32_t recording_read(QCMN_MFAL_FP *fp, void *buf, int32_t size) {
    if (size > g_largest_read) g_largest_read = size;
    return qcmn_mfal_read(fp, buf, size);
}

TEST(CuesTruncated, HugeDeclaredSizeOnlyAllocatesWhatTheFileHolds) {
    // The Cues claim nearly 4 GiB; the file holds three points.
    const Bytes points = three_points();
    for (bool size_known : {true, false}) {
        Instance inst = make_instance();
        CuesFile f = cues_file(points);
        MemoryFile mf(f.bytes);
        QCMN_MFAL mfal = mf.mfal;
        mfal.read = recording_read;
        g_largest_read = 0;
        inst->file_size = size_known ? (int64_t)f.bytes.size() : 0;
        inst->cues.cues_pos = f.cues_pos;
        inst->cues.cues_size = 0xFFFFFFF0u;
        ASSERT_EQ(0, parse_cues_ctx_fast(inst.get(), &mfal, mf.fp, &inst->cues)) << size_known;
        EXPECT_EQ(3u, inst->cues.cue_count);
        if (size_known) {
            EXPECT_EQ((int32_t)points.size(), g_largest_read);
        } else {
            EXPECT_LE(g_largest_read, 64 * 1024);
        }
        EXPECT_GT(g_largest_read, 0);
    }
}

TEST(CuesTruncated, UnknownSizeReadsPastTheFirstChunk) {
    // With no file size the buffer grows as reads come back full.
    Instance inst = make_instance();
    const int n = 20000;  // about 300 KB of points
    CuesFile f = cues_file(fixed_size_points(n));
    ASSERT_GT(f.cues_size, 128u * 1024);
    ASSERT_EQ(0, parse(inst.get(), f, false));
    ASSERT_EQ((uint32_t)n, inst->cues.cue_count);
    EXPECT_EQ((uint64_t)(n - 1), inst->cues.cue_points[n - 1].cue_time);
}

TEST(CuesTruncated, CuesBeyondTheFileGiveNoCues) {
    Instance inst = make_instance();
    CuesFile f = cues_file(three_points());
    f.bytes.resize((size_t)f.cues_pos - 1);
    ASSERT_EQ(0, parse(inst.get(), f));
    expect_empty(inst.get());
}

TEST(CuesTruncated, FailingReadsGiveNoCues) {
    Instance inst = make_instance();
    CuesFile f = cues_file(three_points());
    MemoryFile mf(f.bytes);
    mf.mem.failReads = true;
    inst->file_size = (int64_t)f.bytes.size();
    inst->cues.cues_pos = f.cues_pos;
    inst->cues.cues_size = f.cues_size;
    ASSERT_EQ(0, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, &inst->cues));
    expect_empty(inst.get());
}

TEST(CuesTruncated, DamageBeforeTheCutStillFails) {
    Instance inst = make_instance();
    CuesFile f = cues_file(cat({Bytes{0x00, 0x81, 0x00}, three_points()}));
    f.bytes.resize(f.bytes.size() - 5);
    EXPECT_EQ(-1, parse(inst.get(), f));
    expect_empty(inst.get());
}

// ------------------------------------------------------- per-track lists

TEST(CuesList, TakesTheTracksPointsInTableOrder) {
    Instance inst = make_instance();
    CuesFile f = cues_file(cat({cue_point(0, {positions(1, 100)}), cue_point(5, {positions(4, 150)}),
                                cue_point(10, {positions(1, 200)}), cue_point(20, {positions(4, 250)}),
                                cue_point(30, {positions(1, 300)})}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(5u, inst->cues.cue_count);
    MemoryFile mf(f.bytes);

    struct { uint32_t track; std::vector<std::pair<uint64_t, int64_t>> want; } cases[] = {
        {1, {{0, 100}, {10, 200}, {30, 300}}},
        {4, {{5, 150}, {20, 250}}},
        {7, {}},
    };
    for (const auto &c : cases) {
        qmkvd_cue_list list;
        memset(&list, 0xA5, sizeof(list));
        ASSERT_EQ(0, get_seek_from_cues(inst.get(), &mf.mfal, mf.fp, &inst->cues, &list, c.track));
        EXPECT_EQ(5u, list.capacity);
        ASSERT_EQ(c.want.size(), list.count) << c.track;
        for (size_t i = 0; i < c.want.size(); ++i) {
            EXPECT_EQ(c.want[i].first, list.entries[i].time);
            EXPECT_EQ(c.want[i].second, list.entries[i].cluster_position);
        }
        free(list.entries);
    }
}

TEST(CuesList, EmptyTableGivesAnEmptyList) {
    Instance inst = make_instance();
    qmkvd_cue_list list;
    memset(&list, 0xA5, sizeof(list));
    ASSERT_EQ(0, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, &list, 1));
    EXPECT_EQ(0u, list.count);
    EXPECT_EQ(nullptr, list.entries);
    free(list.entries);
    EXPECT_EQ(-1, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, nullptr, 1));
}

TEST(CuesList, CountedTableWithoutArrayFails) {
    Instance inst = make_instance();
    inst->cues.cue_count = 3;
    qmkvd_cue_list list = {};
    EXPECT_EQ(-1, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, &list, 1));
    EXPECT_EQ(nullptr, list.entries);
    inst->cues.cue_count = 0;
}

// ------------------------------------------------------------- searching

const uint32_t kNone = QMKVD_SEARCH_NONE;

// Fills the instance's table and a per-track list with the same times (in
// ticks); timecode_scale 100 makes one tick one 100-ns unit.
void set_times(qmkvd *inst, const std::vector<uint64_t> &ticks, qmkvd_cue_list *list, uint32_t scale = 100) {
    free(inst->cues.cue_points);
    inst->cues.cue_points = nullptr;
    inst->cues.cue_count = inst->cues.cue_capacity = 0;
    inst->info.timecode_scale = scale;
    list->count = list->capacity = (uint32_t)ticks.size();
    list->entries = nullptr;
    if (ticks.empty()) return;
    inst->cues.cue_points = static_cast<qmkvd_cue_point *>(calloc(ticks.size(), sizeof(qmkvd_cue_point)));
    list->entries = static_cast<qmkvd_cue_entry *>(calloc(ticks.size(), sizeof(qmkvd_cue_entry)));
    for (size_t i = 0; i < ticks.size(); ++i) {
        inst->cues.cue_points[i].cue_time = ticks[i];
        inst->cues.cue_points[i].cue_cluster_position = 1 + i;
        list->entries[i].time = ticks[i];
        list->entries[i].cluster_position = (int64_t)(1 + i);
    }
    inst->cues.cue_count = inst->cues.cue_capacity = (uint32_t)ticks.size();
}

struct SearchCase {
    int64_t time;
    int32_t mode;
    uint32_t want;
};

class CueSearch : public ::testing::TestWithParam<SearchCase> {
protected:
    void SetUp() override { set_times(inst.get(), {0, 10, 20}, &list); }
    void TearDown() override { free(list.entries); }
    Instance inst = make_instance();
    qmkvd_cue_list list = {};
};

TEST_P(CueSearch, InstanceTableAndTrackListAgree) {
    const SearchCase &c = GetParam();
    EXPECT_EQ(c.want, qmkvd_get_searchidx(inst.get(), c.time, c.mode)) << "time " << c.time << " mode " << c.mode;
    EXPECT_EQ(c.want, qmkvd_get_searchidx2(inst.get(), c.time, &list, c.mode)) << "time " << c.time << " mode "
                                                                              << c.mode;
}

INSTANTIATE_TEST_SUITE_P(
    AtOrBefore, CueSearch,
    ::testing::Values(SearchCase{-5, 0, kNone}, SearchCase{0, 0, 0}, SearchCase{5, 0, 0}, SearchCase{9, 0, 0},
                      SearchCase{10, 0, 1}, SearchCase{15, 0, 1}, SearchCase{20, 0, 2}, SearchCase{25, 0, 2},
                      SearchCase{INT64_MAX, 0, 2}, SearchCase{INT64_MIN, 0, kNone},
                      // Any mode other than 1 and 3 searches at-or-before.
                      SearchCase{15, 2, 1}, SearchCase{-1, 2, kNone}, SearchCase{15, 7, 1}, SearchCase{15, -1, 1}));

INSTANTIATE_TEST_SUITE_P(
    AtOrAfter, CueSearch,
    ::testing::Values(SearchCase{-5, 1, 0}, SearchCase{0, 1, 0}, SearchCase{1, 1, 1}, SearchCase{10, 1, 1},
                      SearchCase{11, 1, 2}, SearchCase{15, 1, 2}, SearchCase{20, 1, 2}, SearchCase{21, 1, kNone},
                      SearchCase{INT64_MIN, 1, 0}, SearchCase{INT64_MAX, 1, kNone}));

INSTANTIATE_TEST_SUITE_P(
    Nearest, CueSearch,
    ::testing::Values(SearchCase{-5, 3, kNone}, SearchCase{0, 3, 0}, SearchCase{4, 3, 0}, SearchCase{5, 3, 0},
                      SearchCase{6, 3, 1}, SearchCase{10, 3, 1}, SearchCase{14, 3, 1}, SearchCase{15, 3, 1},
                      SearchCase{16, 3, 2}, SearchCase{20, 3, 2}, SearchCase{25, 3, 2}, SearchCase{INT64_MAX, 3, 2},
                      SearchCase{INT64_MIN, 3, kNone}));

TEST(CueSearchEmpty, EveryModeFindsNothing) {
    Instance inst = make_instance();
    qmkvd_cue_list list = {};
    set_times(inst.get(), {}, &list);
    for (int32_t mode : {0, 1, 2, 3}) {
        for (int64_t t : {INT64_MIN, (int64_t)-1, (int64_t)0, (int64_t)10, INT64_MAX}) {
            EXPECT_EQ(kNone, qmkvd_get_searchidx(inst.get(), t, mode));
            EXPECT_EQ(kNone, qmkvd_get_searchidx2(inst.get(), t, &list, mode));
        }
    }
    EXPECT_EQ(kNone, qmkvd_get_searchidx(nullptr, 0, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(inst.get(), 0, nullptr, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(nullptr, 0, &list, 1));
}

TEST(CueSearchEmpty, CountWithoutArrayFindsNothing) {
    Instance inst = make_instance();
    inst->cues.cue_count = 4;
    qmkvd_cue_list list = {4, 4, nullptr};
    EXPECT_EQ(kNone, qmkvd_get_searchidx(inst.get(), 0, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(inst.get(), 0, &list, 1));
    inst->cues.cue_count = 0;
}

TEST(CueSearchTime, TicksScaleTo100nsTruncating) {
    Instance inst = make_instance();
    qmkvd_cue_list list = {};
    // TimecodeScale 1 ms: ticks 0, 5000, 10000 are 0, 5 s, 10 s.
    set_times(inst.get(), {0, 5000, 10000}, &list, 1000000);
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 50000000, 1));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 70000000, 0));
    EXPECT_EQ(2u, qmkvd_get_searchidx(inst.get(), 70000000, 1));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 70000000, 3));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 75000000, 3)) << "7.5 s ties to the earlier cue";
    EXPECT_EQ(2u, qmkvd_get_searchidx2(inst.get(), 75000001, &list, 3));
    EXPECT_EQ(kNone, qmkvd_get_searchidx(inst.get(), 120000000, 1));
    free(list.entries);

    // TimecodeScale 150 ns: tick 1 is 1.5 units, truncated to 1; tick 3 is 4.5 -> 4.
    set_times(inst.get(), {1, 3}, &list, 150);
    EXPECT_EQ(0u, qmkvd_get_searchidx(inst.get(), 1, 1));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 2, 1));
    EXPECT_EQ(1u, qmkvd_get_searchidx2(inst.get(), 4, &list, 0));
    EXPECT_EQ(0u, qmkvd_get_searchidx2(inst.get(), 3, &list, 0));
    free(list.entries);
}

TEST(CueSearchTime, ProductIsSigned) {
    // A product at or above 2^63 is a negative time, divided toward zero.
    Instance inst = make_instance();
    qmkvd_cue_list list = {};
    set_times(inst.get(), {0x8000000000000000ull, 0x8000000000000064ull}, &list, 1);
    const int64_t first = INT64_MIN / 100;  // -92233720368547758
    EXPECT_EQ(0u, qmkvd_get_searchidx(inst.get(), first, 1));
    EXPECT_EQ(0u, qmkvd_get_searchidx(inst.get(), first, 0));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), first + 1, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx(inst.get(), 0, 1)) << "both cues lie before time 0";
    EXPECT_EQ(1u, qmkvd_get_searchidx2(inst.get(), 0, &list, 3));
    free(list.entries);
}

TEST(CueSearchNearest, OutOfOrderNeighbourFollowsTheDistanceRule) {
    // Tables come from files and need not be sorted. On an exact hit the
    // distance to it is 0, and a next entry earlier than the time has a
    // negative distance, which is smaller: the next entry is taken.
    Instance inst = make_instance();
    qmkvd_cue_list list = {};
    set_times(inst.get(), {0, 10, 5}, &list);
    EXPECT_EQ(2u, qmkvd_get_searchidx(inst.get(), 10, 3));
    EXPECT_EQ(2u, qmkvd_get_searchidx2(inst.get(), 10, &list, 3));
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 10, 0));
    free(list.entries);
}

// Reference answers by a linear scan, for strictly increasing times.
uint32_t linear_answer(const std::vector<int64_t> &t, int64_t time, int32_t mode) {
    int64_t lo = -1;
    for (size_t i = 0; i < t.size(); ++i)
        if (t[i] <= time) lo = (int64_t)i;
    int64_t hi = (int64_t)t.size();
    for (size_t i = t.size(); i-- > 0;)
        if (t[i] >= time) hi = (int64_t)i;
    if (mode == 1) return hi == (int64_t)t.size() ? kNone : (uint32_t)hi;
    if (lo < 0) return kNone;
    if (mode == 3 && lo + 1 < (int64_t)t.size() && time - t[(size_t)lo] > t[(size_t)lo + 1] - time)
        return (uint32_t)(lo + 1);
    return (uint32_t)lo;
}

TEST(CueSearchOracle, MatchesALinearScanForManySizes) {
    std::mt19937_64 rng(12345);
    Instance inst = make_instance();
    for (uint32_t n = 1; n <= 40; ++n) {
        std::vector<uint64_t> ticks;
        std::vector<int64_t> t;
        uint64_t v = rng() % 7;
        for (uint32_t i = 0; i < n; ++i) {
            ticks.push_back(v);
            t.push_back((int64_t)v);
            v += 1 + rng() % 9;
        }
        qmkvd_cue_list list = {};
        set_times(inst.get(), ticks, &list);
        for (int64_t time = -2; time <= t.back() + 2; ++time) {
            for (int32_t mode : {0, 1, 3}) {
                const uint32_t want = linear_answer(t, time, mode);
                ASSERT_EQ(want, qmkvd_get_searchidx(inst.get(), time, mode)) << n << " " << time << " " << mode;
                ASSERT_EQ(want, qmkvd_get_searchidx2(inst.get(), time, &list, mode)) << n << " " << time << " " << mode;
            }
        }
        free(list.entries);
    }
}

TEST(CueSearchOracle, ParsedCuesSearchEndToEnd) {
    // Parse real bytes, then search the table and a track list built from it.
    Instance inst = make_instance();
    add_av_streams(inst.get());
    CuesFile f = cues_file(cat({cue_point(0, {positions(kVideo, 100)}), cue_point(0, {positions(kAudio, 100)}),
                                cue_point(10, {positions(kVideo, 200)}), cue_point(15, {positions(kAudio, 250)}),
                                cue_point(20, {positions(kVideo, 300)})}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(3u, inst->cues.cue_count);
    inst->info.timecode_scale = 100;
    qmkvd_cue_list list = {};
    ASSERT_EQ(0, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, &list, kVideo));
    ASSERT_EQ(3u, list.count);
    EXPECT_EQ(1u, qmkvd_get_searchidx(inst.get(), 15, 3));
    EXPECT_EQ(2u, qmkvd_get_searchidx2(inst.get(), 16, &list, 3));
    EXPECT_EQ(200, list.entries[qmkvd_get_searchidx2(inst.get(), 12, &list, 0)].cluster_position);
    free(list.entries);
}

}  // namespace
