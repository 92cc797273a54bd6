// The media type (MIME) a track's codec code is decoded under, and the
// media types the plug-in announces that the platform's MediaDefs does not
// name.
#ifndef QEXTRACTORCMN_QCMN_FCC2MIME_H_
#define QEXTRACTORCMN_QCMN_FCC2MIME_H_

#include <stdint.h>

#include "common/qcmn_export.h"

// SubStation Alpha and Advanced SubStation Alpha text.
#define QCMN_MIMETYPE_TEXT_SSA "text/x-ssa"
// A video or an audio codec that has no media type of its own.
#define QCMN_MIMETYPE_VIDEO_UNKNOWN "video/unknown"
#define QCMN_MIMETYPE_AUDIO_UNKNOWN "audio/unknown"
// What qcmn_fcc2mime gives for a code it does not know.
#define QCMN_MIMETYPE_UNKNOWN "unknown"

// Codes are 32-bit values. A four-character code holds its first character
// in the lowest byte ("AVC1" is 0x31435641); a WAVE format tag is a small
// number (0x55 is MPEG layer 3). Returns one of the platform's
// MEDIA_MIMETYPE_* strings, QCMN_MIMETYPE_TEXT_SSA, or QCMN_MIMETYPE_UNKNOWN
// for a code that is not in the table.
QCMN_API const char *qcmn_fcc2mime(uint32_t code);

#endif  // QEXTRACTORCMN_QCMN_FCC2MIME_H_
