#include "demux/qmkvd_cluster.h"

#include <string.h>

#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvd_walk.h"

namespace {

enum {
    ID_TIMECODE = 0xE7,
    ID_POSITION = 0xA7,
    ID_PREV_SIZE = 0xAB,
    ID_BLOCK_GROUP = 0xA0,
    ID_SIMPLE_BLOCK = 0xA3,
    ID_BLOCK = 0xA1,
    ID_BLOCK_DURATION = 0x9B,
};

// How far apart two blocks may be before a stream is taken as ended (or,
// for subtitles, before an empty sample fills the gap); 100 ns units.
const int64_t kGapLimit = 200000000;
const int64_t kSubtitleGapLimit = 5000000;
// How far the search for the next Cluster looks past a damaged one.
const int64_t kClusterScanLimit = 20 * 1024 * 1024;
const int32_t kClusterScanAttempts = 9999998;

int64_t getpos(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp) {
    int64_t pos = 0;
    mfal->getpos(fp, &pos);
    return pos;
}

int32_t read_number(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint64_t size, uint64_t *value) {
    uint8_t bytes[8];
    if (size < 1 || size > 8 || mfal->read(fp, bytes, (int32_t)size) != (int32_t)size) return -1;
    *value = qmkvd_b2v_u64(bytes, (int32_t)size);
    return 0;
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

// Scans forward for the next Cluster whose first block can be found. 0, or
// 1 when there is none within reach.
int32_t find_next_cluster(qmkvds *s) {
    QCMN_MFAL *mfal = s->mfal;
    QCMN_MFAL_FP *fp = s->file;
    int64_t pos = search_start(s);
    mfal->setpos(fp, &pos);
    const int64_t limit = qmkvd_end_of(pos, kClusterScanLimit);
    for (int32_t attempt = 0;; ++attempt) {
        const int64_t before = getpos(mfal, fp);
        uint32_t id;
        uint64_t size;
        const bool read = qmkvd_ebml_get_id_len64(mfal, fp, &id, &size) == 0;
        if (read && id == QMKVD_ID_CLUSTER) {
            s->cluster.parse_start = getpos(mfal, fp);
            s->cluster.parse_size = size;
            if (parse_cluster(mfal, fp, &s->cluster) == 0) return 0;
        } else if (read && is_top_level(id)) {
            // A Cues or Tags element after the last Cluster holds no Cluster:
            // going over it header by header would cost a read per entry.
            const int64_t end = qmkvd_end_of(getpos(mfal, fp), size);
            const int64_t file_size = s->demux->file_size;
            if (file_size > 0 && end <= file_size) mfal->setpos(fp, &end);
        }
        // Element bodies are not skipped: the scan walks into anything that
        // is not a Cluster, so it also crosses damage.
        const int64_t now = getpos(mfal, fp);
        if (now <= before || attempt > kClusterScanAttempts || now >= limit) return 1;
    }
}

}  // namespace

int32_t parse_cluster(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cluster *cluster) {
    const int64_t end = qmkvd_end_of(cluster->parse_start, cluster->parse_size);
    int64_t pos = cluster->parse_start;
    mfal->setpos(fp, &pos);
    if (end <= cluster->parse_start) return 0;
    for (;;) {
        const int64_t start = getpos(mfal, fp);
        uint32_t id;
        uint64_t size;
        if (qmkvd_ebml_get_id_len64(mfal, fp, &id, &size) != 0) return -1;
        const int64_t data = getpos(mfal, fp);
        if (size < 1) {
            if (end <= data) return 0;
            continue;
        }
        switch (id) {
            case ID_BLOCK_GROUP:
                cluster->first_group_size = (uint32_t)size;
                cluster->next_block_pos = start;
                return 0;
            case ID_SIMPLE_BLOCK:
                cluster->first_simple_size = (uint32_t)size;
                cluster->next_block_pos = start;
                return 0;
            case ID_POSITION:
                if (read_number(mfal, fp, size, &cluster->position) != 0) return -1;
                break;
            case ID_PREV_SIZE:
                if (read_number(mfal, fp, size, &cluster->prev_size) != 0) return -1;
                break;
            case ID_TIMECODE:
                if (read_number(mfal, fp, size, &cluster->timecode) != 0) return -1;
                break;
            default:
                break;
        }
        pos = qmkvd_end_of(data, size);
        if (pos >= end) return 0;
        mfal->setpos(fp, &pos);
    }
}

int32_t parse_cluster_blockgroup(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_block_info *block, qmkvd_cluster *cluster,
                                 int32_t read_all_children) {
    mfal->setpos(fp, &cluster->next_block_pos);
    uint32_t id;
    uint64_t size;
    if (qmkvd_ebml_get_id_len64(mfal, fp, &id, &size) != 0) return -1;
    const int64_t data = getpos(mfal, fp);
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
        mfal->setpos(fp, &pos);
        if (qmkvd_ebml_get_id_len64(mfal, fp, &child_id, &child_size) != 0) return -1;
        const int64_t child_data = getpos(mfal, fp);
        if (child_id == ID_BLOCK_DURATION && child_size < 9) {
            uint64_t duration = 0;
            if (child_size > 0 && read_number(mfal, fp, child_size, &duration) != 0) return -1;
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
        if (parse_cluster_blockgroup(mfal, fp, block, &s->cluster, 1) != 0) {
            if (find_next_cluster(s) != 0) return 1;
            // The block a seek aimed at belongs to the Cluster just left; a
            // cue that named no block exactly must not swallow the stream.
            s->skip_to_time = 0;
            block->track_number = UINT32_MAX;
            continue;
        }
        if (block->data_size == 0) continue;  // a BlockGroup without a Block
        mfal->setpos(fp, &block->data_pos);
        uint32_t track_number;
        uint8_t tc[2];
        if (qmkvd_ebml_get_len32(mfal, fp, &track_number) != 0 || mfal->read(fp, tc, 2) != 2) return -1;
        block->track_number = track_number;
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
        if (track_number != s->track.track_number || s->skip_to_time) continue;
        return 0;
    }
}
