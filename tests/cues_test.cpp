#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "demux/qmkvd_cues.h"
#include "tests/support/ebml_writer.h"
#include "tests/support/memory_file.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

using namespace mkv;
const uint32_t kCueBlockNumber = 0x5378, kCrc32 = 0xBF;
// Track numbers; the last is too large for the audio bit mask.
const uint32_t kVideo = 1, kAudio = 2, kSubs = 3, kWideAudio = 300;

// The instance is large; tests build it on the heap like the real creator.
struct InstanceDeleter {
    void operator()(qmkvd *inst) const {
        free(inst->cues.cue_points);
        free(inst);
    }
};
using Instance = std::unique_ptr<qmkvd, InstanceDeleter>;

void add_stream(qmkvd *inst, uint32_t track_number, uint8_t track_type) {
    qmkvds &s = inst->streams[inst->stream_count];
    s.index = inst->stream_count++;
    s.magic = QMKVDS_MAGIC;
    s.demux = inst;
    s.track.track_number = track_number;
    s.track.track_type = track_type;
    s.stream_type = track_type;
}

// Audio comes first so that no stream's index (or index + 1) is its track number.
void add_av_streams(qmkvd *inst) {
    add_stream(inst, kAudio, QMKVD_TRACK_AUDIO);
    add_stream(inst, kVideo, QMKVD_TRACK_VIDEO);
    add_stream(inst, kSubs, QMKVD_TRACK_SUBTITLE);
    add_stream(inst, kWideAudio, QMKVD_TRACK_AUDIO);
}

Instance make_instance(bool av_streams = false) {
    Instance inst(static_cast<qmkvd *>(calloc(1, sizeof(qmkvd))));
    inst->magic = QMKVD_MAGIC;
    inst->self = inst.get();
    inst->info.timecode_scale = 1000000;
    if (av_streams) add_av_streams(inst.get());
    return inst;
}

Bytes positions(uint64_t track, uint64_t cluster, int64_t block = -1) {
    Bytes b = cat({uint_el(CueTrack, track), uint_el(CueClusterPosition, cluster)});
    if (block >= 0) b = cat({b, uint_el(kCueBlockNumber, (uint64_t)block)});
    return el(CueTrackPositions, b);
}

Bytes cue_point(uint64_t time, const std::vector<Bytes> &track_positions) {
    Bytes b = uint_el(CueTime, time);
    for (const Bytes &tp : track_positions) b.insert(b.end(), tp.begin(), tp.end());
    return el(CuePoint, b);
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
    Bytes header = el_header(Cues, payload.size());
    f.bytes = cat({Bytes(kLead, 0x42), header, payload, tail});
    f.cues_pos = (int64_t)(kLead + header.size());
    f.cues_size = (uint32_t)payload.size();
    return f;
}

// Parses the file's Cues into `table`, the instance's own by default.
int32_t parse(qmkvd *inst, MemoryFile &mf, const CuesFile &f, bool size_known = true,
              qmkvd_cue_table *table = nullptr) {
    if (table == nullptr) table = &inst->cues;
    inst->file_size = size_known ? (int64_t)f.bytes.size() : 0;
    table->cues_pos = f.cues_pos;
    table->cues_size = f.cues_size;
    return parse_cues_ctx_fast(inst, &mf.mfal, mf.fp, table);
}

int32_t parse(qmkvd *inst, const CuesFile &f, bool size_known = true) {
    MemoryFile mf(f.bytes);
    return parse(inst, mf, f, size_known);
}

std::vector<uint64_t> clusters(const qmkvd_cue_table &t) {
    std::vector<uint64_t> out;
    for (uint32_t i = 0; i < t.cue_count; ++i) out.push_back(t.cue_points[i].cue_cluster_position);
    return out;
}

void expect_empty(const qmkvd *inst) {
    EXPECT_EQ(0u, inst->cues.cue_count);
    EXPECT_EQ(0u, inst->cues.cue_capacity);
    EXPECT_EQ(nullptr, inst->cues.cue_points);
}

// ---------------------------------------------------------------- parsing

// A point's fields in declaration order.
std::vector<int64_t> fields(const qmkvd_cue_point &p) {
    return {p.cue_point_pos, p.cue_point_size, (int64_t)p.cue_time, p.track_positions_pos, p.track_positions_size,
            p.cue_track, (int64_t)p.cue_cluster_position, (int64_t)p.cue_block_number, p.track_positions_count};
}

TEST(CuesParse, StoresEveryFieldOfACuePoint) {
    Instance inst = make_instance(true);
    const Bytes tp0 = positions(kVideo, 0x1234, 1), tp1 = positions(kSubs, 0x99), tp2 = positions(kVideo, 0x5678, 7);
    const Bytes p0 = cue_point(0, {tp0}), p1 = cue_point(5000, {tp1, tp2});
    CuesFile f = cues_file(cat({p0, p1}));
    ASSERT_EQ(0, parse(inst.get(), f));
    ASSERT_EQ(2u, inst->cues.cue_count);
    EXPECT_EQ(256u, inst->cues.cue_capacity);
    // Headers: 2 bytes for CuePoint and CueTrackPositions; CueTime is 3 bytes, 4 for 5000.
    const int64_t a = f.cues_pos + 2, b = a + (int64_t)p0.size();
    EXPECT_EQ((std::vector<int64_t>{a, (int64_t)p0.size() - 2, 0, a + 3 + 2, (int64_t)tp0.size() - 2, kVideo, 0x1234,
                                    1, 1}),
              fields(inst->cues.cue_points[0]));
    // The last CueTrackPositions wins.
    EXPECT_EQ((std::vector<int64_t>{b, (int64_t)p1.size() - 2, 5000, b + 4 + (int64_t)tp1.size() + 2,
                                    (int64_t)tp2.size() - 2, kVideo, 0x5678, 7, 2}),
              fields(inst->cues.cue_points[1]));
}

TEST(CuesParse, SkipsOtherChildrenAndReadsOnce) {
    Instance inst = make_instance();
    Bytes tp = el(CueTrackPositions, {el(0xF0, Bytes{9}), uint_el(CueTrack, 1), el(Void, Bytes{0, 0}),
                                       uint_el(CueClusterPosition, 77)});
    Bytes payload = cat({el(kCrc32, Bytes{1, 2, 3, 4}), cue_point(10, {positions(kVideo, 50)}),
                         el(Void, Bytes(7, 0)), el(CuePoint, {el(Void, Bytes{0}), uint_el(CueTime, 3), tp}),
                         el(Void, Bytes{})});
    for (int i = 0; i < 100; ++i) payload = cat({payload, cue_point(100, {positions(kVideo, 100)})});
    CuesFile f = cues_file(payload, Bytes(1000, 0));
    MemoryFile mf(f.bytes);
    mf.mem.readCalls = 0;
    ASSERT_EQ(0, parse(inst.get(), mf, f));
    EXPECT_EQ(1, mf.mem.readCalls);
    ASSERT_EQ(102u, inst->cues.cue_count);
    EXPECT_EQ(50u, inst->cues.cue_points[0].cue_cluster_position);
    EXPECT_EQ(3u, inst->cues.cue_points[1].cue_time);
    EXPECT_EQ(77u, inst->cues.cue_points[1].cue_cluster_position);
}

TEST(CuesParse, EmptyZeroSizedOrNullArguments) {
    Instance inst = make_instance();
    ASSERT_EQ(0, parse(inst.get(), cues_file(el(Void, Bytes(20, 0)))));
    expect_empty(inst.get());
    CuesFile f = cues_file(cat({cue_point(0, {positions(kVideo, 10)}), cue_point(10, {positions(kVideo, 20)})}));
    f.cues_size = 0;
    MemoryFile mf(f.bytes);
    mf.mem.readCalls = 0;
    EXPECT_EQ(0, parse(inst.get(), mf, f));
    expect_empty(inst.get());
    EXPECT_EQ(0, mf.mem.readCalls);

    inst->cues.cues_size = (uint32_t)(f.bytes.size() - f.cues_pos);
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), &mf.mfal, mf.fp, nullptr));
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), nullptr, mf.fp, &inst->cues));
    EXPECT_EQ(-1, parse_cues_ctx_fast(inst.get(), &mf.mfal, nullptr, &inst->cues));
    expect_empty(inst.get());
    // Without an instance nothing is dropped for audio and the size is unknown.
    EXPECT_EQ(0, parse_cues_ctx_fast(nullptr, &mf.mfal, mf.fp, &inst->cues));
    EXPECT_EQ(2u, inst->cues.cue_count);
}

TEST(CuesParse, ReplacesTheTableOrFillsAnother) {
    Instance inst = make_instance(true);
    ASSERT_EQ(0, parse(inst.get(), cues_file(cat({cue_point(1, {positions(kVideo, 1)}),
                                                  cue_point(2, {positions(kVideo, 2)})}))));
    ASSERT_EQ(2u, inst->cues.cue_count);
    // LeakSanitizer checks that the first array was released.
    ASSERT_EQ(0, parse(inst.get(), cues_file(cue_point(9, {positions(kVideo, 90)}))));
    EXPECT_EQ(std::vector<uint64_t>{90}, clusters(inst->cues));

    // Another table is filled by the instance's rules and leaves its own alone.
    CuesFile f = cues_file(cat({cue_point(1, {positions(kAudio, 1)}), cue_point(2, {positions(kVideo, 2)})}));
    MemoryFile mf(f.bytes);
    qmkvd_cue_table table = {};
    ASSERT_EQ(0, parse(inst.get(), mf, f, true, &table));
    EXPECT_EQ(std::vector<uint64_t>{2}, clusters(table));
    EXPECT_EQ(std::vector<uint64_t>{90}, clusters(inst->cues));
    free(table.cue_points);
}

// ------------------------------------------------- which cue points are kept

TEST(CuesKeep, KeepsOrDropsThePoint) {
    struct Case {
        const char *name;
        bool with_streams;  // false: the Cues come before the Tracks
        std::vector<Bytes> track_positions;  // of a point at time 77
        uint32_t track;     // expected values when kept
        uint64_t cluster;
        uint32_t positions_count;  // 0: dropped
    };
    const Case cases[] = {
        {"video", true, {positions(kVideo, 500)}, kVideo, 500, 1},
        {"subtitle", true, {positions(kSubs, 500)}, kSubs, 500, 1},
        {"audio", true, {positions(kAudio, 500)}, 0, 0, 0},
        {"wide_audio", true, {positions(kWideAudio, 500)}, 0, 0, 0},
        {"video_then_audio", true, {positions(kVideo, 500), positions(kAudio, 600)}, 0, 0, 0},
        {"audio_then_video", true, {positions(kAudio, 600), positions(kVideo, 500)}, kVideo, 500, 2},
        {"position_before_audio_track", true,
         {el(CueTrackPositions, {uint_el(CueClusterPosition, 9), uint_el(CueTrack, kAudio)})}, 0, 0, 0},
        {"track_without_stream", true, {positions(9, 500)}, 9, 500, 1},
        {"audio_number_before_tracks", false, {positions(kAudio, 500)}, kAudio, 500, 1},
        {"cluster_position_zero", true, {positions(kVideo, 0)}, 0, 0, 0},
        {"no_cluster_position", true, {el(CueTrackPositions, {uint_el(CueTrack, kVideo)})}, 0, 0, 0},
        {"no_track_positions", true, {}, 0, 0, 0},
        {"later_positions_without_cluster", true,
         {positions(kVideo, 500), el(CueTrackPositions, {uint_el(CueTrack, kSubs)})}, 0, 0, 0},
        {"later_position_zero", true, {positions(kVideo, 500), positions(kSubs, 0)}, 0, 0, 0},
        {"track_number_wider_than_32_bits", true, {positions(0x100000002ull, 500)}, 2, 500, 1},
        {"numbers_8_bytes_wide", true,
         {el(CueTrackPositions, {uint_el(CueTrack, kVideo, 8), uint_el(CueClusterPosition, 500, 8)})}, kVideo, 500, 1},
    };
    // Each point sits between two kept ones, so that a dropped slot is reused.
    const Bytes other = cue_point(1, {positions(kVideo, 11)});
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Instance inst = make_instance(c.with_streams);
        ASSERT_EQ(0, parse(inst.get(), cues_file(cat({other, cue_point(77, c.track_positions), other}))));
        std::vector<uint64_t> want = {11, 11};
        if (c.positions_count) want.insert(want.begin() + 1, c.cluster);
        ASSERT_EQ(want, clusters(inst->cues));
        EXPECT_EQ(1u, inst->cues.cue_points[want.size() - 1].track_positions_count) << "a reused slot starts clean";
        const qmkvd_cue_point &p = inst->cues.cue_points[1];
        if (c.positions_count) {
            EXPECT_EQ(std::make_tuple(c.track, c.positions_count, 77u),
                      std::make_tuple(p.cue_track, p.track_positions_count, (uint32_t)p.cue_time));
        }
    }
    // A table left with nothing kept is released.
    Instance inst = make_instance(true);
    ASSERT_EQ(0, parse(inst.get(), cues_file(cat({cue_point(1, {positions(kAudio, 5)}),
                                                  cue_point(2, {positions(kVideo, 0)})}))));
    expect_empty(inst.get());
}

// ------------------------------------------------------------ table growth

Bytes fixed_size_points(int count, uint64_t first_time = 0) {
    Bytes payload;
    payload.reserve((size_t)count * 24);
    for (int i = 0; i < count; ++i) {
        Bytes tp = el(CueTrackPositions, {uint_el(CueTrack, kVideo, 1), uint_el(CueClusterPosition, 1000 + i, 4)});
        Bytes p = el(CuePoint, {uint_el(CueTime, first_time + (uint64_t)i, 4), tp});
        payload.insert(payload.end(), p.begin(), p.end());
    }
    return payload;
}

TEST(CuesGrowth, GrowsByTheStepOfTheFirstPoint) {
    // Every point here is 19 bytes, 17 of data: the estimate is the Cues size
    // over the first point's data size, 19/17 of the count. Below 2561 the step
    // is 256; from there a tenth of the estimate, at most 4096.
    const struct { int points; uint32_t capacity; } cases[] = {
        {1, 256}, {256, 256}, {257, 512},
        {1000, 1024},   // estimate 1117: still 256
        {2291, 2304},   // estimate 2560: 256
        {2300, 2313},   // estimate 2570: 257
        {3000, 3015},   // estimate 3352: 335
        {50000, 53248}  // estimate 55882: capped at 4096
    };
    for (const auto &c : cases) {
        // Without a file size the larger tables take several growing reads.
        for (bool size_known : {true, false}) {
            SCOPED_TRACE(testing::Message() << c.points << " points, size known " << size_known);
            Instance inst = make_instance();
            ASSERT_EQ(0, parse(inst.get(), cues_file(fixed_size_points(c.points)), size_known));
            ASSERT_EQ((uint32_t)c.points, inst->cues.cue_count);
            EXPECT_EQ(c.capacity, inst->cues.cue_capacity);
            for (int i = 0; i < c.points; ++i) {
                ASSERT_EQ((uint64_t)i, inst->cues.cue_points[i].cue_time) << i;
                ASSERT_EQ((uint64_t)(1000 + i), inst->cues.cue_points[i].cue_cluster_position) << i;
            }
        }
    }
    // A large first point makes the estimate small: step 256, even though
    // 3000 small points follow.
    Instance inst = make_instance();
    Bytes big = el(CuePoint, {uint_el(CueTime, 0), el(Void, Bytes(4000, 0)), positions(kVideo, 5)});
    ASSERT_EQ(0, parse(inst.get(), cues_file(cat({big, fixed_size_points(3000, 1)}))));
    EXPECT_EQ(3001u, inst->cues.cue_count);
    EXPECT_EQ(256u * 12, inst->cues.cue_capacity);
}

// ----------------------------------------------------------- damaged Cues

// A CuePoint at time 1 with one CueTrackPositions of this payload.
Bytes in_positions(const Bytes &payload) { return el(CuePoint, {uint_el(CueTime, 1), el(CueTrackPositions, payload)}); }

TEST(CuesDamaged, FailsAndFreesTheTable) {
    // The damage follows two good points; a tail is there when it claims bytes after the element.
    const struct { const char *name; Bytes damage; Bytes tail; } cases[] = {
        {"bad_header", {0x00, 0x81, 0x00}, {}},
        {"header_cut_by_element_end", {0xBB}, Bytes(32, 0x81)},
        {"cue_point_past_end", cat({el_header(CuePoint, 10), Bytes{0xB3, 0x81, 1}}), Bytes(64, 0x81)},
        {"cue_point_size_above_2g", el_header(CuePoint, 0x80000000ull), Bytes(16, 0)},
        {"cue_point_unknown_size", {0xBB, 0xFF}, Bytes(200, 0)},
        {"child_size_above_2g", el(CuePoint, cat({el_header(CueTime, 0x80000000ull, 8), Bytes{1}})), {}},
        {"positions_child_above_2g", in_positions(cat({el_header(CueClusterPosition, 0xFFFFFFFFFull), Bytes{1}})), {}},
        {"bad_header_inside_cue_point", el(CuePoint, Bytes{0x00, 0x81, 0x01}), {}},
        {"header_cut_by_cue_point_end", cat({el(CuePoint, cat({uint_el(CueTime, 1), Bytes{0x53}})), cue_point(2, {})}),
         {}},
        {"bad_header_inside_positions", in_positions({0x40, 0x00}), {}},
        {"cue_time_wider_than_8_bytes", el(CuePoint, {el(CueTime, Bytes(9, 1)), positions(kVideo, 5)}), {}},
        {"cluster_position_wider_than_8_bytes",
         in_positions(cat({uint_el(CueTrack, 1), el(CueClusterPosition, Bytes(9, 1))})), {}},
        {"cue_track_wider_than_8_bytes", in_positions(cat({el(CueTrack, Bytes(9, 0)), uint_el(CueClusterPosition, 3)})),
         {}},
    };
    const Bytes good = cat({cue_point(0, {positions(kVideo, 10)}), cue_point(10, {positions(kVideo, 20)})});
    for (const auto &c : cases) {
        for (bool size_known : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (size_known ? "" : " size unknown"));
            Instance inst = make_instance(true);
            EXPECT_EQ(-1, parse(inst.get(), cues_file(cat({good, c.damage}), c.tail), size_known));
            expect_empty(inst.get());
        }
    }
}

TEST(CuesDamaged, ChildPastItsParentEndsThatParentOnly) {
    // A child whose size runs past its CuePoint or CueTrackPositions ends
    // that walk with what it has, even at the largest allowed size; the next
    // CuePoint is read normally. A child of the Cues other than a CuePoint
    // running past their end just ends the walk.
    Instance inst = make_instance();
    Bytes time_past = cat({positions(kVideo, 40), el_header(CueTime, 5), Bytes{1, 2}});
    Bytes track_past = cat({uint_el(CueClusterPosition, 33), el_header(CueTrack, 9), Bytes{1}});
    Bytes largest = cat({positions(kVideo, 45), el_header(CueTime, 0x7FFFFFFF), Bytes{1}});
    CuesFile f = cues_file(cat({el(CuePoint, time_past), el(CuePoint, {uint_el(CueTime, 8),
                                                                        el(CueTrackPositions, track_past)}),
                                el(CuePoint, largest), cue_point(9, {positions(kVideo, 50)}),
                                el_header(Void, 100), Bytes{0, 0}}),
                           Bytes(200, 0));
    ASSERT_EQ(0, parse(inst.get(), f));
    EXPECT_EQ((std::vector<uint64_t>{40, 33, 45, 50}), clusters(inst->cues));
    EXPECT_EQ(0u, inst->cues.cue_points[0].cue_time);
    EXPECT_EQ(0u, inst->cues.cue_points[1].cue_track);
}

// ---------------------------------------------------------- truncated file

Bytes three_points() {
    return cat({cue_point(0, {positions(kVideo, 10)}), cue_point(10, {positions(kVideo, 20)}),
                cue_point(20, {positions(kVideo, 30)})});
}

// Records the largest read asked for: the buffer a read fills is never
// larger than the read, so this shows how much the parser set aside.
int32_t g_largest_read = 0;
int32_t recording_read(QCMN_MFAL_FP *fp, void *buf, int32_t size) {
    if (size > g_largest_read) g_largest_read = size;
    return qcmn_mfal_read(fp, buf, size);
}

TEST(CuesTruncated, KeepsWhatTheFileHoldsAndAllocatesNoMore) {
    // Each point is 13 bytes: BB 8B | B3 81 t | B7 86 F7 81 01 F1 81 p.
    const struct { int cut; uint32_t kept; } cases[] = {  // cut: bytes of the payload the file still holds
        {-1, 0}, {0, 0}, {1, 0}, {7, 0}, {13, 1}, {14, 1}, {15, 1}, {30, 2}, {38, 2}, {39, 3}};
    for (const auto &c : cases) {
        // Declared as they are, or as nearly 4 GiB.
        for (uint32_t declared : {39u, 0xFFFFFFF0u}) {
            for (bool size_known : {true, false}) {
                SCOPED_TRACE(testing::Message() << "cut " << c.cut << " declared " << declared << " size known "
                                                << size_known);
                CuesFile f = cues_file(three_points());
                f.bytes.resize((size_t)(f.cues_pos + c.cut));
                f.cues_size = declared;
                MemoryFile mf(f.bytes);
                mf.mfal.read = recording_read;
                g_largest_read = 0;
                Instance inst = make_instance();
                ASSERT_EQ(0, parse(inst.get(), mf, f, size_known));
                std::vector<uint64_t> want = {10, 20, 30};
                want.resize(c.kept);
                ASSERT_EQ(want, clusters(inst->cues));
                if (c.kept == 0) expect_empty(inst.get());
                EXPECT_LE(g_largest_read, size_known ? std::max(c.cut, 0) : 64 * 1024);
            }
        }
    }
}

TEST(CuesTruncated, UnreadableOrDamagedBytes) {
    Instance inst = make_instance();
    CuesFile f = cues_file(three_points());
    MemoryFile mf(f.bytes);
    mf.mem.failReads = true;
    ASSERT_EQ(0, parse(inst.get(), mf, f));
    expect_empty(inst.get());

    // Only the cut itself is forgiven, not damage before it.
    CuesFile damaged = cues_file(cat({Bytes{0x00, 0x81, 0x00}, three_points()}));
    damaged.bytes.resize(damaged.bytes.size() - 5);
    EXPECT_EQ(-1, parse(inst.get(), damaged));
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
        std::vector<std::pair<uint64_t, int64_t>> got;
        for (uint32_t i = 0; i < list.count; ++i)
            got.emplace_back(list.entries[i].time, list.entries[i].cluster_position);
        EXPECT_EQ(c.want, got) << c.track;
        free(list.entries);
    }
}

const uint32_t kNone = QMKVD_SEARCH_NONE;

TEST(CuesList, EmptyOrBrokenTable) {
    Instance inst = make_instance();
    qmkvd_cue_list list;
    memset(&list, 0xA5, sizeof(list));
    ASSERT_EQ(0, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, &list, 1));
    EXPECT_EQ(0u, list.count);
    EXPECT_EQ(nullptr, list.entries);
    EXPECT_EQ(-1, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, nullptr, 1));
    // A counted table without an array.
    inst->cues.cue_count = 3;
    EXPECT_EQ(-1, get_seek_from_cues(inst.get(), nullptr, nullptr, &inst->cues, &list, 1));
    EXPECT_EQ(nullptr, list.entries);
    // Searches too find nothing there.
    qmkvd_cue_list broken = {4, 4, nullptr};
    EXPECT_EQ(kNone, qmkvd_get_searchidx(inst.get(), 0, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(inst.get(), 0, &broken, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx(nullptr, 0, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(inst.get(), 0, nullptr, 1));
    EXPECT_EQ(kNone, qmkvd_get_searchidx2(nullptr, 0, &broken, 1));
    inst->cues.cue_count = 0;
}

// ------------------------------------------------------------- searching

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
        list->entries[i].time = ticks[i];
    }
    inst->cues.cue_count = inst->cues.cue_capacity = (uint32_t)ticks.size();
}

// The instance's table and the track list must give the same answer.
void expect_search(qmkvd *inst, qmkvd_cue_list *list, int64_t time, int32_t mode, uint32_t want) {
    EXPECT_EQ(want, qmkvd_get_searchidx(inst, time, mode)) << "time " << time << " mode " << mode;
    EXPECT_EQ(want, qmkvd_get_searchidx2(inst, time, list, mode)) << "time " << time << " mode " << mode;
}

TEST(CueSearch, TicksScaleTo100nsAndUnsortedTables) {
    struct Probe { int64_t time; int32_t mode; uint32_t want; };
    const int64_t min = INT64_MIN / 100;  // -92233720368547758
    const struct { uint32_t scale; std::vector<uint64_t> ticks; std::vector<Probe> probes; } cases[] = {
        // 1 ms: ticks 0, 5000, 10000 are 0, 5 s, 10 s; 7.5 s ties to the earlier cue.
        {1000000, {0, 5000, 10000}, {{50000000, 1, 1}, {70000000, 0, 1}, {70000000, 1, 2}, {70000000, 3, 1},
                                     {75000000, 3, 1}, {75000001, 3, 2}, {120000000, 1, kNone}}},
        // 150 ns: tick 1 is 1.5 units, truncated to 1; tick 3 is 4.5 -> 4.
        {150, {1, 3}, {{1, 1, 0}, {2, 1, 1}, {4, 0, 1}, {3, 0, 0}}},
        // A product at or above 2^63 is a negative time, divided toward zero:
        // both cues lie before time 0.
        {1, {0x8000000000000000ull, 0x8000000000000064ull},
         {{min, 1, 0}, {min, 0, 0}, {min + 1, 1, 1}, {0, 1, kNone}, {0, 3, 1}}},
        // Tables come from files and need not be sorted. On an exact hit the
        // distance to it is 0, and a next entry earlier than the time has a
        // negative distance, which is smaller: the next entry is taken.
        {100, {0, 10, 5}, {{10, 3, 2}, {10, 0, 1}}},
    };
    for (const auto &c : cases) {
        Instance inst = make_instance();
        qmkvd_cue_list list = {};
        set_times(inst.get(), c.ticks, &list, c.scale);
        for (const Probe &p : c.probes) expect_search(inst.get(), &list, p.time, p.mode, p.want);
        free(list.entries);
    }
}

// Reference answers by a linear scan, for strictly increasing times. Any
// mode other than 1 and 3 searches at-or-before.
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

TEST(CueSearch, MatchesALinearScanForManySizes) {
    std::mt19937_64 rng(12345);
    Instance inst = make_instance();
    for (uint32_t n = 0; n <= 40; ++n) {
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
        std::vector<int64_t> times = {INT64_MIN, INT64_MAX};
        for (int64_t time = -2; time <= (n ? t.back() : 0) + 2; ++time) times.push_back(time);
        for (int64_t time : times) {
            for (int32_t mode : {-1, 0, 1, 2, 3, 7}) {
                const uint32_t want = linear_answer(t, time, mode);
                ASSERT_EQ(want, qmkvd_get_searchidx(inst.get(), time, mode)) << n << " " << time << " " << mode;
                ASSERT_EQ(want, qmkvd_get_searchidx2(inst.get(), time, &list, mode)) << n << " " << time << " " << mode;
            }
        }
        free(list.entries);
    }
}

}  // namespace
