// The file-access descriptor the open reads the file's head through: the
// header walk and the element parsers read field by field, and through
// this view a run of fields costs one read of the data source, not one
// each. On a device every such read is a call into another process.
#ifndef QMKVD_HEAD_IO_H_
#define QMKVD_HEAD_IO_H_

#include "common/qcmn_mfal.h"
#include "demux/qmkvd_types.h"
#include "demux/qmkvd_window_io.h"

typedef struct qmkvd_head_io {
    qmkvd_window_io view;  // its `mfal` and qmkvd_window_io_fp(&view) are what the parsers use
    qmkvd_window w;
} qmkvd_head_io;

// A view over file object `fp` of `inst`'s data source, at its position.
// Without memory for the window every read goes to the data source, as
// through `fp` itself.
void qmkvd_head_io_open(qmkvd_head_io *h, qmkvd *inst, QCMN_MFAL_FP *fp);

// Frees the window; the file object stays open.
void qmkvd_head_io_close(qmkvd_head_io *h);

#endif  // QMKVD_HEAD_IO_H_
