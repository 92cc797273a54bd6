// Key-frame index of a video track: the times its cues name.
#include <android/log.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_cues.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvds.h"

namespace {

const uint32_t kEntrySize = sizeof(qmkvd_idx_entry);
static_assert(sizeof(qmkvd_idx_entry) == 16, "index entries are 16 bytes");

int32_t idx_table_locked(qmkvds *s, qmkvd_idx_entry *table, uint32_t capacity, uint32_t *size, uint32_t *count) {
    qmkvd *inst = s->demux;
    if (!inst->found_cues || s->stream_type != QMKVD_TRACK_VIDEO) return QMKVD_ERR_IMPOSSIBLE;
    if (!s->cues_loaded) {
        if (get_seek_from_cues(inst, s->mfal, s->file, &inst->cues, &s->stream_cues, s->track.track_number) != 0)
            return QMKVD_ERR_IMPOSSIBLE;
        s->cues_loaded = 1;
        if (s->stream_cues.count == 0) s->use_instance_cues = 1;
    }
    const uint32_t n = s->stream_cues.count;
    if (n == 0) return QMKVD_ERR_IMPOSSIBLE;
    if (count != nullptr) *count = n;
    if (size != nullptr) *size = n * kEntrySize;
    if (table == nullptr) return 0;
    if (capacity < n * kEntrySize) return QMKVD_ERR_BUFFER;
    for (uint32_t i = 0; i < n; ++i) {
        table[i].flags = 0;
        table[i].time = qmkvd_ticks_to_100ns((int64_t)s->stream_cues.entries[i].time, s->timecode_scale);
    }
    return 0;
}

}  // namespace

int32_t qmkvds_get_idx_table(qmkvds *s, qmkvd_idx_entry *table, uint32_t capacity, uint32_t *size,
                             uint32_t *count) {
    if (s == nullptr || s->magic != QMKVDS_MAGIC) return QMKVD_ERR_ARGUMENT;
    if (s->opened != 1) return QMKVD_ERR_NOT_OPEN;
    // The stream's cue list is built from the file's cue table, which a
    // seek of another stream may condemn.
    pthread_mutex_lock(&s->demux->seek_lock);
    const int32_t r = idx_table_locked(s, table, capacity, size, count);
    pthread_mutex_unlock(&s->demux->seek_lock);
    return r;
}

int32_t qmkvd_get_idx_table(qmkvd *h, int32_t index, qmkvd_idx_entry *table, uint32_t capacity, uint32_t *size,
                            uint32_t *count) {
    if (h == nullptr || h->magic != QMKVD_MAGIC || index < 0 || index >= h->stream_count) return QMKVD_ERR_ARGUMENT;
    if (!h->found_cues || h->streams[index].stream_type != QMKVD_TRACK_VIDEO) return QMKVD_ERR_IMPOSSIBLE;
    int32_t err = QMKVD_ERR_IMPOSSIBLE;
    qmkvds *s = qmkvds_open(h, index, &err);
    if (s == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "qmkvd", "qmkvds_open() failed!");
        return err;
    }
    const int32_t r = qmkvds_get_idx_table(s, table, capacity, size, count);
    qmkvds_close(s);
    return r;
}
