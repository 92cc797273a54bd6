// Recordings written as they go (browser and screen recorders, live muxers,
// pipes) carry no Duration. Their length is the end of the last frame: the
// last Cluster is found by reading the file backwards in growing pieces, a
// candidate is trusted only when its ID, its Timestamp and a well-formed
// first block agree (a frame's bytes may hold the Cluster ID by chance), and
// its complete blocks give the end.
#include "demux/qmkvd_tail.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"

namespace {

const char kTag[] = "qmkvd";
// Element headers the search looks at, at most: the last Cluster of a real
// file has a few thousand blocks.
const int32_t kMaxSteps = 1 << 20;

enum {
    ID_TIMECODE = 0xE7,
    ID_BLOCK_GROUP = 0xA0,
    ID_SIMPLE_BLOCK = 0xA3,
    ID_BLOCK = 0xA1,
    ID_BLOCK_DURATION = 0x9B,
    ID_VOID = 0xEC,
    ID_CRC32 = 0xBF,
};

// The file's last bytes, [start, end), held in memory, and how many more
// element headers the search may look at: a file of Cluster IDs each
// followed by a long run of children would otherwise cost the square of
// its size.
struct tail {
    const uint8_t *bytes;
    int64_t start;
    int64_t end;
    int32_t steps_left;
};

// Counts one element header looked at; false once the search's budget is
// spent.
bool step(tail *t) {
    if (t->steps_left <= 0) return false;
    t->steps_left--;
    return true;
}

// An element header at `pos`; false when it is malformed or runs past the
// bytes held.
bool header_at(const tail *t, int64_t pos, uint32_t *id, uint64_t *size, int64_t *data) {
    if (pos < t->start || pos >= t->end) return false;
    const int32_t n = qmkvd_ebml_header_in(t->bytes + (pos - t->start), (uint64_t)(t->end - pos), id, size);
    if (n < 0) return false;
    *data = pos + n;
    return true;
}

// What a block header says.
struct block_head {
    int32_t stream;   // index of the kept stream it belongs to, or -1
    int16_t rel;      // relative timecode
    uint32_t frames;  // 1, or the lace count
};

int32_t stream_of(const qmkvd *inst, uint64_t track_number) {
    for (int32_t i = 0; i < inst->stream_count; ++i)
        if (inst->streams[i].track.track_number == track_number) return i;
    return -1;
}

bool known_track(const qmkvd *inst, uint64_t track_number) {
    if (track_number == 0) return false;
    for (uint32_t i = 0; i < inst->track_scratch_count; ++i)
        if (inst->track_scratch[i].track_number == track_number) return true;
    return stream_of(inst, track_number) >= 0;
}

// The header of the block whose data is [data, data + size): false unless it
// names a track of the file and fits in the block.
bool read_block_head(const qmkvd *inst, const tail *t, int64_t data, uint64_t size, block_head *b) {
    if (data < t->start || data >= t->end) return false;
    const uint8_t *p = t->bytes + (data - t->start);
    const uint64_t held = (uint64_t)(t->end - data);
    if (p[0] == 0) return false;
    const int32_t extra = qmkvd_get_clz(p[0]);
    const uint64_t head = (uint64_t)extra + 1 + 3;  // track number, timecode, flags
    if (extra > 7 || head > size || head > held) return false;
    uint64_t track = p[0] & (0x7F >> extra);
    for (int32_t k = 1; k <= extra; ++k) track = track << 8 | p[k];
    if (!known_track(inst, track)) return false;
    b->stream = stream_of(inst, track);
    b->rel = (int16_t)(uint16_t)(p[extra + 1] << 8 | p[extra + 2]);
    const uint8_t flags = p[extra + 3];
    b->frames = 1;
    if ((flags & 0x06) != 0) {
        if (head + 1 > size || head + 1 > held) return false;
        b->frames = (uint32_t)p[head] + 1;
    }
    return true;
}

// The block of a BlockGroup and its BlockDuration (0 when absent).
bool group_block(tail *t, int64_t data, uint64_t size, int64_t *block, uint64_t *block_size,
                 uint64_t *duration) {
    const int64_t end = data + (int64_t)size;
    bool found = false;
    *duration = 0;
    for (int64_t pos = data; pos < end;) {
        uint32_t id;
        uint64_t child;
        int64_t child_data;
        if (!step(t) || !header_at(t, pos, &id, &child, &child_data) || child > (uint64_t)(end - child_data))
            return false;
        if (id == ID_BLOCK) {
            *block = child_data;
            *block_size = child;
            found = true;
        } else if (id == ID_BLOCK_DURATION && child >= 1 && child <= 8) {
            *duration = qmkvd_b2v_in(t->bytes + (child_data - t->start), (int32_t)child);
        }
        pos = child_data + (int64_t)child;
    }
    return found;
}

// The walk of one candidate Cluster.
struct cluster_walk {
    const qmkvd *inst;
    tail *t;
    uint64_t timecode;
    bool seen_timecode;
    bool seen_block;
    int64_t end_ns;  // the latest end of a complete block, -1 while none
    int64_t last_start_ns[QMKVD_MAX_TRACKS];
};

// A block's start in nanoseconds; false when it does not fit 64 bits.
bool start_ns(const cluster_walk *w, int16_t rel, int64_t *ns) {
    if (w->timecode == 0 && rel < 0) rel = 0;
    int64_t ticks;
    if (w->timecode > (uint64_t)INT64_MAX || __builtin_add_overflow((int64_t)w->timecode, (int64_t)rel, &ticks))
        return false;
    return !__builtin_mul_overflow(ticks, (int64_t)w->inst->info.timecode_scale, ns);
}

// How long a block lasts: its BlockDuration, else its frames at the track's
// DefaultDuration, else the track's last interval between blocks.
int64_t block_length_ns(const cluster_walk *w, const block_head *b, int64_t start, uint64_t block_duration) {
    const qmkvd_track *track = &w->inst->streams[b->stream].track;
    int64_t ns = 0;
    if (block_duration != 0) {
        if (block_duration > (uint64_t)INT64_MAX ||
            __builtin_mul_overflow((int64_t)block_duration, (int64_t)w->inst->info.timecode_scale, &ns))
            return 0;
        return ns;
    }
    if (track->default_duration != 0) return (int64_t)track->default_duration * b->frames;
    const int64_t last = w->last_start_ns[b->stream];
    return last >= 0 && start > last ? start - last : 0;
}

// Takes a complete block element into the walk; false when it is
// malformed.
bool take_block(cluster_walk *w, uint32_t id, int64_t data, uint64_t size) {
    int64_t block = data;
    uint64_t block_size = size;
    uint64_t block_duration = 0;
    block_head b;
    if (id == ID_BLOCK_GROUP && !group_block(w->t, data, size, &block, &block_size, &block_duration)) return false;
    if (!read_block_head(w->inst, w->t, block, block_size, &b)) return false;
    if (b.stream < 0) return true;  // a track the file keeps no stream for
    int64_t start;
    if (!start_ns(w, b.rel, &start)) return false;
    const int64_t length = block_length_ns(w, &b, start, block_duration);
    w->last_start_ns[b.stream] = start;
    const int64_t end = start > INT64_MAX - length ? INT64_MAX : start + length;
    if (end > w->end_ns) w->end_ns = end;
    return true;
}

// Whether a Cluster whose data starts at `data` may have `size`: it runs to
// or past the end of the file (unknown or cut), or what follows it can be
// an element of the Segment (or is cut off). A Cluster ID inside a frame rarely passes this.
bool ends_well(const tail *t, int64_t data, uint64_t size) {
    if (size >= (uint64_t)(t->end - data)) return true;
    uint32_t id;
    uint64_t next_size;
    int64_t next_data;
    const int64_t next = data + (int64_t)size;
    // A header the end of the file cuts tells nothing.
    if (!header_at(t, next, &id, &next_size, &next_data)) return t->end - next < QMKVD_MAX_HEADER;
    // Every element a Segment holds has a 4-byte ID; Void and CRC-32 may
    // stand anywhere.
    return id >= 0x10000000u || id == ID_VOID || id == ID_CRC32;
}

// The end of the latest complete block of the Cluster whose ID is at `pos`;
// -1 when it holds none or `pos` is no Cluster: before its first block only
// a Cluster's own children may come, its Timestamp among them, and that
// block must name a track of the file.
int64_t cluster_end_ns(const qmkvd *inst, tail *t, int64_t pos) {
    uint32_t id;
    uint64_t size;
    int64_t data;
    if (!header_at(t, pos, &id, &size, &data) || id != QMKVD_ID_CLUSTER) return -1;
    if (!ends_well(t, data, size)) return -1;
    cluster_walk w = {};
    w.inst = inst;
    w.t = t;
    w.end_ns = -1;
    for (int64_t &ns : w.last_start_ns) ns = -1;
    // An unknown size, or one the end of the file cuts, runs to where the
    // children end.
    const int64_t end = size < (uint64_t)(t->end - data) ? data + (int64_t)size : t->end;
    for (int64_t at = data; at < end;) {
        uint32_t child_id;
        uint64_t child_size;
        int64_t child_data;
        if (!step(t) || !header_at(t, at, &child_id, &child_size, &child_data)) break;
        if (child_size > (uint64_t)(t->end - child_data)) break;  // cut by the end of the file
        if (child_id == ID_TIMECODE && !w.seen_block) {
            if (w.seen_timecode || child_size < 1 || child_size > 8) return -1;
            w.timecode = qmkvd_b2v_in(t->bytes + (child_data - t->start), (int32_t)child_size);
            w.seen_timecode = true;
        } else if (child_id == ID_SIMPLE_BLOCK || child_id == ID_BLOCK_GROUP) {
            if (!w.seen_timecode) return -1;
            const bool ok = take_block(&w, child_id, child_data, child_size);
            if (!ok && !w.seen_block) return -1;
            w.seen_block = true;
            if (!ok) break;
        } else if (!qmkvd_is_cluster_child(child_id)) {
            if (!w.seen_block) return -1;
            break;  // where a Cluster of unknown size ends
        }
        at = child_data + (int64_t)child_size;
    }
    return w.end_ns;
}

// Latest candidate first, in [from, to): the end of the last Cluster with a
// complete block, or -1. The bytes between candidates are passed over by
// memrchr, not one comparison at a time.
int64_t scan(const qmkvd *inst, tail *t, int64_t from, int64_t to) {
    static const uint8_t kId[4] = {0x1F, 0x43, 0xB6, 0x75};
    if (to > t->end - 3) to = t->end - 3;  // a whole ID is held
    const uint8_t *base = t->bytes + (from - t->start);
    while (to > from && t->steps_left > 0) {
        const void *hit = memrchr(base, kId[0], (size_t)(to - from));
        if (hit == nullptr) break;
        to = from + (static_cast<const uint8_t *>(hit) - base);
        if (memcmp(hit, kId, sizeof(kId)) != 0) continue;
        const int64_t end = cluster_end_ns(inst, t, to);
        if (end >= 0) return end;
    }
    return -1;
}

}  // namespace

int64_t qmkvd_find_end_ns(qmkvd *inst) {
    const int64_t file_size = inst->file_size;
    const int64_t lowest = inst->first_cluster_start;
    if (!inst->found_cluster || file_size <= lowest || lowest <= 0) return -1;
    const int64_t span = file_size - lowest;
    const uint32_t cap = span < (int64_t)QMKVD_TAIL_BYTES ? (uint32_t)span : (uint32_t)QMKVD_TAIL_BYTES;
    uint8_t *bytes = static_cast<uint8_t *>(malloc(cap));
    if (bytes == nullptr) return -1;
    QCMN_MFAL_FP *fp = inst->mfal.open(&inst->mfal, 0);
    int64_t found = -1;
    uint32_t have = 0;
    uint32_t piece = QMKVD_TAIL_FIRST_PIECE;
    tail t = {bytes, file_size, file_size, kMaxSteps};
    for (int32_t i = 0; fp != nullptr && found < 0 && i < QMKVD_TAIL_PIECES && have < cap; ++i, piece *= 2) {
        const uint32_t n = piece < cap - have ? piece : cap - have;
        const int64_t start = file_size - have - n;
        uint8_t *into = bytes + (cap - have - n);
        inst->mfal.setpos(fp, &start);
        if (inst->mfal.read(fp, into, (int32_t)n) != (int32_t)n) break;
        const int64_t scanned_from = file_size - have;
        have += n;
        t.bytes = into;
        t.start = start;
        found = scan(inst, &t, start, scanned_from);
    }
    if (fp != nullptr) inst->mfal.close(fp);
    free(bytes);
    if (found < 0) __android_log_print(ANDROID_LOG_WARN, kTag, "no Duration, and no complete Cluster in the last %u bytes", have);
    return found;
}
