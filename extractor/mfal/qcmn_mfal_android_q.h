// File-access layer over the framework's DataSourceHelper: a positioned,
// read-only stream that turns every read into exactly one readAt().
#ifndef QCMN_MFAL_ANDROID_Q_H_
#define QCMN_MFAL_ANDROID_Q_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_mfal.h"

namespace android {
class DataSourceHelper;
}

// Room for a file name that a path-based layer would use; unused here.
#define QCMN_MFAL_NAME_SIZE 4096

// What the descriptor's `user` word points to.
typedef struct QCMN_MFAL_ACCESS {
    char name[QCMN_MFAL_NAME_SIZE];
    android::DataSourceHelper *source;
} QCMN_MFAL_ACCESS;

// Per-open handle: every open gets its own position over the shared source.
typedef struct QCMN_MFAL_FP {
    android::DataSourceHelper *source;
    int64_t pos;
} QCMN_MFAL_FP;

// The ioctl code the layer acknowledges.
#define QCMN_MFAL_IOCTL_ACK 1

QCMN_API QCMN_MFAL_FP *qcmn_mfal_open(QCMN_MFAL *mfal, unsigned long mode);
QCMN_API void qcmn_mfal_close(QCMN_MFAL_FP *fp);
QCMN_API int32_t qcmn_mfal_read(QCMN_MFAL_FP *fp, void *buf, int32_t size);
QCMN_API int32_t qcmn_mfal_write(QCMN_MFAL_FP *fp, const void *buf, int32_t size);
QCMN_API int32_t qcmn_mfal_getpos(QCMN_MFAL_FP *fp, int64_t *pos);
QCMN_API int32_t qcmn_mfal_setpos(QCMN_MFAL_FP *fp, const int64_t *pos);
QCMN_API int32_t qcmn_mfal_skip(QCMN_MFAL_FP *fp, const int64_t *distance);
QCMN_API int32_t qcmn_mfal_getsize(QCMN_MFAL_FP *fp, int64_t *size);
QCMN_API int32_t qcmn_mfal_ioctl(QCMN_MFAL_FP *fp, int code, void *arg);

// Fills a zeroed descriptor with the nine operations and a new access block
// over `source`. Returns 0, or -1 when the block cannot be allocated (the
// descriptor is then left all zero).
QCMN_API int32_t qcmn_mfal_init(QCMN_MFAL *mfal, android::DataSourceHelper *source);
// Frees the access block (if any) and zeroes all fifteen words.
QCMN_API void qcmn_mfal_deinit(QCMN_MFAL *mfal);

#endif  // QCMN_MFAL_ANDROID_Q_H_
