// The vendor's extra AMediaFormat keys. Declared like the platform's own
// AMEDIAFORMAT_KEY_* constants: C linkage, exported, mutable pointers to
// constant strings.
#ifndef QEXTRACTORCMN_EXTMEDIAFORMATDEF_H_
#define QEXTRACTORCMN_EXTMEDIAFORMATDEF_H_

#include "common/qcmn_export.h"

// With `extern` each line stays a declaration in C and C++ alike.
#define QCMN_KEY_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// int32: the track's codec code (four-character code or WAVE format tag).
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_FOURCC;
// int32: the codec code of a track the device cannot play, for logging.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_TRACK_FOURCC;
// int32: per-track status, 0 playable or -1001..-1004.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_ERROR_TYPE;
// string: why the track will or will not play, in words.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_TRACK_STATUS;
// int32: 1 when the track's status should be logged.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_ERROR_LOGGABLE;
// buffer: the track's name bytes.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_TRACK_NAME;
// int32: MPEG-4 part 2 data partitioning, 1/0.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_IS_MP4_DP;
// int64: average key-frame interval in microseconds.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL;
// int32: 1 when frames may arrive out of presentation order.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING;
// string: the application that wrote the file.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_WRITER;
// string: "<key>=<n>:" per text metadata item, n its character encoding type.
extern QCMN_KEY_EXPORT const char *AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES;

#ifdef __cplusplus
}
#endif

#endif  // QEXTRACTORCMN_EXTMEDIAFORMATDEF_H_
