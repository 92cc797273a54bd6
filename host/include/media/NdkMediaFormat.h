// Host copy of the media NDK's AMediaFormat: an opaque record of named,
// typed values. Names and signatures follow the platform so plug-in sources
// build unchanged; the implementation is host/src/NdkMediaFormat.cpp.
//
// Semantics shared with the platform:
//  - a set replaces any earlier entry of the same name, whatever its type;
//  - a typed get succeeds only when the entry exists with exactly that type;
//  - strings and buffers are copied in; the pointers that getString and
//    getBuffer return belong to the format and stay valid until that entry is
//    set again or removed (clear, copy into this format, delete);
//  - toString's text belongs to the format and is valid until the next call.
#ifndef _NDK_MEDIA_FORMAT_H
#define _NDK_MEDIA_FORMAT_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <media/NdkMediaError.h>

#ifdef __cplusplus
extern "C" {
#endif

struct AMediaFormat;
typedef struct AMediaFormat AMediaFormat;

AMediaFormat *AMediaFormat_new(void);
media_status_t AMediaFormat_delete(AMediaFormat *format);

// Human-readable "name: type(value), ..." text of every entry, in the order
// the entries were first set.
const char *AMediaFormat_toString(AMediaFormat *format);

bool AMediaFormat_getInt32(AMediaFormat *format, const char *name, int32_t *out);
bool AMediaFormat_getInt64(AMediaFormat *format, const char *name, int64_t *out);
bool AMediaFormat_getFloat(AMediaFormat *format, const char *name, float *out);
bool AMediaFormat_getDouble(AMediaFormat *format, const char *name, double *out);
bool AMediaFormat_getSize(AMediaFormat *format, const char *name, size_t *out);
bool AMediaFormat_getRect(AMediaFormat *format, const char *name,
                          int32_t *left, int32_t *top, int32_t *right, int32_t *bottom);
bool AMediaFormat_getBuffer(AMediaFormat *format, const char *name, void **data, size_t *size);
bool AMediaFormat_getString(AMediaFormat *format, const char *name, const char **out);

void AMediaFormat_setInt32(AMediaFormat *format, const char *name, int32_t value);
void AMediaFormat_setInt64(AMediaFormat *format, const char *name, int64_t value);
void AMediaFormat_setFloat(AMediaFormat *format, const char *name, float value);
void AMediaFormat_setDouble(AMediaFormat *format, const char *name, double value);
void AMediaFormat_setSize(AMediaFormat *format, const char *name, size_t value);
void AMediaFormat_setRect(AMediaFormat *format, const char *name,
                          int32_t left, int32_t top, int32_t right, int32_t bottom);
// Copies the string (NUL-terminated) into the format.
void AMediaFormat_setString(AMediaFormat *format, const char *name, const char *value);
// Copies `size` bytes into the format.
void AMediaFormat_setBuffer(AMediaFormat *format, const char *name, const void *data, size_t size);

// Removes every entry.
void AMediaFormat_clear(AMediaFormat *format);
// Makes `to` an exact copy of `from` (its previous entries are dropped).
media_status_t AMediaFormat_copy(AMediaFormat *to, AMediaFormat *from);

// The platform's key names.
extern const char *AMEDIAFORMAT_KEY_AAC_DRC_ATTENUATION_FACTOR;
extern const char *AMEDIAFORMAT_KEY_AAC_DRC_BOOST_FACTOR;
extern const char *AMEDIAFORMAT_KEY_AAC_DRC_HEAVY_COMPRESSION;
extern const char *AMEDIAFORMAT_KEY_AAC_DRC_TARGET_REFERENCE_LEVEL;
extern const char *AMEDIAFORMAT_KEY_AAC_ENCODED_TARGET_LEVEL;
extern const char *AMEDIAFORMAT_KEY_AAC_MAX_OUTPUT_CHANNEL_COUNT;
extern const char *AMEDIAFORMAT_KEY_AAC_PROFILE;
extern const char *AMEDIAFORMAT_KEY_AAC_SBR_MODE;
extern const char *AMEDIAFORMAT_KEY_ALBUM;
extern const char *AMEDIAFORMAT_KEY_ALBUMART;
extern const char *AMEDIAFORMAT_KEY_ALBUMARTIST;
extern const char *AMEDIAFORMAT_KEY_ARTIST;
extern const char *AMEDIAFORMAT_KEY_AUDIO_PRESENTATION_INFO;
extern const char *AMEDIAFORMAT_KEY_AUDIO_PRESENTATION_PRESENTATION_ID;
extern const char *AMEDIAFORMAT_KEY_AUDIO_PRESENTATION_PROGRAM_ID;
extern const char *AMEDIAFORMAT_KEY_AUDIO_SESSION_ID;
extern const char *AMEDIAFORMAT_KEY_AUTHOR;
extern const char *AMEDIAFORMAT_KEY_BITRATE_MODE;
extern const char *AMEDIAFORMAT_KEY_BIT_RATE;
extern const char *AMEDIAFORMAT_KEY_BITS_PER_SAMPLE;
extern const char *AMEDIAFORMAT_KEY_CAPTURE_RATE;
extern const char *AMEDIAFORMAT_KEY_CDTRACKNUMBER;
extern const char *AMEDIAFORMAT_KEY_CHANNEL_COUNT;
extern const char *AMEDIAFORMAT_KEY_CHANNEL_MASK;
extern const char *AMEDIAFORMAT_KEY_COLOR_FORMAT;
extern const char *AMEDIAFORMAT_KEY_COLOR_RANGE;
extern const char *AMEDIAFORMAT_KEY_COLOR_STANDARD;
extern const char *AMEDIAFORMAT_KEY_COLOR_TRANSFER;
extern const char *AMEDIAFORMAT_KEY_COMPILATION;
extern const char *AMEDIAFORMAT_KEY_COMPLEXITY;
extern const char *AMEDIAFORMAT_KEY_COMPOSER;
extern const char *AMEDIAFORMAT_KEY_CREATE_INPUT_SURFACE_SUSPENDED;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_DEFAULT_IV_SIZE;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_ENCRYPTED_BYTE_BLOCK;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_ENCRYPTED_SIZES;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_IV;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_KEY;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_MODE;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_PLAIN_SIZES;
extern const char *AMEDIAFORMAT_KEY_CRYPTO_SKIP_BYTE_BLOCK;
extern const char *AMEDIAFORMAT_KEY_CSD;
extern const char *AMEDIAFORMAT_KEY_CSD_0;
extern const char *AMEDIAFORMAT_KEY_CSD_1;
extern const char *AMEDIAFORMAT_KEY_CSD_2;
extern const char *AMEDIAFORMAT_KEY_CSD_AVC;
extern const char *AMEDIAFORMAT_KEY_CSD_HEVC;
extern const char *AMEDIAFORMAT_KEY_D263;
extern const char *AMEDIAFORMAT_KEY_DATE;
extern const char *AMEDIAFORMAT_KEY_DISCNUMBER;
extern const char *AMEDIAFORMAT_KEY_DISPLAY_CROP;
extern const char *AMEDIAFORMAT_KEY_DISPLAY_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_DISPLAY_WIDTH;
extern const char *AMEDIAFORMAT_KEY_DURATION;
extern const char *AMEDIAFORMAT_KEY_ENCODER_DELAY;
extern const char *AMEDIAFORMAT_KEY_ENCODER_PADDING;
extern const char *AMEDIAFORMAT_KEY_ESDS;
extern const char *AMEDIAFORMAT_KEY_EXIF_OFFSET;
extern const char *AMEDIAFORMAT_KEY_EXIF_SIZE;
extern const char *AMEDIAFORMAT_KEY_FLAC_COMPRESSION_LEVEL;
extern const char *AMEDIAFORMAT_KEY_FRAME_COUNT;
extern const char *AMEDIAFORMAT_KEY_FRAME_RATE;
extern const char *AMEDIAFORMAT_KEY_GENRE;
extern const char *AMEDIAFORMAT_KEY_GRID_COLUMNS;
extern const char *AMEDIAFORMAT_KEY_GRID_ROWS;
extern const char *AMEDIAFORMAT_KEY_HAPTIC_CHANNEL_COUNT;
extern const char *AMEDIAFORMAT_KEY_HDR_STATIC_INFO;
extern const char *AMEDIAFORMAT_KEY_HDR10_PLUS_INFO;
extern const char *AMEDIAFORMAT_KEY_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_ICC_PROFILE;
extern const char *AMEDIAFORMAT_KEY_INTRA_REFRESH_PERIOD;
extern const char *AMEDIAFORMAT_KEY_IS_ADTS;
extern const char *AMEDIAFORMAT_KEY_IS_AUTOSELECT;
extern const char *AMEDIAFORMAT_KEY_IS_DEFAULT;
extern const char *AMEDIAFORMAT_KEY_IS_FORCED_SUBTITLE;
extern const char *AMEDIAFORMAT_KEY_IS_SYNC_FRAME;
extern const char *AMEDIAFORMAT_KEY_I_FRAME_INTERVAL;
extern const char *AMEDIAFORMAT_KEY_LANGUAGE;
extern const char *AMEDIAFORMAT_KEY_LATENCY;
extern const char *AMEDIAFORMAT_KEY_LEVEL;
extern const char *AMEDIAFORMAT_KEY_LOCATION;
extern const char *AMEDIAFORMAT_KEY_LOOP;
extern const char *AMEDIAFORMAT_KEY_LYRICIST;
extern const char *AMEDIAFORMAT_KEY_MANUFACTURER;
extern const char *AMEDIAFORMAT_KEY_MAX_BIT_RATE;
extern const char *AMEDIAFORMAT_KEY_MAX_FPS_TO_ENCODER;
extern const char *AMEDIAFORMAT_KEY_MAX_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_MAX_INPUT_SIZE;
extern const char *AMEDIAFORMAT_KEY_MAX_PTS_GAP_TO_ENCODER;
extern const char *AMEDIAFORMAT_KEY_MAX_WIDTH;
extern const char *AMEDIAFORMAT_KEY_MIME;
extern const char *AMEDIAFORMAT_KEY_MPEG_USER_DATA;
extern const char *AMEDIAFORMAT_KEY_MPEG2_STREAM_HEADER;
extern const char *AMEDIAFORMAT_KEY_OPERATING_RATE;
extern const char *AMEDIAFORMAT_KEY_PCM_BIG_ENDIAN;
extern const char *AMEDIAFORMAT_KEY_PCM_ENCODING;
extern const char *AMEDIAFORMAT_KEY_PRIORITY;
extern const char *AMEDIAFORMAT_KEY_PROFILE;
extern const char *AMEDIAFORMAT_KEY_PSSH;
extern const char *AMEDIAFORMAT_KEY_PUSH_BLANK_BUFFERS_ON_STOP;
extern const char *AMEDIAFORMAT_KEY_REPEAT_PREVIOUS_FRAME_AFTER;
extern const char *AMEDIAFORMAT_KEY_ROTATION;
extern const char *AMEDIAFORMAT_KEY_SAMPLE_RATE;
extern const char *AMEDIAFORMAT_KEY_SAR_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_SAR_WIDTH;
extern const char *AMEDIAFORMAT_KEY_SEI;
extern const char *AMEDIAFORMAT_KEY_SLICE_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_STRIDE;
extern const char *AMEDIAFORMAT_KEY_TARGET_TIME;
extern const char *AMEDIAFORMAT_KEY_TEMPORAL_LAYER_COUNT;
extern const char *AMEDIAFORMAT_KEY_TEMPORAL_LAYER_ID;
extern const char *AMEDIAFORMAT_KEY_TEMPORAL_LAYERING;
extern const char *AMEDIAFORMAT_KEY_TEXT_FORMAT_DATA;
extern const char *AMEDIAFORMAT_KEY_THUMBNAIL_CSD_HEVC;
extern const char *AMEDIAFORMAT_KEY_THUMBNAIL_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_THUMBNAIL_TIME;
extern const char *AMEDIAFORMAT_KEY_THUMBNAIL_WIDTH;
extern const char *AMEDIAFORMAT_KEY_TILE_HEIGHT;
extern const char *AMEDIAFORMAT_KEY_TILE_WIDTH;
extern const char *AMEDIAFORMAT_KEY_TIME_US;
extern const char *AMEDIAFORMAT_KEY_TITLE;
extern const char *AMEDIAFORMAT_KEY_TRACK_ID;
extern const char *AMEDIAFORMAT_KEY_TRACK_INDEX;
extern const char *AMEDIAFORMAT_KEY_VALID_SAMPLES;
extern const char *AMEDIAFORMAT_KEY_WIDTH;
extern const char *AMEDIAFORMAT_KEY_YEAR;

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // _NDK_MEDIA_FORMAT_H
