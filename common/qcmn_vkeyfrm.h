// Whether a video frame is a key frame, from its first bytes.
#ifndef QCMN_VKEYFRM_H_
#define QCMN_VKEYFRM_H_

#include <stdint.h>

#include "common/qcmn_export.h"
#include "common/qcmn_media_type.h"

// 1 for a key frame, 0 otherwise (also for codecs the test does not know).
// Never reads beyond `length` bytes.
QCMN_API int32_t qcmn_is_vkeyfrm(qcmn_media_type media_type, const uint8_t *data, int32_t length);

#endif  // QCMN_VKEYFRM_H_
