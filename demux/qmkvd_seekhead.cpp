#include <stddef.h>
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd_cues.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"

namespace {

enum { ID_SEEK = 0x4DBB, ID_SEEK_ID = 0x53AB, ID_SEEK_POSITION = 0x53AC };

struct seek_entry {
    qmkvd *inst;
    uint64_t seek_id;
    uint64_t seek_position;
    bool cluster_known;  // the Seek names a Cluster we already have
};

int32_t on_seek_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    seek_entry *e = static_cast<seek_entry *>(ctx);
    if (child->id == ID_SEEK_ID) {
        if (qmkvd_read_uint(io, child, &e->seek_id) != 0) return -1;
        if (e->seek_id == QMKVD_ID_CLUSTER && e->inst->found_cluster) {
            e->cluster_known = true;
            return QMKVD_WALK_DONE;
        }
    } else if (child->id == ID_SEEK_POSITION) {
        if (qmkvd_read_uint(io, child, &e->seek_position) != 0) return -1;
    }
    return QMKVD_WALK_CONTINUE;
}

// Where the walk recorded the start of each kind of element a Seek may name.
int64_t *recorded_start(qmkvd *inst, uint64_t seek_id) {
    switch (seek_id) {
        case QMKVD_ID_INFO: return &inst->info.info_start;
        case QMKVD_ID_TRACKS: return &inst->tracks.start;
        case QMKVD_ID_CUES: return &inst->cues.cues_start;
        case QMKVD_ID_TAGS: return &inst->tags.tags_start;
        case QMKVD_ID_CHAPTERS: return &inst->chapters.start;
        case QMKVD_ID_ATTACHMENTS: return &inst->attachments.start;
        case QMKVD_ID_CLUSTER: return &inst->first_cluster_start;
        default: return nullptr;
    }
}

int32_t walk_over(const qmkvd_io *io, int64_t pos, uint64_t size) {
    return qmkvd_walk(io, pos, size, 0, [](void *, const qmkvd_io *, qmkvd_child *) { return 0; }, nullptr);
}

// Parses the element a Seek points at, unless the walk already has one.
int32_t parse_target(qmkvd *inst, const qmkvd_io *io, uint32_t id, int64_t start, int64_t pos, uint64_t size) {
    switch (id) {
        case QMKVD_ID_INFO:
            if (inst->found_info) return 0;
            inst->info.info_start = start;
            inst->info.info_pos = pos;
            inst->info.info_size = size;
            if (parse_segmentinfo(inst, io->mfal, io->fp, &inst->info) != 0) return -1;
            inst->found_info = 1;
            return 0;
        case QMKVD_ID_TRACKS:
            if (inst->found_tracks) return 0;
            inst->tracks = qmkvd_element{start, pos, size};
            if (parse_track(inst, io->mfal, io->fp, &inst->tracks) != 0) return -1;
            inst->found_tracks = 1;
            return 0;
        case QMKVD_ID_CUES:
            if (inst->found_cues) return 0;
            inst->cues.cues_start = start;
            inst->cues.cues_pos = pos;
            inst->cues.cues_size = (uint32_t)size;
            if (parse_cues_ctx_fast(inst, io->mfal, io->fp, &inst->cues) != 0) return -1;
            if (inst->cues.cue_count > 0) inst->found_cues = 1;
            return 0;
        case QMKVD_ID_CLUSTER:
            if (inst->found_cluster) return 0;
            inst->first_cluster_start = start;
            inst->first_cluster_pos = pos;
            inst->first_cluster_size = size;
            inst->found_cluster = 1;
            return 0;
        case QMKVD_ID_TAGS:
            if (inst->found_tags) return 0;
            inst->tags.tags_start = start;
            inst->tags.tags_pos = pos;
            inst->tags.tags_size = size;
            if (parse_tags(inst, io->mfal, io->fp, &inst->tags) != 0) {
                inst->tags.simple_tag_count = 0;
                return -1;
            }
            inst->found_tags = 1;
            return 0;
        case QMKVD_ID_CHAPTERS:
        case QMKVD_ID_ATTACHMENTS: {
            const bool chapters = id == QMKVD_ID_CHAPTERS;
            uint8_t *found = chapters ? &inst->found_chapters : &inst->found_attachments;
            if (*found) return 0;
            qmkvd_element *e = chapters ? &inst->chapters : &inst->attachments;
            *e = qmkvd_element{start, pos, size};
            if (walk_over(io, pos, size) != 0) return -1;
            *found = 1;
            return 0;
        }
        default:
            return 0;
    }
}

int32_t on_seekhead_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    if (child->id != ID_SEEK) return QMKVD_WALK_CONTINUE;
    if (parse_seekhead_seek(static_cast<qmkvd *>(ctx), io->mfal, io->fp, child->pos, child->size) != 0) {
        __android_log_print(ANDROID_LOG_WARN, nullptr, "parse_seekhead_seek failed");
        return -1;
    }
    return QMKVD_WALK_CONTINUE;
}

}  // namespace

int32_t parse_seekhead(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *seekhead) {
    const qmkvd_io io = {mfal, fp};
    return qmkvd_walk(&io, seekhead->pos, seekhead->size, 0, on_seekhead_child, inst);
}

int32_t parse_seekhead_seek(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint64_t size) {
    const qmkvd_io io = {mfal, fp};
    seek_entry e = {inst, 0, 0, false};
    if (qmkvd_walk(&io, pos, size, QMKVD_WALK_PASS_EMPTY, on_seek_child, &e) != 0) return -1;
    if (e.cluster_known) return 0;

    if (e.seek_position == 0) {
        // A zero position names no place; it only re-bases on an element
        // the walk has already met.
        int64_t *start = recorded_start(inst, e.seek_id);
        if (start != nullptr) inst->seekhead.start = *start;
        return 0;
    }

    const int64_t target = qmkvd_end_of(inst->seekhead.start, e.seek_position);
    uint32_t id;
    uint64_t element_size;
    mfal->setpos(fp, &target);
    if (qmkvd_ebml_get_id_len64(mfal, fp, &id, &element_size) != 0) {
        __android_log_print(ANDROID_LOG_WARN, nullptr, "parse_seekhead_seek : qmkvd_ebml_get_id_len64 failed");
        return -1;
    }
    if (id != e.seek_id) {
        __android_log_print(ANDROID_LOG_WARN, nullptr, "could not find seekid, seekid = %zu, id = %d",
                            (size_t)e.seek_id, (int)id);
        return -1;
    }
    int64_t data_pos;
    mfal->getpos(fp, &data_pos);
    return parse_target(inst, &io, id, target, data_pos, element_size);
}
