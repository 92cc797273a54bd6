// The demuxer instance: opening a Matroska file, its summary, and release.
#ifndef QMKVD_H_
#define QMKVD_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Result codes shared by the core's calls.
enum {
    QMKVD_OK = 0,
    QMKVD_END_OF_STREAM = 1,
    QMKVD_ERR_READ = -1,
    QMKVD_ERR_NOT_OPEN = -2,
    QMKVD_ERR_IMPOSSIBLE = -3,
    QMKVD_ERR_IO = -4,
    QMKVD_ERR_HEADER = -6,
    QMKVD_ERR_ARGUMENT = -7,
    QMKVD_ERR_BUFFER = -8,
};

// Bit of the open-parameter word: take every track's times from its blocks.
#define QMKVD_OPEN_NO_DTS 1u

// Opens the file behind `mfal`. Returns the handle, or null with *error_out
// set to -4 (file open failed), -8 (no memory), -6 (header parse failed)
// or -2 (no usable track). `format` is zeroed and filled.
QCMN_API struct qmkvd *qmkvd_create(QCMN_MFAL *mfal, const uint32_t *open_params, qmkvd_format *format,
                                    int32_t *error_out);
QCMN_API int32_t qmkvd_header_parse(struct qmkvd *inst);
QCMN_API void qmkvd_delete(struct qmkvd *handle);

// Audio codecs whose blocks are delivered whole (several frames per buffer)
// rather than one laced frame at a time.
bool qmkvd_support_lacing(uint32_t codec_type);

#endif  // QMKVD_H_
