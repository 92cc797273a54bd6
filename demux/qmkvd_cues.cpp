#include "demux/qmkvd_cues.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "demux/qmkvd_ebml.h"

namespace {

const uint32_t kIdCuePoint = 0xBB;
const uint32_t kIdCueTime = 0xB3;
const uint32_t kIdCueTrackPositions = 0xB7;
const uint32_t kIdCueTrack = 0xF7;
const uint32_t kIdCueClusterPosition = 0xF1;
const uint32_t kIdCueBlockNumber = 0x5378;

const uint64_t kMaxChildSize = 0x7FFFFFFF;
const uint64_t kMaxNumberSize = 8;
const uint64_t kMaxHeaderSize = 12;  // 4-byte ID + 8-byte size

// The table grows in steps sized from the first CuePoint, so that big
// indexes reallocate rarely and small ones do not over-allocate.
const uint32_t kSmallStep = 256;
const uint32_t kMaxStep = 4096;
const uint64_t kSmallIndexPoints = 2561;

// The Cues are read in chunks of this size (the buffer grows only for a
// larger CuePoint), so a bogus Cues size cannot make us allocate more than
// the file holds, whether its size is known or not.
const uint64_t kChunk = 64 * 1024;

// A child header from the `avail` bytes at `p`; the header length or -1.
int32_t read_header(const uint8_t *p, uint64_t avail, uint32_t *id, uint64_t *size) {
    return qmkvd_ebml_header_in(p, avail, id, size);
}

// The buffer holding the Cues has this many zero bytes after them, so that
// a number is read with one 8-byte load wherever it lies.
const uint64_t kPadding = 8;

// A big-endian number of `size` (at most 8) bytes at `d`.
uint64_t number(const uint8_t *d, uint64_t size) {
    if (size == 0) return 0;
    uint64_t v;
    memcpy(&v, d, sizeof(v));
    return __builtin_bswap64(v) >> (64 - 8 * size);
}

// Cue entries that point at audio tracks are not indexed; a track number
// that names no stream is kept. The audio track numbers are gathered once
// per parse: the test runs for every CueTrack of the index.
struct AudioTracks {
    explicit AudioTracks(const qmkvd *inst) {
        if (inst == nullptr) return;
        int32_t n = inst->stream_count;
        if (n > QMKVD_MAX_TRACKS) n = QMKVD_MAX_TRACKS;
        for (int32_t i = 0; i < n; ++i) {
            const qmkvd_track &t = inst->streams[i].track;
            if (t.track_type != QMKVD_TRACK_AUDIO) continue;
            if (t.track_number < 64) {
                small |= 1ull << t.track_number;
            } else {
                large[large_count++] = t.track_number;
            }
        }
    }
    bool has(uint64_t track_number) const {
        if (track_number < 64) return (small >> track_number) & 1;
        for (int32_t i = 0; i < large_count; ++i)
            if (large[i] == track_number) return true;
        return false;
    }
    uint64_t small = 0;
    uint32_t large[QMKVD_MAX_TRACKS];
    int32_t large_count = 0;
};

int32_t parse_cuetrackpositions_ctx_fast(const AudioTracks &audio, const uint8_t *buf, uint64_t len,
                                         qmkvd_cue_point *cp) {
    cp->cue_cluster_position = 0;
    uint64_t pos = 0;
    while (pos < len) {
        uint32_t id = 0;
        uint64_t size = 0;
        const int32_t hdr = read_header(buf + pos, len - pos, &id, &size);
        if (hdr < 0 || size > kMaxChildSize) return -1;
        const uint64_t data = pos + (uint64_t)hdr;
        if (size > len - data) break;  // a child that does not fit ends the element
        const uint8_t *d = buf + data;
        switch (id) {
            case kIdCueClusterPosition:
                if (size > kMaxNumberSize) return -1;
                cp->cue_cluster_position = number(d, size);
                break;
            case kIdCueBlockNumber:
                if (size > kMaxNumberSize) return -1;
                cp->cue_block_number = number(d, size);
                break;
            case kIdCueTrack: {
                if (size > kMaxNumberSize) return -1;
                const uint64_t track = number(d, size);
                cp->cue_track = (uint32_t)track;
                if (audio.has(track)) {
                    cp->cue_cluster_position = 0;
                    return 0;
                }
                break;
            }
            default:
                break;
        }
        pos = data + size;
    }
    return 0;
}

// `file_pos` is where `buf` lies in the file.
int32_t parse_cuepoint_ctx_fast(const AudioTracks &audio, const uint8_t *buf, uint64_t len, int64_t file_pos,
                                qmkvd_cue_point *cp) {
    cp->track_positions_count = 0;
    uint64_t pos = 0;
    while (pos < len) {
        uint32_t id = 0;
        uint64_t size = 0;
        const int32_t hdr = read_header(buf + pos, len - pos, &id, &size);
        if (hdr < 0 || size > kMaxChildSize) return -1;
        const uint64_t data = pos + (uint64_t)hdr;
        if (size > len - data) break;
        const uint8_t *d = buf + data;
        if (id == kIdCueTime) {
            if (size > kMaxNumberSize) return -1;
            cp->cue_time = number(d, size);
        } else if (id == kIdCueTrackPositions) {
            // Each CueTrackPositions overwrites the previous one's values.
            cp->track_positions_count++;
            cp->track_positions_pos = file_pos + (int64_t)data;
            cp->track_positions_size = (uint32_t)size;
            if (parse_cuetrackpositions_ctx_fast(audio, d, size, cp) != 0) return -1;
        }
        pos = data + size;
    }
    return 0;
}

uint32_t capacity_step(uint64_t total, uint64_t first_point_size) {
    if (first_point_size < 1) return kSmallStep;
    const uint64_t estimate = total / first_point_size;
    if (estimate < kSmallIndexPoints) return kSmallStep;
    const uint64_t step = estimate / 10;
    return step > kMaxStep ? kMaxStep : (uint32_t)step;
}

bool grow_table(qmkvd_cue_table *cues, uint32_t step) {
    const uint64_t want = (uint64_t)cues->cue_capacity + step;
    if (want > UINT32_MAX || want > SIZE_MAX / sizeof(qmkvd_cue_point)) return false;
    void *p = realloc(cues->cue_points, (size_t)want * sizeof(qmkvd_cue_point));
    if (p == nullptr) return false;
    cues->cue_points = static_cast<qmkvd_cue_point *>(p);
    cues->cue_capacity = (uint32_t)want;
    return true;
}

void clear_table(qmkvd_cue_table *cues) {
    free(cues->cue_points);
    cues->cue_points = nullptr;
    cues->cue_count = 0;
    cues->cue_capacity = 0;
}

// The Cues element's bytes, read through one buffer of at most kChunk bytes
// that is refilled as the walk moves on (the bytes not yet walked move to
// its front) and grows only for a CuePoint larger than itself. A fresh
// process touches far fewer new pages than with the whole element in
// memory, at the cost of a read per chunk.
struct CuesReader {
    QCMN_MFAL *mfal;
    QCMN_MFAL_FP *fp;
    int64_t file_pos;   // where the next read starts
    uint64_t left;      // bytes of the element still to read
    uint8_t *buf = nullptr;
    uint64_t cap = 0;   // buffer size, not counting the padding
    uint64_t begin = 0; // offset in the element of buf[0]
    uint64_t have = 0;  // bytes in buf
    bool ended = false; // the file gave all it had

    ~CuesReader() { free(buf); }

    // Makes the buffer hold the element's bytes [at, at + n) as far as the
    // file has them; false only when memory runs out. At most one read,
    // plus one per doubling of the buffer.
    bool hold(uint64_t at, uint64_t n) { return at + n <= begin + have || refill(at, n); }

    __attribute__((noinline)) bool refill(uint64_t at, uint64_t n) {
        if (at > begin + have) {  // an element passed over whole: its bytes are not read
            const uint64_t skip = at - (begin + have);
            const uint64_t skipped = skip < left ? skip : left;
            file_pos += (int64_t)skipped;
            left -= skipped;
            begin += have + skipped;
            have = 0;
            if (skipped < skip) ended = true;
        }
        while (at + n > begin + have && !ended && left > 0) {
            if (at > begin) {  // drop what the walk is done with
                const uint64_t drop = at - begin < have ? at - begin : have;
                memmove(buf, buf + drop, (size_t)(have - drop));
                have -= drop;
                begin += drop;
            }
            if (have == cap) {
                uint64_t next = cap == 0 ? kChunk : cap * 2;
                if (next > have + left) next = have + left;
                void *p = realloc(buf, (size_t)(next + kPadding));
                if (p == nullptr) return false;
                buf = static_cast<uint8_t *>(p);
                cap = next;
            }
            const uint64_t room = cap - have;
            const int32_t ask = (int32_t)(room < left ? room : left);
            if (mfal->setpos(fp, &file_pos) != 0) return false;
            const int32_t got = mfal->read(fp, buf + have, ask);
            if (got <= 0) {
                ended = true;
                break;
            }
            have += (uint64_t)got;
            left -= (uint64_t)got;
            file_pos += got;
            if (got < ask) ended = true;  // the file ends here
        }
        if (buf != nullptr) memset(buf + have, 0, kPadding);
        return true;
    }
    // Bytes held from `at` on, and a pointer to them.
    uint64_t avail(uint64_t at) const { return at >= begin + have ? 0 : begin + have - at; }
    const uint8_t *at(uint64_t offset) const { return buf + (offset - begin); }
    bool truncated() const { return short_file || (ended && left > 0); }
    bool short_file = false;  // the file's size says it ends inside the element
};

// Walks a Cues element declared `cues->cues_size` long of which the file
// holds at most `limit` bytes. A CuePoint past the declared end is damage;
// one past only the bytes the file held (a truncated file) ends the walk
// with what was parsed so far.
int32_t walk_cues(const qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cue_table *cues, uint64_t limit) {
    const uint64_t declared = cues->cues_size;
    const AudioTracks audio(inst);
    CuesReader r{mfal, fp, cues->cues_pos, limit};
    r.short_file = limit < declared;
    uint32_t step = 0;
    uint64_t pos = 0;
    for (;;) {
        if (!r.hold(pos, kMaxHeaderSize)) return -1;
        const uint64_t avail = r.avail(pos);
        if (avail == 0) break;  // nothing more in what the file holds
        uint32_t id = 0;
        uint64_t size = 0;
        const int32_t hdr = read_header(r.at(pos), avail, &id, &size);
        if (hdr < 0) {
            // Only a header cut by the end of the file is forgiven.
            if (r.truncated() && avail < kMaxHeaderSize) break;
            return -1;
        }
        const uint64_t data = pos + (uint64_t)hdr;
        if (id == kIdCuePoint) {
            if (size > declared - data) return -1;
            if (!r.hold(data, size)) return -1;
            if (size > r.avail(data)) break;
            if (cues->cue_count == cues->cue_capacity) {
                if (step == 0) step = capacity_step(limit, size);
                if (!grow_table(cues, step)) return -1;
            }
            // Decoded in place: the slot is kept by counting it, or reused.
            qmkvd_cue_point *cp = &cues->cue_points[cues->cue_count];
            memset(cp, 0, sizeof(*cp));
            cp->cue_point_pos = cues->cues_pos + (int64_t)data;
            cp->cue_point_size = (uint32_t)size;
            if (parse_cuepoint_ctx_fast(audio, r.at(data), size, cp->cue_point_pos, cp) != 0) return -1;
            // A position of 0 is no usable cluster: nothing is kept.
            if (cp->cue_cluster_position != 0) cues->cue_count++;
        }
        // Nothing after this element in what the file holds: the walk ends.
        if (size >= limit - data) break;
        pos = data + size;
    }
    return 0;
}

int64_t ticks_to_100ns(uint64_t ticks, uint32_t timecode_scale) {
    return (int64_t)(ticks * (uint64_t)timecode_scale) / 100;
}

// Binary search over `count` entries whose 100-ns times `time_at` gives.
template <typename TimeAt>
uint32_t search(uint32_t count, int64_t time, int32_t mode, TimeAt time_at) {
    int64_t lo = -1;
    int64_t hi = count;
    while (hi - lo > 1) {
        const int64_t mid = (lo + hi) >> 1;
        const int64_t t = time_at(mid);
        if (t >= time) hi = mid;
        if (t <= time) lo = mid;
    }
    const int64_t answer = mode == QMKVD_SEARCH_AT_OR_AFTER ? hi : lo;
    if (answer < 0 || answer >= (int64_t)count) return QMKVD_SEARCH_NONE;
    if (mode == QMKVD_SEARCH_NEAREST && answer + 1 < (int64_t)count) {
        // lo only ever takes entries at or before `time`, so the first
        // distance is never negative; unsigned arithmetic keeps both exact.
        const int64_t before = time_at(answer);
        const int64_t after = time_at(answer + 1);
        if (after < time) return (uint32_t)(answer + 1);
        const uint64_t d_before = (uint64_t)time - (uint64_t)before;
        const uint64_t d_after = (uint64_t)after - (uint64_t)time;
        if (d_before > d_after) return (uint32_t)(answer + 1);  // ties go to the earlier entry
    }
    return (uint32_t)answer;
}

}  // namespace

int32_t parse_cues_ctx_fast(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cue_table *cues) {
    if (cues == nullptr) return -1;
    // The table owns its array: a second parse must not leak the first.
    clear_table(cues);
    if (cues->cues_size == 0) return 0;
    if (mfal == nullptr || fp == nullptr || mfal->read == nullptr || mfal->setpos == nullptr) return -1;
    if (cues->cues_pos < 0) return -1;

    uint64_t limit = cues->cues_size;
    if (inst != nullptr && inst->file_size > 0) {
        const int64_t left = inst->file_size - cues->cues_pos;
        if (left <= 0) {
            limit = 0;
        } else if ((uint64_t)left < limit) {
            limit = (uint64_t)left;
        }
    }

    const int32_t rc = limit == 0 ? 0 : walk_cues(inst, mfal, fp, cues, limit);
    if (rc != 0 || cues->cue_count == 0) clear_table(cues);
    return rc;
}

int32_t get_seek_from_cues(struct qmkvd *inst, QCMN_MFAL * /*mfal*/, QCMN_MFAL_FP * /*fp*/, qmkvd_cue_table *cues,
                           qmkvd_cue_list *list, uint32_t track_number) {
    if (list == nullptr) return -1;
    list->count = 0;
    list->capacity = 0;
    list->entries = nullptr;
    if (cues == nullptr) {
        if (inst == nullptr) return -1;
        cues = &inst->cues;
    }
    if (cues->cue_count == 0) return 0;
    if (cues->cue_points == nullptr) return -1;
    if ((uint64_t)cues->cue_count > SIZE_MAX / sizeof(qmkvd_cue_entry)) return -1;
    list->entries = static_cast<qmkvd_cue_entry *>(malloc((size_t)cues->cue_count * sizeof(qmkvd_cue_entry)));
    if (list->entries == nullptr) return -1;
    list->capacity = cues->cue_count;
    for (uint32_t i = 0; i < cues->cue_count; ++i) {
        const qmkvd_cue_point &cp = cues->cue_points[i];
        if (cp.cue_track != track_number) continue;
        qmkvd_cue_entry &e = list->entries[list->count++];
        e.time = cp.cue_time;
        e.cluster_position = (int64_t)cp.cue_cluster_position;
    }
    return 0;
}

uint32_t qmkvd_get_searchidx(struct qmkvd *inst, int64_t time, int32_t mode) {
    if (inst == nullptr) return QMKVD_SEARCH_NONE;
    const qmkvd_cue_point *points = inst->cues.cue_points;
    const uint32_t count = points == nullptr ? 0 : inst->cues.cue_count;
    const uint32_t scale = inst->info.timecode_scale;
    return search(count, time, mode, [&](int64_t i) { return ticks_to_100ns(points[i].cue_time, scale); });
}

uint32_t qmkvd_get_searchidx2(struct qmkvd *inst, int64_t time, qmkvd_cue_list *list, int32_t mode) {
    if (inst == nullptr || list == nullptr) return QMKVD_SEARCH_NONE;
    const qmkvd_cue_entry *entries = list->entries;
    const uint32_t count = entries == nullptr ? 0 : list->count;
    const uint32_t scale = inst->info.timecode_scale;
    return search(count, time, mode, [&](int64_t i) { return ticks_to_100ns(entries[i].time, scale); });
}
