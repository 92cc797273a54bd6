#include "demux/qmkvd_cluster.h"

#include <pthread.h>
#include <string.h>

#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvd_walk.h"
#include "demux/qmkvd_window.h"

namespace {

enum {
    ID_TIMECODE = 0xE7,
    ID_POSITION = 0xA7,
    ID_PREV_SIZE = 0xAB,
    ID_BLOCK_GROUP = 0xA0,
    ID_SIMPLE_BLOCK = 0xA3,
    ID_BLOCK = 0xA1,
    ID_BLOCK_DURATION = 0x9B,
    ID_SILENT_TRACKS = 0x5854,
    ID_ENCRYPTED_BLOCK = 0xAF,
    ID_VOID = 0xEC,
    ID_CRC32 = 0xBF,
};

// How far apart two blocks may be before a stream is taken as ended (or,
// for subtitles, before an empty sample fills the gap); 100 ns units.
const int64_t kGapLimit = 200000000;
const int64_t kSubtitleGapLimit = 5000000;
// How far the search for the next Cluster looks past a damaged one.
const int64_t kClusterScanLimit = 20 * 1024 * 1024;
const int32_t kClusterScanAttempts = 9999998;

// An element header at `pos` from the window: its ID, size and data
// position. On failure *data is where a byte-by-byte reader would have
// stopped (past the bytes it had to take to see the fault), so that scans
// over damage resume where they always have.
bool header_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t *id, uint64_t *size,
               int64_t *data) {
    *data = pos;
    uint32_t avail = 0;
    const uint8_t *p = qmkvd_window_held(w, pos, QMKVD_MAX_HEADER, &avail);
    if (p == nullptr) p = qmkvd_window_at(w, mfal, fp, pos, QMKVD_MAX_HEADER, &avail);
    if (p == nullptr) return false;
    const int32_t n = qmkvd_ebml_header_in(p, avail, id, size);
    if (n >= 0) {
        *data = pos + n;
        return true;
    }
    const int32_t id_extra = qmkvd_get_clz(p[0]);
    uint32_t consumed = avail;  // cut off by the end of the file
    if (p[0] == 0 || id_extra > 3) {
        consumed = 1;
    } else if (avail >= (uint32_t)id_extra + 2 && p[id_extra + 1] == 0) {
        consumed = (uint32_t)id_extra + 2;  // a size longer than 8 bytes
    }
    *data = pos + consumed;
    return false;
}

// A big-endian number of 1..8 bytes at `pos`; *stop is past what was read.
bool number_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint64_t size, uint64_t *value,
               int64_t *stop) {
    *stop = pos;
    if (size < 1 || size > 8) return false;
    uint32_t avail = 0;
    const uint8_t *p = qmkvd_window_at(w, mfal, fp, pos, (uint32_t)size, &avail);
    if (p == nullptr) return false;
    if (avail < size) {
        *stop = pos + avail;
        return false;
    }
    *value = qmkvd_b2v_in(p, (int32_t)size);
    *stop = pos + (int64_t)size;
    return true;
}

// Top-level elements of a Segment other than Cluster.
bool is_top_level(uint32_t id) {
    switch (id) {
        case QMKVD_ID_SEEKHEAD: case QMKVD_ID_INFO: case QMKVD_ID_TRACKS: case QMKVD_ID_CUES:
        case QMKVD_ID_ATTACHMENTS: case QMKVD_ID_CHAPTERS: case QMKVD_ID_TAGS:
            return true;
        default:
            return false;
    }
}

// Where the search for the next Cluster starts: the end of the current one,
// or, when its size runs past the file (live recordings write the unknown
// size), where its blocks ran out.
int64_t search_start(const qmkvds *s) {
    const qmkvd_cluster *c = &s->cluster;
    const int64_t end = qmkvd_end_of(c->parse_start, c->parse_size);
    const int64_t file_size = s->demux->file_size;
    if (file_size <= 0 || end <= file_size) return end;
    return c->next_block_pos > c->parse_start ? c->next_block_pos : c->parse_start;
}

// Ends the search as an earlier one from the same state ended; false
// when there was none. A file of unknown size may grow: not remembered.
bool known_fruitless(qmkvds *s) {
    qmkvd *file = s->demux;
    pthread_mutex_lock(&file->window_lock);
    const qmkvd_fruitless_search *f = &file->fruitless;
    const bool known = f->valid && memcmp(&s->cluster, &f->from, sizeof(s->cluster)) == 0;
    int64_t end = f->end;
    if (known) s->cluster = f->to;
    pthread_mutex_unlock(&file->window_lock);
    if (known) s->mfal->setpos(s->file, &end);
    return known;
}

// Ends a search that found nothing, the file left where it stopped, and
// remembers it. Returns 1, the search's result.
int32_t end_fruitless(qmkvds *s, const qmkvd_cluster *from, int64_t end) {
    s->mfal->setpos(s->file, &end);
    qmkvd *file = s->demux;
    if (file->file_size <= 0) return 1;
    pthread_mutex_lock(&file->window_lock);
    file->fruitless.valid = 1;
    file->fruitless.from = *from;
    file->fruitless.to = s->cluster;
    file->fruitless.end = end;
    pthread_mutex_unlock(&file->window_lock);
    return 1;
}

// What the scan for the next Cluster needs of an element header's first
// bytes, by byte value: the ID's length (0 where no header can start: a
// zero byte, or an ID longer than 4 bytes) and the size's length (a zero
// lead is a size longer than 8 bytes: a header that fails after it).
struct header_lengths {
    uint8_t id[256];
    uint8_t size[256];
    constexpr header_lengths() : id(), size() {
        for (int b = 0; b < 256; ++b) {
            int lead_zeros = 0;
            while (lead_zeros < 8 && (b & (0x80 >> lead_zeros)) == 0) ++lead_zeros;
            id[b] = (uint8_t)(b != 0 && lead_zeros < 4 ? lead_zeros + 1 : 0);
            size[b] = (uint8_t)(b != 0 ? lead_zeros + 1 : 1);
        }
    }
};
constexpr header_lengths kHeaderLengths;

// Steps the scan over bytes in memory from `p`, each as header_at would,
// while no step can meet a Cluster or another top-level element (theirs
// are the 4-byte IDs), before `stop`: no further than where a whole
// header's bytes are there and the search may go. Returns where it
// stopped; adds its steps to *steps.
const uint8_t *skim(const uint8_t *p, const uint8_t *stop, int32_t *steps) {
    while (p < stop) {
        const uint32_t id_length = kHeaderLengths.id[p[0]];
        if (id_length == 4) break;
        p += id_length == 0 ? 1 : id_length + kHeaderLengths.size[p[id_length]];
        ++*steps;
    }
    return p;
}

// Scans forward for the next Cluster whose first block can be found. 0, or
// 1 when there is none within reach.
int32_t find_next_cluster(qmkvds *s) {
    QCMN_MFAL *mfal = s->mfal;
    QCMN_MFAL_FP *fp = s->file;
    if (known_fruitless(s)) return 1;
    const qmkvd_cluster from = s->cluster;
    int64_t pos = search_start(s);
    const int64_t limit = qmkvd_end_of(pos, kClusterScanLimit);
    for (int32_t attempt = 0;; ++attempt) {
        // Damage and the insides of blocks are mostly stepped over in memory.
        uint32_t held = 0;
        const uint8_t *p = qmkvd_window_held(&s->window, pos, QMKVD_MAX_HEADER, &held);
        if (p != nullptr && kClusterScanAttempts - attempt >= (int32_t)held) {
            const int64_t room = limit - pos;
            const uint32_t whole = held - QMKVD_MAX_HEADER + 1;  // starts of whole headers held
            const uint8_t *q = skim(p, p + (room < whole ? room : whole), &attempt);
            pos += q - p;
            if (pos >= limit) return end_fruitless(s, &from, pos);
        }
        const int64_t before = pos;
        uint32_t id;
        uint64_t size;
        int64_t data;
        const bool read = header_at(&s->window, mfal, fp, pos, &id, &size, &data);
        pos = data;
        if (read && id == QMKVD_ID_CLUSTER) {
            s->cluster.parse_start = data;
            s->cluster.parse_size = size;
            if (qmkvd_cluster_head(&s->window, mfal, fp, &s->cluster, &pos) == 0) return 0;
        } else if (read && is_top_level(id)) {
            // A Cues or Tags element after the last Cluster holds no Cluster:
            // going over it header by header would cost a read per entry.
            const int64_t end = qmkvd_end_of(data, size);
            const int64_t file_size = s->demux->file_size;
            if (file_size > 0 && end <= file_size) pos = end;
        }
        // Element bodies are not skipped: the scan walks into anything that
        // is not a Cluster, so it also crosses damage.
        if (pos <= before || attempt > kClusterScanAttempts || pos >= limit) return end_fruitless(s, &from, pos);
    }
}

}  // namespace

int32_t qmkvd_cluster_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint64_t *size,
                         int64_t *data) {
    uint32_t id;
    if (!header_at(w, mfal, fp, pos, &id, size, data)) return -1;
    return id == QMKVD_ID_CLUSTER ? 0 : 1;
}

int32_t qmkvd_cluster_head(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cluster *cluster, int64_t *stop) {
    const int64_t end = qmkvd_end_of(cluster->parse_start, cluster->parse_size);
    int64_t pos = cluster->parse_start;
    *stop = pos;
    if (end <= cluster->parse_start) return 0;
    for (;;) {
        const int64_t start = pos;
        uint32_t id;
        uint64_t size;
        int64_t data;
        const bool ok = header_at(w, mfal, fp, start, &id, &size, &data);
        *stop = data;
        if (!ok) return -1;
        if (size < 1) {
            if (end <= data) return 0;
            pos = data;
            continue;
        }
        uint64_t *number = nullptr;
        switch (id) {
            case ID_BLOCK_GROUP:
                cluster->first_group_size = (uint32_t)size;
                cluster->next_block_pos = start;
                return 0;
            case ID_SIMPLE_BLOCK:
                cluster->first_simple_size = (uint32_t)size;
                cluster->next_block_pos = start;
                return 0;
            case ID_POSITION: number = &cluster->position; break;
            case ID_PREV_SIZE: number = &cluster->prev_size; break;
            case ID_TIMECODE: number = &cluster->timecode; break;
            default: break;
        }
        if (number != nullptr && !number_at(w, mfal, fp, data, size, number, stop)) return -1;
        pos = qmkvd_end_of(data, size);
        if (pos >= end) return 0;
        *stop = pos;
    }
}

int32_t qmkvd_block_element(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_block_info *block,
                           qmkvd_cluster *cluster, int32_t read_all_children) {
    uint32_t id;
    uint64_t size;
    int64_t data;
    if (!header_at(w, mfal, fp, cluster->next_block_pos, &id, &size, &data)) return -1;
    if (id == ID_SIMPLE_BLOCK) {
        block->data_pos = data;
        block->data_size = size;
        cluster->next_block_pos = qmkvd_end_of(data, size);
        return 0;
    }
    if (id != ID_BLOCK_GROUP) return -1;
    const int64_t end = qmkvd_end_of(data, size);
    cluster->next_block_pos = end;
    int64_t pos = data;
    while (pos < end) {
        uint32_t child_id;
        uint64_t child_size;
        int64_t child_data;
        if (!header_at(w, mfal, fp, pos, &child_id, &child_size, &child_data)) return -1;
        if (child_id == ID_BLOCK_DURATION && child_size < 9) {
            uint64_t duration = 0;
            if (child_size > 0) {
                uint32_t avail = 0;
                const uint8_t *p = qmkvd_window_at(w, mfal, fp, child_data, (uint32_t)child_size, &avail);
                if (p == nullptr || avail < child_size) return -1;
                duration = qmkvd_b2v_in(p, (int32_t)child_size);
            }
            block->block_duration = (uint32_t)duration;
        } else if (child_id == ID_BLOCK) {
            block->data_pos = child_data;
            block->data_size = child_size;
            if (!read_all_children) return 0;
        }
        pos = qmkvd_end_of(child_data, child_size);
    }
    return 0;
}

int32_t qmkvds_cluster_head(qmkvds *s) {
    int64_t stop = 0;
    const int32_t r = qmkvd_cluster_head(&s->window, s->mfal, s->file, &s->cluster, &stop);
    s->mfal->setpos(s->file, &stop);
    return r;
}

bool qmkvd_block_cut(const qmkvd *file, const qmkvd_block_info *block) {
    return file->file_size > 0 && qmkvd_end_of(block->data_pos, block->data_size) > file->file_size;
}

bool qmkvd_is_cluster_child(uint32_t id) {
    switch (id) {
        case ID_TIMECODE: case ID_POSITION: case ID_PREV_SIZE: case ID_BLOCK_GROUP: case ID_SIMPLE_BLOCK:
        case ID_SILENT_TRACKS: case ID_ENCRYPTED_BLOCK: case ID_VOID: case ID_CRC32:
            return true;
        default:
            return false;
    }
}

// Callers outside the frame path get a small window of their own.
int32_t parse_cluster(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cluster *cluster) {
    uint8_t bytes[64];
    qmkvd_window w;
    qmkvd_window_init(&w, bytes, sizeof(bytes));
    int64_t stop = 0;
    const int32_t r = qmkvd_cluster_head(&w, mfal, fp, cluster, &stop);
    mfal->setpos(fp, &stop);
    return r;
}

int32_t parse_cluster_blockgroup(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_block_info *block, qmkvd_cluster *cluster,
                                 int32_t read_all_children) {
    uint8_t bytes[64];
    qmkvd_window w;
    qmkvd_window_init(&w, bytes, sizeof(bytes));
    const int32_t r = qmkvd_block_element(&w, mfal, fp, block, cluster, read_all_children);
    if (r == 0) {
        // Callers read on from the block data.
        const int64_t at = block->data_size > 0 ? block->data_pos : cluster->next_block_pos;
        mfal->setpos(fp, &at);
    }
    return r;
}

int32_t get_blockgroup(qmkvds *s, qmkvd_block_info *block) {
    QCMN_MFAL *mfal = s->mfal;
    QCMN_MFAL_FP *fp = s->file;
    const int64_t gap_limit = s->stream_type == QMKVD_TRACK_SUBTITLE ? kSubtitleGapLimit : kGapLimit;
    bool first = true;
    int64_t reference = 0;
    // Every pass moves forward by a block element or to a later Cluster.
    for (;;) {
        block->block_duration = 0;
        block->data_pos = 0;
        block->data_size = 0;
        if (qmkvd_block_element(&s->window, mfal, fp, block, &s->cluster, 1) != 0) {
            if (find_next_cluster(s) != 0) return 1;
            // The block a seek aimed at belongs to the Cluster just left; a
            // cue that named no block exactly must not swallow the stream.
            s->skip_to_time = 0;
            block->track_number = UINT32_MAX;
            continue;
        }
        if (block->data_size == 0) continue;  // a BlockGroup without a Block
        if (qmkvd_block_cut(s->demux, block)) continue;
        qmkvd_cursor c = {&s->window, mfal, fp, block->data_pos};
        uint64_t track_number;
        uint8_t tc[2];
        if (qmkvd_cursor_size(&c, 4, &track_number, nullptr) != 0 || !qmkvd_cursor_byte(&c, &tc[0]) ||
            !qmkvd_cursor_byte(&c, &tc[1]))
            return -1;
        mfal->setpos(fp, &c.pos);
        block->track_number = (uint32_t)track_number;
        int16_t rel = (int16_t)(uint16_t)((tc[0] << 8) | tc[1]);
        if (s->cluster.timecode == 0 && rel < 0) rel = 0;
        block->rel_timecode = rel;
        const int64_t t = qmkvd_ticks_to_100ns((int64_t)(s->cluster.timecode + (uint64_t)(int64_t)rel),
                                               s->timecode_scale);
        if (s->skip_to_time && t == s->base_time) s->skip_to_time = 0;
        if (first) {
            reference = t;
            first = false;
        } else if (t - reference > gap_limit) {
            return s->stream_type == QMKVD_TRACK_SUBTITLE ? 0 : 1;
        }
        if (block->track_number != s->track.track_number || s->skip_to_time) continue;
        return 0;
    }
}
