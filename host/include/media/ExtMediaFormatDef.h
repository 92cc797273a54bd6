// Extra AMediaFormat keys of the device vendor's media-format extension
// library (libextmediaformatdef). The device supplies that closed library;
// the host defines the same names here (host/src/ExtMediaFormatDef.cpp) with
// strings of its own choosing, which is all a plug-in may rely on: it refers
// to the keys by name only.
#ifndef EXT_MEDIA_FORMAT_DEF_H_
#define EXT_MEDIA_FORMAT_DEF_H_

#ifdef __cplusplus
extern "C" {
#endif

extern const char *AMEDIAFORMAT_KEY_FOURCC;                  // int32: the codec's four-character code or tag
extern const char *AMEDIAFORMAT_KEY_TRACK_FOURCC;            // int32: the code of a track that cannot be played
extern const char *AMEDIAFORMAT_KEY_ERROR_TYPE;              // int32: why a track cannot be played (0: it can)
extern const char *AMEDIAFORMAT_KEY_ERROR_LOGGABLE;          // int32: 1 when the error should be reported
extern const char *AMEDIAFORMAT_KEY_TRACK_NAME;              // buffer: the track's name as stored in the file
extern const char *AMEDIAFORMAT_KEY_IS_MP4_DP;               // int32: MPEG-4 part 2 data partitioning in use
extern const char *AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL;    // int64: mean distance between key frames, us
extern const char *AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING;  // int32: decoder may reorder frames
extern const char *AMEDIAFORMAT_KEY_WRITER;                  // string: the writer tag
extern const char *AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES;     // string: "key=N:" per text tag

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // EXT_MEDIA_FORMAT_DEF_H_
