// Stream handles: open, close, the frame dispatcher and the time functions.
#include "demux/qmkvds.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvd_window.h"

namespace {

const char kTag[] = "qmkvd";

// Read-ahead per open stream: room for a run of small frames, and for a
// stretch of the file another stream of the file is about to read.
const uint32_t kWindowSize = 65536;

// File-object modes by stream type, for layers that care.
unsigned long open_mode(uint8_t stream_type) {
    switch (stream_type) {
        case QMKVD_TRACK_VIDEO: return 6;
        case QMKVD_TRACK_AUDIO: return 2;
        default: return 0;
    }
}

int32_t check_open(const qmkvds *s) {
    if (s == nullptr || s->magic != QMKVDS_MAGIC) return QMKVD_ERR_ARGUMENT;
    if (s->opened != 1) return QMKVD_ERR_NOT_OPEN;
    return 0;
}

void reset_reading_state(qmkvds *s) {
    memset(s->lace_sizes, 0, sizeof(s->lace_sizes));
    memset(&s->block, 0, sizeof(s->block));
    s->lace_last = 0;
    s->lace_left = -1;
    s->skip_to_time = 0;
    s->after_seek = 0;
    s->base_time = 0;
    s->dts_counter = 0;
    s->block_pts = 0;
    s->block_end = 0;
    s->lace_duration = 0;
    s->peeked_size = 0;
    s->peeked = 0;
    s->other_track = 0;
    s->ended = 0;
    s->prev_lace_count = 0;
    s->payload_size = 0;
    s->last_block_time = -1;
    // Re-measured while reading; a new handle starts from the track's value.
    s->default_duration_100ns = s->track.default_duration / 100;
}

}  // namespace

qmkvds *qmkvds_open(qmkvd *demux, int32_t index, int32_t *err) {
    if (demux == nullptr || demux->magic != QMKVD_MAGIC || index < 0 || index >= demux->stream_count) return nullptr;
    qmkvds *s = &demux->streams[index];
    if (s->opened) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "stream already opened");
        __android_log_print(ANDROID_LOG_ERROR, kTag, "strm_open() failed");
        if (err != nullptr) *err = QMKVD_ERR_IO;
        return nullptr;
    }
    s->mfal = &demux->mfal;
    s->file = demux->mfal.open(&demux->mfal, open_mode(s->stream_type));
    if (s->file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[qmkvds_open] qmkv_fopen() failed");
        __android_log_print(ANDROID_LOG_ERROR, kTag, "strm_open() failed");
        if (err != nullptr) *err = QMKVD_ERR_IO;
        return nullptr;
    }
    if (!demux->found_cluster && !demux->found_cues) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "strm_open() failed");
        demux->mfal.close(s->file);
        s->file = nullptr;
        if (err != nullptr) *err = QMKVD_ERR_IMPOSSIBLE;
        return nullptr;
    }
    uint8_t *window = static_cast<uint8_t *>(malloc(kWindowSize));
    if (window == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "alloc failed");
        __android_log_print(ANDROID_LOG_ERROR, kTag, "strm_open() failed");
        demux->mfal.close(s->file);
        s->file = nullptr;
        if (err != nullptr) *err = QMKVD_ERR_IO;
        return nullptr;
    }
    qmkvd_window_join(&s->window, demux, window, kWindowSize);
    memset(&s->cluster, 0, sizeof(s->cluster));
    s->cluster.parse_start = s->cluster.cluster_pos = demux->first_cluster_pos;
    s->cluster.parse_size = s->cluster.cluster_size = demux->first_cluster_size;
    if (qmkvds_cluster_head(s) != 0) {
        demux->mfal.close(s->file);
        s->file = nullptr;
        free(qmkvd_window_leave(&s->window));
        return nullptr;
    }
    s->cluster.parse_start = s->cluster.cluster_pos;
    s->cluster.parse_size = s->cluster.cluster_size;
    reset_reading_state(s);
    s->opened = 1;
    s->self = s;
    s->index = index;
    if (err != nullptr) *err = 0;
    return s;
}

void qmkvds_close(qmkvds *s) {
    if (s == nullptr || s->magic != QMKVDS_MAGIC) return;
    if (!s->opened) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "ERR: stream %d already closed!", s->index);
        return;
    }
    s->mfal->close(s->file);
    s->file = nullptr;
    free(qmkvd_window_leave(&s->window));
    free(s->stream_cues.entries);
    memset(&s->stream_cues, 0, sizeof(s->stream_cues));
    s->cues_loaded = 0;
    s->use_instance_cues = 0;
    s->opened = 0;
}

int32_t qmkvds_get_frm(qmkvds *s, uint8_t *buf, uint32_t buf_size, uint32_t *size, int64_t *pts, int64_t *end,
                       uint32_t *key) {
    const int32_t r = check_open(s);
    if (r != 0) return r;
    if (size == nullptr) return QMKVD_ERR_ARGUMENT;
    if (s->ended) return QMKVD_END_OF_STREAM;
    return s->get_frm(s, buf, buf_size, size, pts, end, key);
}

int32_t qmkvds_get_block_pos(qmkvds *s, int64_t *block_pos, uint32_t *frames, int64_t *cluster_pos,
                             int64_t *cluster_time) {
    const int32_t r = check_open(s);
    if (r != 0) return r;
    if (block_pos == nullptr || frames == nullptr || cluster_pos == nullptr || cluster_time == nullptr)
        return QMKVD_ERR_ARGUMENT;
    // Opening, and every search for a block, clear the position first.
    if (s->block.data_pos == 0) return QMKVD_ERR_IMPOSSIBLE;
    *block_pos = s->block.data_pos;
    *frames = (uint32_t)s->lace_last + 1;
    *cluster_pos = s->cluster.parse_start;
    *cluster_time = qmkvd_ticks_to_100ns((int64_t)s->cluster.timecode, s->timecode_scale);
    return 0;
}

int64_t get_time_pts(qmkvds *s, uint64_t cluster_timecode, int16_t relative_timecode) {
    const int32_t r = check_open(s);
    if (r != 0) return r;
    return (int64_t)((cluster_timecode + (uint64_t)(int64_t)relative_timecode) * s->timecode_scale / 100);
}

int64_t get_time_dts(qmkvds *s, uint64_t, int16_t) {
    const int32_t r = check_open(s);
    if (r != 0) return r;
    return qmkvd_wrap_add(s->base_time, qmkvd_wrap_mul(s->default_duration_100ns, (int64_t)s->dts_counter++));
}
