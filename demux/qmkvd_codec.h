// The track codec table: one 32-bit codec code per kept track, from its
// CodecID (and, for two CodecIDs, its CodecPrivate).
#ifndef QMKVD_CODEC_H_
#define QMKVD_CODEC_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Four-character codes keep their first character in the lowest byte.
#define QMKVD_FOURCC(a, b, c, d) \
    ((uint32_t)(uint8_t)(a) | ((uint32_t)(uint8_t)(b) << 8) | ((uint32_t)(uint8_t)(c) << 16) | \
     ((uint32_t)(uint8_t)(d) << 24))

// Sets slot->codec_type from the track's CodecID and copies it into
// format->track_codec_types[index]. Always 0.
QCMN_API int32_t qmkvd_media_info(struct qmkvd *handle, qmkvds *slot, qmkvd_format *format, int32_t index);

#endif  // QMKVD_CODEC_H_
