// The device's mapping from a codec's four-character code or WAVE format tag
// to the media type (MIME) its decoders are registered under.
#ifndef FOURCC_2_MIME_H_
#define FOURCC_2_MIME_H_

#include <stdint.h>

namespace android {

// Codes are 32-bit values. A four-character code holds its first character
// in the lowest byte ("AVC1" is 0x31435641); a WAVE format tag is a small
// number (0x55 is MPEG layer 3). Returns one of the MEDIA_MIMETYPE_* strings,
// MEDIA_MIMETYPE_UNKNOWN's for a code that is not in the table.
const char *FourCC2MIME(uint32_t fourcc);

}  // namespace android

#endif  // FOURCC_2_MIME_H_
