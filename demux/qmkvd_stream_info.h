// Per-track codec configuration and parameter records for the plug-in layer.
#ifndef QMKVD_STREAM_INFO_H_
#define QMKVD_STREAM_INFO_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

typedef struct qmkvd_info_vid {
    int32_t index;
    uint32_t fourcc;
    int32_t max_frame_size;
    int32_t width;
    int32_t height;
    int32_t valid;
    int32_t frame_count;
    int32_t reserved;
    uint32_t frame_rate;
    int32_t media_type;
    qmkvd_colour *colour;
} qmkvd_info_vid;

typedef struct qmkvd_info_aud {
    int32_t index;
    uint32_t fourcc;
    uint32_t reserved0;
    int32_t sample_rate;
    int32_t bits_per_sample;
    int32_t channels;
    int32_t valid;
    uint32_t reserved1;
    int32_t media_type;
    char language[4];
    int32_t name_encoding;
    int32_t name_length;
    const char *name;
    uint64_t reserved2;
    uint64_t seek_pre_roll;  // ns
    uint64_t codec_delay;    // ns
} qmkvd_info_aud;

typedef struct qmkvd_info_txt {
    int32_t index;
    uint32_t fourcc;
    int32_t valid;
    int32_t media_type;
    char language[4];
    uint32_t reserved;
    int32_t name_encoding;
    int32_t name_length;
    const char *name;
} qmkvd_info_txt;

// Codec configuration of track `index`: with `buffer` null, *size gets the
// length; else the bytes are written (0, or -1 when they exceed *size).
QCMN_API int32_t qmkvd_get_format(struct qmkvd *handle, int32_t index, uint8_t *buffer, int32_t *size);
QCMN_API int32_t qmkvd_get_info_vid(struct qmkvd *handle, int32_t index, qmkvd_info_vid *info);
QCMN_API int32_t qmkvd_get_info_aud(struct qmkvd *handle, int32_t index, qmkvd_info_aud *info);
QCMN_API int32_t qmkvd_get_info_txt(struct qmkvd *handle, int32_t index, qmkvd_info_txt *info);

QCMN_API int32_t qmkvds_get_format(qmkvds *stream, uint8_t *buffer, int32_t *size);
QCMN_API int32_t qmkvds_get_info_vid(qmkvds *stream, qmkvd_info_vid *info);
QCMN_API int32_t qmkvds_get_info_aud(qmkvds *stream, qmkvd_info_aud *info);
QCMN_API int32_t qmkvds_get_info_txt(qmkvds *stream, qmkvd_info_txt *info);

// AAC sampling-frequency index of a rate, or -1.
QCMN_API int32_t get_aac_frequency_index(int32_t rate);

#endif  // QMKVD_STREAM_INFO_H_
