// Codec codes (four-character codes, first character in the lowest byte, or
// WAVE format tags) to media types.
#ifndef QCMN_FCC2MT_H_
#define QCMN_FCC2MT_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_media_type.h"

QCMN_API qcmn_media_type qcmn_fcc2mt_aud(int32_t code);
QCMN_API qcmn_media_type qcmn_fcc2mt_vid(int32_t code);
QCMN_API qcmn_media_type qcmn_fcc2mt_sub(int32_t code);
QCMN_API qcmn_media_type qcmn_fcc2mt_drm(int32_t code);
// Audio, then video, then subtitle; unknown codes give the unknown subtitle type.
QCMN_API qcmn_media_type qcmn_fcc2mt(int32_t code);

#endif  // QCMN_FCC2MT_H_
