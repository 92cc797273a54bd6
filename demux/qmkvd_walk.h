// The one child walk every element parser shares, the value readers, and
// table-driven field parsing on top of them.
#ifndef QMKVD_WALK_H_
#define QMKVD_WALK_H_

#include <stddef.h>
#include <stdint.h>

#include "common/qcmn_mfal.h"
#include "demux/qmkvd_types.h"

// Sizes above this are refused where a parser says so.
#define QMKVD_MAX_CHILD_SIZE 0x7FFFFFFFull

typedef struct qmkvd_child {
    uint32_t id;
    uint64_t size;
    int64_t start;  // first byte of the ID
    int64_t pos;    // first data byte
    int64_t next;   // where the walk goes on; a handler may move it
} qmkvd_child;

typedef struct qmkvd_io {
    QCMN_MFAL *mfal;
    QCMN_MFAL_FP *fp;
} qmkvd_io;

enum {
    // A child larger than what is left of its parent ends the walk with
    // success, the position left at the parent's end.
    QMKVD_WALK_STOP_OVERSIZED = 1u << 0,
    // A child larger than QMKVD_MAX_CHILD_SIZE fails the walk.
    QMKVD_WALK_REFUSE_HUGE = 1u << 1,
    // Children of size 0 are passed over instead of handed to the handler.
    QMKVD_WALK_PASS_EMPTY = 1u << 2,
};

// Handler results: negative fails the walk, QMKVD_WALK_CONTINUE goes on,
// QMKVD_WALK_DONE ends it with success.
enum { QMKVD_WALK_CONTINUE = 0, QMKVD_WALK_DONE = 1 };
typedef int32_t (*qmkvd_child_fn)(void *ctx, const qmkvd_io *io, qmkvd_child *child);

// Walks the children of the element whose data is [pos, pos + size); after a
// child of size 0 the next one is read right after its header. Returns 0 or
// -1 (a failed header read or a handler failure).
int32_t qmkvd_walk(const qmkvd_io *io, int64_t pos, uint64_t size, uint32_t flags, qmkvd_child_fn fn, void *ctx);

// End of [pos, pos + size) without overflow, for unknown and absurd sizes.
int64_t qmkvd_end_of(int64_t pos, uint64_t size);

// Value readers for the child just read; the position must be at its data.
// Each fails (-1) on a short read or a size beyond the stated limit.
int32_t qmkvd_read_uint(const qmkvd_io *io, const qmkvd_child *child, uint64_t *value);  // <= 8 bytes
int32_t qmkvd_read_float_bits32(const qmkvd_io *io, const qmkvd_child *child, float *value);
int32_t qmkvd_read_string(const qmkvd_io *io, const qmkvd_child *child, char *dst, uint32_t capacity);
int32_t qmkvd_read_raw(const qmkvd_io *io, const qmkvd_child *child, uint8_t *dst, uint32_t capacity);
// A heap copy of exactly the child's data, bounded by what the file holds.
int32_t qmkvd_read_alloc(const qmkvd_io *io, const qmkvd_child *child, int64_t file_size, uint8_t **data,
                         uint32_t *size);

// Table-driven fields: a parser lists its children and where each goes.
typedef enum qmkvd_field_kind {
    QMKVD_FIELD_U8,      // unsigned integer, low 8 bits kept
    QMKVD_FIELD_U32,     // unsigned integer, low 32 bits kept
    QMKVD_FIELD_U64,     // unsigned integer
    QMKVD_FIELD_U64_LOW32,  // unsigned integer, low 32 bits kept in a 64-bit field
    QMKVD_FIELD_STRING,  // NUL-terminated text in a char[capacity]
    QMKVD_FIELD_RAW,     // bytes in a uint8_t[capacity]
    QMKVD_FIELD_CALL,    // the row's handler does the work
} qmkvd_field_kind;

struct qmkvd_fields;
typedef int32_t (*qmkvd_field_fn)(struct qmkvd_fields *fields, const qmkvd_io *io, qmkvd_child *child);

typedef struct qmkvd_syntax {
    uint32_t id;
    qmkvd_field_kind kind;
    uint32_t offset;    // of the field in the record
    uint32_t capacity;  // of a string or byte field
    qmkvd_field_fn call;
} qmkvd_syntax;

typedef struct qmkvd_fields {
    struct qmkvd *inst;
    void *record;
    const qmkvd_syntax *syntax;
    size_t syntax_count;
} qmkvd_fields;

#define QMKVD_SYNTAX_COUNT(table) (sizeof(table) / sizeof((table)[0]))

// Walks [pos, pos + size) storing each listed child into `record`;
// unlisted children are skipped.
int32_t qmkvd_parse_fields(struct qmkvd *inst, const qmkvd_io *io, int64_t pos, uint64_t size, uint32_t flags,
                           const qmkvd_syntax *syntax, size_t syntax_count, void *record);

#endif  // QMKVD_WALK_H_
