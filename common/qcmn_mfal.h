// The file-access descriptor through which the demuxer core reads a file.
// The core sees file handles only as opaque pointers; the layer that fills the
// descriptor decides what a handle is.
#ifndef QCMN_MFAL_H_
#define QCMN_MFAL_H_

#include <stdint.h>

struct QCMN_MFAL_FP;
struct QCMN_MFAL;

typedef struct QCMN_MFAL_FP *(*qcmn_mfal_open_fn)(struct QCMN_MFAL *mfal, unsigned long mode);
typedef void (*qcmn_mfal_close_fn)(struct QCMN_MFAL_FP *fp);
typedef int32_t (*qcmn_mfal_read_fn)(struct QCMN_MFAL_FP *fp, void *buf, int32_t size);
typedef int32_t (*qcmn_mfal_write_fn)(struct QCMN_MFAL_FP *fp, const void *buf, int32_t size);
typedef int32_t (*qcmn_mfal_getpos_fn)(struct QCMN_MFAL_FP *fp, int64_t *pos);
typedef int32_t (*qcmn_mfal_setpos_fn)(struct QCMN_MFAL_FP *fp, const int64_t *pos);
typedef int32_t (*qcmn_mfal_skip_fn)(struct QCMN_MFAL_FP *fp, const int64_t *distance);
typedef int32_t (*qcmn_mfal_getsize_fn)(struct QCMN_MFAL_FP *fp, int64_t *size);
typedef int32_t (*qcmn_mfal_ioctl_fn)(struct QCMN_MFAL_FP *fp, int code, void *arg);

// Fifteen pointer-sized words; the order is part of the interface.
typedef struct QCMN_MFAL {
    qcmn_mfal_open_fn open;
    qcmn_mfal_close_fn close;
    qcmn_mfal_read_fn read;
    qcmn_mfal_write_fn write;
    qcmn_mfal_getpos_fn getpos;
    qcmn_mfal_setpos_fn setpos;
    qcmn_mfal_skip_fn skip;
    qcmn_mfal_getsize_fn getsize;
    qcmn_mfal_ioctl_fn ioctl;
    void *reserved0[2];
    void *user;
    void *reserved1[3];
} QCMN_MFAL;

#ifdef __cplusplus
static_assert(sizeof(QCMN_MFAL) == 15 * sizeof(void *), "descriptor is fifteen words");
#endif

#endif  // QCMN_MFAL_H_
