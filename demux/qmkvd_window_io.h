// The file-access operations over a stream's read-ahead window: parsers
// written against the file-access layer (Cluster heads, block headers,
// lacing, the key-frame probe) read through it at the cost of about one
// read of the data source per window fill instead of one per field. On a
// device every such read is a call into another process.
#ifndef QMKVD_WINDOW_IO_H_
#define QMKVD_WINDOW_IO_H_

#include <stdint.h>

#include "common/qcmn_mfal.h"
#include "demux/qmkvd_types.h"

typedef struct qmkvd_window_io {
    QCMN_MFAL mfal;  // read, getpos, setpos, skip and getsize over this view
    qmkvd_window *w;
    QCMN_MFAL *base;
    QCMN_MFAL_FP *base_fp;
    int64_t pos;
} qmkvd_window_io;

// A view over window `w` (the stream's own, or one the caller keeps for a
// particular walk) and the stream's file object, at the file object's
// current position.
void qmkvd_window_io_init(qmkvd_window_io *io, qmkvds *stream, qmkvd_window *w);

// The same over any file object `base_fp` of `base`.
void qmkvd_window_io_init_on(qmkvd_window_io *io, QCMN_MFAL *base, QCMN_MFAL_FP *base_fp, qmkvd_window *w);

// The handle to pass with `io->mfal`.
static inline QCMN_MFAL_FP *qmkvd_window_io_fp(qmkvd_window_io *io) {
    return reinterpret_cast<QCMN_MFAL_FP *>(io);
}

#endif  // QMKVD_WINDOW_IO_H_
