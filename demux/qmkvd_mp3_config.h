// MP3 configuration record, read from the track's first frame header.
#ifndef QMKVD_MP3_CONFIG_H_
#define QMKVD_MP3_CONFIG_H_

#include "demux/qmkvd_types.h"

// *size = 12; with a buffer, bytes 0-7 describe the first frame (format
// tag 1, frame length). 0, or -1 when 12 exceeds the entry *size.
int32_t qmkvd_mp3_config(struct qmkvd *h, int32_t index, uint8_t *buffer, int32_t *size);

#endif  // QMKVD_MP3_CONFIG_H_
