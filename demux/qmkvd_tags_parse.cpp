#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"

namespace {

enum { ID_TAG = 0x7373, ID_SIMPLE_TAG = 0x67C8, ID_TARGETS = 0x63C0 };

const uint32_t kSimpleTagGrowth = 20;
// Each record is large; a hostile Tags element of tiny SimpleTags must not
// turn into gigabytes. Far above what any real file carries.
const uint32_t kMaxSimpleTags = 16384;

int32_t skip_child(void *, const qmkvd_io *, qmkvd_child *) { return QMKVD_WALK_CONTINUE; }

// A value as long as its field or longer is cut to fit, NUL-terminated.
int32_t on_tag_text(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_simple_tag *t = static_cast<qmkvd_simple_tag *>(f->record);
    char *field;
    uint32_t capacity;
    switch (child->id) {
        case 0x45A3: field = t->tag_name; capacity = sizeof(t->tag_name); break;
        case 0x447A: field = t->tag_language; capacity = sizeof(t->tag_language); break;
        default: field = t->tag_string; capacity = sizeof(t->tag_string); break;
    }
    const uint32_t n = child->size < capacity ? (uint32_t)child->size : capacity;
    if (io->mfal->read(io->fp, field, (int32_t)n) != (int32_t)n) return -1;
    field[n < capacity ? n : capacity - 1] = '\0';
    return 0;
}

const qmkvd_syntax kSimpleTagSyntax[] = {
    {0x45A3, QMKVD_FIELD_CALL, 0, 0, on_tag_text},
    {0x447A, QMKVD_FIELD_CALL, 0, 0, on_tag_text},
    {0x4487, QMKVD_FIELD_CALL, 0, 0, on_tag_text},
};

int32_t grow_simple_tags(qmkvd_tags *tags) {
    const uint32_t capacity = tags->simple_tag_capacity + kSimpleTagGrowth;
    qmkvd_simple_tag *list = static_cast<qmkvd_simple_tag *>(calloc(capacity, sizeof(qmkvd_simple_tag)));
    if (list == nullptr) return -1;
    if (tags->simple_tag_count > 0) memcpy(list, tags->simple_tags, tags->simple_tag_count * sizeof(*list));
    free(tags->simple_tags);
    tags->simple_tags = list;
    tags->simple_tag_capacity = capacity;
    return 0;
}

struct tag_walk {
    qmkvd *inst;
    qmkvd_tags *tags;
};

int32_t on_tag_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    tag_walk *w = static_cast<tag_walk *>(ctx);
    qmkvd_tags *tags = w->tags;
    if (child->id == ID_TARGETS) {
        tags->targets_pos = child->pos;
        tags->targets_size = child->size;
        return qmkvd_walk(io, child->pos, child->size, 0, skip_child, nullptr);
    }
    if (child->id != ID_SIMPLE_TAG || tags->simple_tag_count >= kMaxSimpleTags) return QMKVD_WALK_CONTINUE;
    if (tags->simple_tag_count == tags->simple_tag_capacity && grow_simple_tags(tags) != 0) return -1;
    qmkvd_simple_tag *t = &tags->simple_tags[tags->simple_tag_count];
    t->simple_tag_pos = child->pos;
    t->simple_tag_size = (uint32_t)child->size;
    if (parse_tag_simpletag(w->inst, io->mfal, io->fp, t) != 0) return -1;
    tags->simple_tag_count++;
    return QMKVD_WALK_CONTINUE;
}

int32_t on_tags_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    tag_walk *w = static_cast<tag_walk *>(ctx);
    if (child->id != ID_TAG) return QMKVD_WALK_CONTINUE;
    w->tags->tag_pos = child->pos;
    w->tags->tag_size = child->size;
    return parse_tag(w->inst, io->mfal, io->fp, w->tags);
}

int32_t walk_over(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint64_t size) {
    const qmkvd_io io = {mfal, fp};
    return qmkvd_walk(&io, pos, size, 0, skip_child, nullptr);
}

}  // namespace

int32_t parse_tags(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags) {
    const qmkvd_io io = {mfal, fp};
    tag_walk w = {inst, tags};
    return qmkvd_walk(&io, tags->tags_pos, tags->tags_size, 0, on_tags_child, &w);
}

int32_t parse_tag(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags) {
    const qmkvd_io io = {mfal, fp};
    tag_walk w = {inst, tags};
    return qmkvd_walk(&io, tags->tag_pos, tags->tag_size, 0, on_tag_child, &w);
}

int32_t parse_tag_targets(qmkvd *, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags) {
    return walk_over(mfal, fp, tags->targets_pos, tags->targets_size);
}

int32_t parse_tag_simpletag(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_simple_tag *simple_tag) {
    const qmkvd_io io = {mfal, fp};
    return qmkvd_parse_fields(inst, &io, simple_tag->simple_tag_pos, simple_tag->simple_tag_size, 0,
                              kSimpleTagSyntax, QMKVD_SYNTAX_COUNT(kSimpleTagSyntax), simple_tag);
}

int32_t parse_chapters(qmkvd *, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *chapters) {
    return walk_over(mfal, fp, chapters->pos, chapters->size);
}

int32_t parse_attachments(qmkvd *, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *attachments) {
    return walk_over(mfal, fp, attachments->pos, attachments->size);
}
