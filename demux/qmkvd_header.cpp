// The header walk: EBML header, then the first Segment's top-level elements.
#include <stddef.h>

#include <android/log.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_cues.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_head_io.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"

namespace {

const char kTag[] = "qmkvd_header";
// Elements passed over between the EBML header and the Segment, at most.
const int32_t kMaxBeforeSegment = 16;
// The unknown size in its eight-byte form, as live muxers write it.
const uint64_t kUnknownSize = 0x00FFFFFFFFFFFFFFull;

#define HEADER_FIELD(id, member) {id, QMKVD_FIELD_U32, (uint32_t)offsetof(qmkvd, member), 0, nullptr}

const qmkvd_syntax kEbmlHeaderSyntax[] = {
    HEADER_FIELD(0x4286, ebml_version),
    HEADER_FIELD(0x42F7, ebml_read_version),
    HEADER_FIELD(0x42F2, ebml_max_id_length),
    HEADER_FIELD(0x42F3, ebml_max_size_length),
    HEADER_FIELD(0x4287, doc_type_version),
    HEADER_FIELD(0x4285, doc_type_read_version),
    {0x4282, QMKVD_FIELD_STRING, (uint32_t)offsetof(qmkvd, doc_type), sizeof(((qmkvd *)0)->doc_type), nullptr},
};

struct segment_walk {
    qmkvd *inst;
    bool failed;  // an element parser failed: the whole header fails
    int64_t next;  // where the element after the last one seen starts
};

bool found_enough(const qmkvd *inst) {
    return inst->found_info && inst->found_cluster && inst->found_tracks && inst->found_cues;
}

// One top-level child of the Segment. Each kind is taken the first time only,
// except SeekHeads, which all are read.
int32_t handle_segment_child(qmkvd *inst, const qmkvd_io *io, const qmkvd_child *c) {
    QCMN_MFAL *mfal = io->mfal;
    QCMN_MFAL_FP *fp = io->fp;
    switch (c->id) {
        case QMKVD_ID_INFO:
            if (inst->found_info) return 0;
            inst->info.info_start = c->start;
            inst->info.info_pos = c->pos;
            inst->info.info_size = c->size;
            inst->found_info = 1;
            return parse_segmentinfo(inst, mfal, fp, &inst->info);
        case QMKVD_ID_CLUSTER:
            if (inst->found_cluster) return 0;
            inst->first_cluster_start = c->start;
            inst->first_cluster_pos = c->pos;
            inst->first_cluster_size = c->size;
            inst->found_cluster = 1;
            return 0;
        case QMKVD_ID_TRACKS:
            if (inst->found_tracks) return 0;
            inst->tracks = qmkvd_element{c->start, c->pos, c->size};
            if (parse_track(inst, mfal, fp, &inst->tracks) != 0) return -1;
            inst->found_tracks = 1;
            return 0;
        case QMKVD_ID_CUES:
            if (inst->found_cues || inst->cues.cues_start != 0) return 0;
            inst->cues.cues_start = c->start;
            inst->cues.cues_pos = c->pos;
            inst->cues.cues_size = (uint32_t)c->size;
            if (parse_cues_ctx_fast(inst, mfal, fp, &inst->cues) != 0) return -1;
            // Cues whose every point names an audio track index nothing: the
            // file seeks as one without cues (by crawling), not back to 0.
            if (inst->cues.cue_count > 0) inst->found_cues = 1;
            return 0;
        case QMKVD_ID_ATTACHMENTS:
            if (inst->found_attachments) return 0;
            inst->attachments = qmkvd_element{c->start, c->pos, c->size};
            inst->found_attachments = 1;
            return parse_attachments(inst, mfal, fp, &inst->attachments);
        case QMKVD_ID_CHAPTERS:
            if (inst->found_chapters) return 0;
            inst->chapters = qmkvd_element{c->start, c->pos, c->size};
            inst->found_chapters = 1;
            return parse_chapters(inst, mfal, fp, &inst->chapters);
        case QMKVD_ID_TAGS:
            if (inst->found_tags) return 0;
            inst->tags.tags_start = c->start;
            inst->tags.tags_pos = c->pos;
            inst->tags.tags_size = c->size;
            inst->found_tags = 1;
            return parse_tags(inst, mfal, fp, &inst->tags);
        case QMKVD_ID_SEEKHEAD:
            // Positions in a SeekHead count from the first SeekHead's start.
            if (!inst->found_seekhead && inst->seekhead.start == 0) inst->seekhead.start = c->start;
            inst->seekhead.pos = c->pos;
            inst->seekhead.size = c->size;
            inst->found_seekhead = 1;
            if (parse_seekhead(inst, mfal, fp, &inst->seekhead) != 0) inst->found_seekhead = 0;
            return 0;
        default:
            return 0;
    }
}

int32_t on_segment_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    segment_walk *w = static_cast<segment_walk *>(ctx);
    w->next = child->next;
    if (handle_segment_child(w->inst, io, child) != 0) {
        // An element cut off by the end of the file ends the walk like any
        // truncation; only a damaged element inside the file fails it.
        const int64_t file_size = w->inst->file_size;
        if (file_size > 0 && child->next > file_size) return QMKVD_WALK_DONE;
        w->failed = true;
        return -1;
    }
    return found_enough(w->inst) ? QMKVD_WALK_DONE : QMKVD_WALK_CONTINUE;
}

// Reads the Segment's header, passing over what stands between the EBML
// header and it: EBML lets Void (or any other element) stand at any level.
// The file position is left on the Segment's data.
bool find_segment(const qmkvd_io *io, int64_t pos, int64_t file_size, uint64_t *size) {
    for (int32_t i = 0; i <= kMaxBeforeSegment; ++i) {
        io->mfal->setpos(io->fp, &pos);
        uint32_t id;
        if (qmkvd_ebml_get_id_len64(io->mfal, io->fp, &id, size) != 0) return false;
        if (id == QMKVD_ID_SEGMENT) return true;
        int64_t data;
        io->mfal->getpos(io->fp, &data);
        const int64_t next = qmkvd_end_of(data, *size);
        if (next <= pos || (file_size > 0 && next >= file_size)) return false;
        pos = next;
    }
    return false;
}

int32_t parse_headers(qmkvd *inst, const qmkvd_io *io) {
    QCMN_MFAL *mfal = io->mfal;
    uint32_t id;
    uint64_t size;
    if (qmkvd_ebml_get_id_len64(mfal, io->fp, &id, &size) != 0) return -1;
    if (id != QMKVD_ID_EBML) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[parser] ebml is not founded");
        return -1;
    }
    mfal->getpos(io->fp, &inst->ebml_pos);
    inst->ebml_size = size;
    if (size > QMKVD_MAX_CHILD_SIZE ||
        qmkvd_parse_fields(inst, io, inst->ebml_pos, size, QMKVD_WALK_REFUSE_HUGE | QMKVD_WALK_PASS_EMPTY, kEbmlHeaderSyntax,
                           QMKVD_SYNTAX_COUNT(kEbmlHeaderSyntax), inst) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[parser] ebml data is not founded");
        return -1;
    }

    if (!find_segment(io, qmkvd_end_of(inst->ebml_pos, size), inst->file_size, &size)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[parser] segment is not founded");
        return -1;
    }
    mfal->getpos(io->fp, &inst->segment_pos);
    inst->segment_size = size;

    segment_walk w = {inst, false, inst->segment_pos};
    if (qmkvd_walk(io, inst->segment_pos, inst->segment_size, 0, on_segment_child, &w) != 0) {
        if (w.failed) return -1;
        // A recording's Segment of unknown size ends with the file: no
        // element is missing there.
        const bool ended_with_file = inst->segment_size == kUnknownSize && w.next == inst->file_size;
        if (!ended_with_file) __android_log_print(ANDROID_LOG_ERROR, kTag, "Unknown data. Check file. Abnormal file.");
    }
    if (!inst->found_cluster || !inst->found_tracks || !inst->found_info) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot find enough information. Check file");
        return -1;
    }
    return 0;
}

}  // namespace

int32_t qmkvd_header_parse(qmkvd *inst) {
    QCMN_MFAL_FP *fp = inst->mfal.open(&inst->mfal, 0);
    if (fp == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[parser] qmkv_fopen() failed");
        return -1;
    }
    inst->mfal.getsize(fp, &inst->file_size);
    qmkvd_head_io head;
    qmkvd_head_io_open(&head, inst, fp);
    const qmkvd_io io = {&head.view.mfal, qmkvd_window_io_fp(&head.view)};
    const int32_t r = parse_headers(inst, &io);
    qmkvd_head_io_close(&head);
    inst->cue_base = inst->seekhead.start;
    inst->mfal.close(fp);
    return r;
}
