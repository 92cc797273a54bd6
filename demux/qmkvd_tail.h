// The duration of a file whose Info carries none, from the end of its last
// frame.
#ifndef QMKVD_TAIL_H_
#define QMKVD_TAIL_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Finds the last Cluster by reading the file backwards (at most
// QMKVD_TAIL_PIECES reads, QMKVD_TAIL_BYTES bytes) and returns the end of its
// latest complete block in nanoseconds, or -1 when the tail cannot be
// understood within that bound.
QCMN_API int64_t qmkvd_find_end_ns(struct qmkvd *inst);

#define QMKVD_TAIL_PIECES 6
#define QMKVD_TAIL_FIRST_PIECE (64 * 1024)
#define QMKVD_TAIL_BYTES (QMKVD_TAIL_FIRST_PIECE * ((1 << QMKVD_TAIL_PIECES) - 1))

#endif  // QMKVD_TAIL_H_
