// Seeking a stream: through the cues when the file has usable ones,
// otherwise by crawling the Clusters to a key frame.
#include <stdlib.h>

#include <android/log.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_cues.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvds.h"

namespace {

const char kTag[] = "qmkvd";
const int32_t kCueProbes = 3;

// No frame of a half-read laced block may follow a seek.
void audio_reset(qmkvds *s) {
    if (s->stream_type == QMKVD_TRACK_AUDIO && !qmkvd_support_lacing(s->codec_type)) {
        s->lace_last = 0;
        s->lace_left = 0;
    }
}

// What any successful seek leaves behind: no held block, not at the end.
void forget_current_block(qmkvds *s) {
    s->peeked = 0;
    s->peeked_size = 0;
    s->other_track = 0;
    s->ended = 0;
}

int32_t rewind_to_start(qmkvds *s, int64_t *result_time) {
    s->cluster.parse_start = s->cluster.cluster_pos;
    s->cluster.parse_size = s->cluster.cluster_size;
    if (qmkvds_cluster_head(s) != 0) return QMKVD_ERR_READ;
    s->base_time = 0;
    s->dts_counter = 0;
    s->skip_to_time = 0;
    s->after_seek = 0;
    audio_reset(s);
    forget_current_block(s);
    if (result_time != nullptr) *result_time = 0;
    return 0;
}

// Once per stream: make sure cue positions land on Clusters. The first cue
// normally names the first Cluster, which fixes the base; probes then
// condemn cues that still miss, for every stream of the file.
void check_cues(qmkvds *s) {
    qmkvd *inst = s->demux;
    if (inst->cues.cue_count == 0 || inst->cues.cue_points == nullptr) return;
    const int64_t first = (int64_t)inst->cues.cue_points[0].cue_cluster_position;
    if (first < inst->first_cluster_start && inst->cue_base != inst->first_cluster_start - first)
        inst->cue_base = inst->first_cluster_start - first;
    const uint32_t count = inst->cues.cue_count;
    const uint32_t probes[kCueProbes] = {0, 1, count / 2};
    const uint32_t n = count < (uint32_t)kCueProbes ? count : (uint32_t)kCueProbes;
    for (uint32_t i = 0; i < n; ++i) {
        const int64_t pos = inst->cue_base + (int64_t)inst->cues.cue_points[probes[i]].cue_cluster_position;
        s->mfal->setpos(s->file, &pos);
        uint32_t id;
        uint64_t size;
        if (qmkvd_ebml_get_id_len64(s->mfal, s->file, &id, &size) != 0) return;
        if (id != QMKVD_ID_CLUSTER) {
            inst->found_cues = 0;
            free(inst->cues.cue_points);
            inst->cues.cue_points = nullptr;
            inst->cues.cue_count = 0;
            return;
        }
    }
}

int32_t load_cues(qmkvds *s) {
    qmkvd *inst = s->demux;
    if (get_seek_from_cues(inst, s->mfal, s->file, &inst->cues, &s->stream_cues, s->track.track_number) != 0)
        return QMKVD_ERR_IMPOSSIBLE;
    s->cues_loaded = 1;
    if (s->stream_cues.count == 0) s->use_instance_cues = 1;
    return 0;
}

uint32_t cue_count(const qmkvds *s) {
    return s->use_instance_cues ? s->demux->cues.cue_count : s->stream_cues.count;
}

uint32_t search_cue(qmkvds *s, int64_t time, int32_t mode) {
    if (s->use_instance_cues) return qmkvd_get_searchidx(s->demux, time, mode);
    return qmkvd_get_searchidx2(s->demux, time, &s->stream_cues, mode);
}

// Cluster position (from the cue base) and time in ticks of cue `index`.
void cue_entry(const qmkvds *s, uint32_t index, int64_t *position, uint64_t *ticks) {
    const qmkvd *inst = s->demux;
    if (s->use_instance_cues) {
        *position = inst->cue_base + (int64_t)inst->cues.cue_points[index].cue_cluster_position;
        *ticks = inst->cues.cue_points[index].cue_time;
    } else {
        *position = inst->cue_base + s->stream_cues.entries[index].cluster_position;
        *ticks = s->stream_cues.entries[index].time;
    }
}

// Goes to the Cluster a cue names and leaves the frame reader to skip to
// the cue's block.
int32_t seek_to_cue(qmkvds *s, uint32_t index, int64_t *result_time, int32_t read_failure) {
    int64_t pos;
    uint64_t ticks;
    cue_entry(s, index, &pos, &ticks);
    const int64_t t = qmkvd_ticks_to_100ns((int64_t)ticks, s->timecode_scale);
    if (result_time != nullptr) *result_time = t;
    forget_current_block(s);
    uint64_t size;
    int64_t data;
    const int32_t found = qmkvd_cluster_at(&s->window, s->mfal, s->file, pos, &size, &data);
    if (found < 0) return read_failure;
    if (found > 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "###seek position error");
        return QMKVD_ERR_IMPOSSIBLE;
    }
    audio_reset(s);
    s->skip_to_time = 1;
    s->after_seek = 1;
    s->dts_counter = 0;
    s->base_time = t;
    s->cluster.parse_start = data;
    s->cluster.parse_size = size;
    if (qmkvds_cluster_head(s) != 0) return QMKVD_ERR_IMPOSSIBLE;
    return 0;
}

int32_t check_stream(const qmkvds *s) {
    if (s == nullptr || s->magic != QMKVDS_MAGIC) return QMKVD_ERR_ARGUMENT;
    if (s->opened != 1) return QMKVD_ERR_NOT_OPEN;
    return 0;
}

}  // namespace

namespace {

int32_t seek_locked(qmkvds *s, const uint64_t *time, int64_t *result_time, int32_t mode) {
    int32_t r;
    qmkvd *inst = s->demux;
    s->last_block_time = -1;
    s->prev_lace_count = 0;

    if ((mode == QMKVDS_SEEK_PREVIOUS || mode == QMKVDS_SEEK_CLOSEST) && time != nullptr && *time == 0)
        return rewind_to_start(s, result_time);

    if (inst->found_cues && !s->cues_loaded) {
        check_cues(s);
        if (inst->found_cues && (r = load_cues(s)) != 0) return r;
    }
    if (mode < 0 || mode > QMKVDS_SEEK_CLOSEST) return QMKVD_ERR_IMPOSSIBLE;

    if (mode == QMKVDS_SEEK_NEXT) {
        if (!inst->found_cues) return qmkvds_seek_crawl(s, time, result_time, QMKVDS_SEEK_NEXT);
        const int64_t target = time != nullptr ? (int64_t)*time : s->block_end;
        const uint32_t index = search_cue(s, target, QMKVDS_SEEK_NEXT);
        inst->last_cue_index = (int32_t)index;
        if (index != QMKVD_SEARCH_NONE) return seek_to_cue(s, index, result_time, QMKVD_ERR_READ);
        // Past the last cue: nothing to play until the next seek.
        audio_reset(s);
        s->dts_counter = 0;
        s->cluster.parse_start = 0;
        s->cluster.parse_size = 0;
        s->cluster.next_block_pos = 0;
        forget_current_block(s);
        s->ended = 1;
        if (result_time != nullptr) *result_time = 0;
        return QMKVD_END_OF_STREAM;
    }

    if (mode == QMKVDS_SEEK_PREVIOUS_CUE) {
        if (!inst->found_cues) return QMKVD_ERR_IMPOSSIBLE;
        if (inst->last_cue_index >= 1) inst->last_cue_index--;
        // The index may come from another stream's list or a failed search.
        if (inst->last_cue_index < 0 || (uint32_t)inst->last_cue_index >= cue_count(s)) return QMKVD_ERR_IMPOSSIBLE;
        return seek_to_cue(s, (uint32_t)inst->last_cue_index, result_time, QMKVD_ERR_READ);
    }

    if (time == nullptr) return QMKVD_ERR_ARGUMENT;
    if (!inst->found_cues) {
        audio_reset(s);
        return qmkvds_seek_crawl(s, time, result_time, QMKVDS_SEEK_NEXT);
    }
    const uint32_t index = search_cue(s, (int64_t)*time, mode);
    if (index == QMKVD_SEARCH_NONE) return rewind_to_start(s, result_time);
    inst->last_cue_index = (int32_t)index;
    return seek_to_cue(s, index, result_time, QMKVD_ERR_IMPOSSIBLE);
}

}  // namespace

int32_t qmkvds_seek(qmkvds *s, const uint64_t *time, int64_t *result_time, int32_t mode) {
    const int32_t r = check_stream(s);
    if (r != 0) return r;
    pthread_mutex_lock(&s->demux->seek_lock);
    const int32_t result = seek_locked(s, time, result_time, mode);
    pthread_mutex_unlock(&s->demux->seek_lock);
    return result;
}
