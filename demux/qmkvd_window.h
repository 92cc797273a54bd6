// A read-ahead window over one file object: the frame path parses block
// headers and lacing from memory and copies small frames out of it, so a
// block costs about one read of the file instead of one per field. The
// windows of one file's streams are shared: a fill takes what another
// stream's window already holds and reads only the rest, so interleaved
// tracks, each passing over the other's blocks, ask for each stretch of the
// file about once. File bytes never change, so a window stays valid across
// seeks; only its growth restarts.
#ifndef QMKVD_WINDOW_H_
#define QMKVD_WINDOW_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_mfal.h"
#include "demux/qmkvd_types.h"

// Points `w` at `bytes` (capacity `cap`), empty, on its own.
void qmkvd_window_init(qmkvd_window *w, uint8_t *bytes, uint32_t cap);

// The same for a stream's window, which joins the windows of `file`: its
// fills take what the others hold, and theirs what it holds.
void qmkvd_window_join(qmkvd_window *w, qmkvd *file, uint8_t *bytes, uint32_t cap);

// Takes the window out of its file's windows, empty; returns its buffer
// for the caller to free.
uint8_t *qmkvd_window_leave(qmkvd_window *w);

// The bytes from `pos` on: a pointer into the window and, in *avail, how
// many it holds from there (at least `want` unless the file ends first or
// `want` exceeds the capacity). Null when nothing could be read. The file
// position is left undefined.
const uint8_t *qmkvd_window_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t want,
                               uint32_t *avail);

// Copies `n` bytes at `pos` into `out` (what the window holds, the rest
// straight from the file when it is large) and leaves the file position
// after what was copied. Returns the number of bytes copied.
uint32_t qmkvd_window_copy(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint8_t *out,
                           uint32_t n);

// Puts the file's bytes [pos, pos + size) into `out` as a fill of `w`
// does: what the file's other windows and recent small reads hold is
// copied, the rest read (small reads kept for the others when `keep`);
// once `need` bytes are in, it stops before a read rather than make one.
// Returns the bytes put; fewer at the end of the file. `w` is not changed.
uint32_t qmkvd_window_take(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint8_t *out,
                           uint32_t size, uint32_t need, bool keep);

// What qmkvd_window_at gives when the window already holds `want` bytes at
// `pos`, else null: inline, for the loops that take a header or a byte per
// step (a scan over damage takes one or two per byte).
static inline const uint8_t *qmkvd_window_held(const qmkvd_window *w, int64_t pos, uint32_t want,
                                               uint32_t *avail) {
    if (pos < w->start || (uint64_t)(pos - w->start) + want > w->len) return nullptr;
    *avail = w->len - (uint32_t)(pos - w->start);
    return w->bytes + (pos - w->start);
}

// A byte cursor over a window, for headers of unbounded length (lacing).
typedef struct qmkvd_cursor {
    qmkvd_window *w;
    QCMN_MFAL *mfal;
    QCMN_MFAL_FP *fp;
    int64_t pos;
} qmkvd_cursor;

// The byte at the cursor, advancing it; false past the end of the file.
static inline bool qmkvd_cursor_byte(qmkvd_cursor *c, uint8_t *b) {
    uint32_t avail = 0;
    const uint8_t *p = qmkvd_window_held(c->w, c->pos, 1, &avail);
    if (p == nullptr) p = qmkvd_window_at(c->w, c->mfal, c->fp, c->pos, 1, &avail);
    if (p == nullptr || avail < 1) return false;
    *b = *p;
    c->pos++;
    return true;
}

// An EBML size of at most `max_bytes` bytes at the cursor; `*length` (may be
// null) receives its length in bytes. 0 or -1, as the file readers.
int32_t qmkvd_cursor_size(qmkvd_cursor *c, int32_t max_bytes, uint64_t *size, uint32_t *length);

#endif  // QMKVD_WINDOW_H_
