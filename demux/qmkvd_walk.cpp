#include "demux/qmkvd_walk.h"

#include <stdlib.h>
#include <string.h>

#include "demux/qmkvd_ebml.h"

int64_t qmkvd_end_of(int64_t pos, uint64_t size) {
    if (pos < 0) pos = 0;
    const uint64_t room = (uint64_t)INT64_MAX - (uint64_t)pos;
    return size > room ? INT64_MAX : pos + (int64_t)size;
}

namespace {

// The child header at `pos`, in one read of the file; the file is left on
// the child's data.
int32_t read_header(const qmkvd_io *io, int64_t pos, qmkvd_child *child) {
    uint8_t bytes[QMKVD_MAX_HEADER];
    if (io->mfal->setpos(io->fp, &pos) != 0) return -1;
    const int32_t got = io->mfal->read(io->fp, bytes, QMKVD_MAX_HEADER);
    const int32_t n = got > 0 ? qmkvd_ebml_header_in(bytes, (uint64_t)got, &child->id, &child->size) : -1;
    if (n < 0) return -1;
    child->pos = pos + n;
    return io->mfal->setpos(io->fp, &child->pos);
}

}  // namespace

int32_t qmkvd_walk(const qmkvd_io *io, int64_t pos, uint64_t size, uint32_t flags, qmkvd_child_fn fn, void *ctx) {
    const int64_t end = qmkvd_end_of(pos, size);
    // Every step moves forward by at least one header byte, so the walk ends.
    while (pos < end) {
        qmkvd_child child;
        child.start = pos;
        if (read_header(io, pos, &child) != 0) return -1;
        if ((flags & QMKVD_WALK_REFUSE_HUGE) && child.size > QMKVD_MAX_CHILD_SIZE) return -1;
        if ((flags & QMKVD_WALK_STOP_OVERSIZED) && (child.pos > end || child.size > (uint64_t)(end - child.pos))) {
            io->mfal->setpos(io->fp, &end);
            return 0;
        }
        child.next = qmkvd_end_of(child.pos, child.size);
        if (child.size > 0 || !(flags & QMKVD_WALK_PASS_EMPTY)) {
            const int32_t r = fn(ctx, io, &child);
            if (r < 0) return -1;
            if (r == QMKVD_WALK_DONE) return 0;
        }
        pos = child.next;
    }
    return 0;
}

namespace {

int32_t read_exact(const qmkvd_io *io, void *dst, uint64_t size) {
    if (size == 0) return 0;
    return io->mfal->read(io->fp, dst, (int32_t)size) == (int32_t)size ? 0 : -1;
}

}  // namespace

int32_t qmkvd_read_uint(const qmkvd_io *io, const qmkvd_child *child, uint64_t *value) {
    uint8_t bytes[8];
    if (child->size > 8 || read_exact(io, bytes, child->size) != 0) return -1;
    *value = qmkvd_b2v_u64(bytes, (int32_t)child->size);
    return 0;
}

int32_t qmkvd_read_float_bits32(const qmkvd_io *io, const qmkvd_child *child, float *value) {
    uint64_t raw;
    if (qmkvd_read_uint(io, child, &raw) != 0) return -1;
    const uint32_t bits = (uint32_t)raw;
    memcpy(value, &bits, sizeof(bits));
    return 0;
}

int32_t qmkvd_read_string(const qmkvd_io *io, const qmkvd_child *child, char *dst, uint32_t capacity) {
    if (child->size >= capacity || read_exact(io, dst, child->size) != 0) return -1;
    dst[child->size] = '\0';
    return 0;
}

int32_t qmkvd_read_raw(const qmkvd_io *io, const qmkvd_child *child, uint8_t *dst, uint32_t capacity) {
    if (child->size > capacity) return -1;
    return read_exact(io, dst, child->size);
}

int32_t qmkvd_read_alloc(const qmkvd_io *io, const qmkvd_child *child, int64_t file_size, uint8_t **data,
                         uint32_t *size) {
    // Never allocate more than the file could hold for this element.
    if (child->size > QMKVD_MAX_CHILD_SIZE) return -1;
    if (file_size > 0 && (child->pos > file_size || child->size > (uint64_t)(file_size - child->pos))) return -1;
    if (child->size == 0) {
        *data = nullptr;
        *size = 0;
        return 0;
    }
    uint8_t *buf = static_cast<uint8_t *>(malloc(child->size));
    if (buf == nullptr) return -1;
    if (read_exact(io, buf, child->size) != 0) {
        free(buf);
        return -1;
    }
    *data = buf;
    *size = (uint32_t)child->size;
    return 0;
}

namespace {

int32_t store_field(qmkvd_fields *fields, const qmkvd_syntax *row, const qmkvd_io *io, qmkvd_child *child) {
    uint8_t *field = static_cast<uint8_t *>(fields->record) + row->offset;
    uint64_t v;
    switch (row->kind) {
        case QMKVD_FIELD_U8:
            if (qmkvd_read_uint(io, child, &v) != 0) return -1;
            *field = (uint8_t)v;
            return 0;
        case QMKVD_FIELD_U32: {
            if (qmkvd_read_uint(io, child, &v) != 0) return -1;
            const uint32_t low = (uint32_t)v;
            memcpy(field, &low, sizeof(low));
            return 0;
        }
        case QMKVD_FIELD_U64:
            if (qmkvd_read_uint(io, child, &v) != 0) return -1;
            memcpy(field, &v, sizeof(v));
            return 0;
        case QMKVD_FIELD_U64_LOW32:
            if (qmkvd_read_uint(io, child, &v) != 0) return -1;
            v = (uint32_t)v;
            memcpy(field, &v, sizeof(v));
            return 0;
        case QMKVD_FIELD_STRING:
            return qmkvd_read_string(io, child, reinterpret_cast<char *>(field), row->capacity);
        case QMKVD_FIELD_RAW:
            return qmkvd_read_raw(io, child, field, row->capacity);
        case QMKVD_FIELD_CALL:
            return row->call(fields, io, child);
    }
    return -1;
}

int32_t on_field_child(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_fields *fields = static_cast<qmkvd_fields *>(ctx);
    for (size_t i = 0; i < fields->syntax_count; ++i) {
        if (fields->syntax[i].id == child->id) return store_field(fields, &fields->syntax[i], io, child);
    }
    return QMKVD_WALK_CONTINUE;
}

}  // namespace

int32_t qmkvd_parse_fields(struct qmkvd *inst, const qmkvd_io *io, int64_t pos, uint64_t size, uint32_t flags,
                           const qmkvd_syntax *syntax, size_t syntax_count, void *record) {
    qmkvd_fields fields = {inst, record, syntax, syntax_count};
    return qmkvd_walk(io, pos, size, flags, on_field_child, &fields);
}
