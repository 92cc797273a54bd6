// The common extractor helpers the plug-in calls for codec configuration
// and device capabilities: video configuration parsing, the device's
// multimedia capabilities, and AAC configuration parsing. Plain C
// functions with C linkage; none of them throws, and every read stays
// within the caller's `size` bytes.
#ifndef QEXTRACTORCMN_QEXTRACTORCMN_H_
#define QEXTRACTORCMN_QEXTRACTORCMN_H_

#include <stddef.h>
#include <stdint.h>

#include "common/qcmn_export.h"

// ---------------------------------------------------------------------------
// Video configuration

// Results of qvid_config_parser.
#define QVID_CFG_OK 0              // configured; the output record is filled
#define QVID_CFG_NEED_MORE 1       // no sequence-level header in the input yet
#define QVID_CFG_ERR_MALFORMED (-1)  // a header is present but broken or cut short
#define QVID_CFG_ERR_ARG (-2)      // null record, or null data with a non-zero size

typedef struct qvid_config_in {
    const uint8_t *data;  // codec-private data or one whole frame
    uint32_t size;        // bytes at data
    uint32_t fourcc;      // four-character code, first character in the lowest byte
    uint32_t reserved[4]; // zero
} qvid_config_in;

// Zero-filled by the caller; written only when the result is QVID_CFG_OK.
// Fields the codec does not carry stay 0.
typedef struct qvid_config_out {
    int32_t width;             // byte 0: displayed width (cropping applied)
    int32_t height;            // byte 4: displayed height
    int32_t profile;           // byte 8: the codec's own profile number
    int32_t level;             // byte 12: the codec's own level number
    int32_t bit_depth;         // byte 16: luma bit depth
    int32_t chroma_format;     // byte 20: 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4
    int32_t data_partitioned;  // byte 24: MPEG-4 part 2 data partitioning (1/0)
    int32_t interlaced;        // byte 28: field or frame/field coding possible (1/0)
    int32_t reserved[8];
} qvid_config_out;

// The caller reads the output at fixed byte offsets.
#if defined(__cplusplus)
#define QCMN_LAYOUT_ASSERT static_assert
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QCMN_LAYOUT_ASSERT _Static_assert
#endif
#ifdef QCMN_LAYOUT_ASSERT
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_out, width) == 0, "width at byte 0");
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_out, height) == 4, "height at byte 4");
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_out, data_partitioned) == 24, "data partitioning at byte 24");
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_in, data) == 0, "data pointer first");
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_in, size) == sizeof(void *), "size after the pointer");
QCMN_LAYOUT_ASSERT(offsetof(qvid_config_in, fourcc) == sizeof(void *) + 4, "code after the size");
#endif

// Parses the sequence-level header of `in->data`, which is either the
// track's codec-private data or one frame of the track:
//   AVC:    start-code stream, avcC record, or 4-byte length-prefixed NAL units (SPS)
//   HEVC:   start-code stream, hvcC record, or 4-byte length-prefixed NAL units (SPS)
//   MPEG-4 part 2: VOS/VO/VOL headers (VOL), or a short-header (H.263) picture
//   MPEG-2: sequence header and sequence extension
//   H.263:  picture header, standard and custom (PLUSPTYPE) source formats
//   AV1:    av1C record with configOBUs, or an OBU stream (sequence header OBU)
//   VP9:    uncompressed header of a key frame or intra-only frame
//   VP8:    key-frame header
// A code it has no parser for (MP43, or any code it does not know) gives
// QVID_CFG_OK with width and height 0: the caller keeps its own dimensions.
QCMN_API int32_t qvid_config_parser(const qvid_config_in *in, qvid_config_out *out);

// ---------------------------------------------------------------------------
// Device multimedia capabilities

#define QVID_MMSPEC_QUERY_SUPPORTED 100  // out: int32_t, 1 supported / 0 not
#define QVID_MMSPEC_QUERY_MAX_DIMS 101   // out: qvid_mm_max_dims
#define QVID_MMSPEC_OK 0
#define QVID_MMSPEC_ERR_ARG (-1)            // null output or output too small
#define QVID_MMSPEC_ERR_QUERY (-2)          // unknown query code
#define QVID_MMSPEC_ERR_NOT_SUPPORTED (-109)  // no decoder for the code

typedef struct qvid_mm_max_dims {
    int32_t landscape_width;
    int32_t landscape_height;
    int32_t portrait_width;
    int32_t portrait_height;
} qvid_mm_max_dims;

// Answers `query` for the video code `fourcc` from the device's codec list
// (the platform's media_codecs.xml, or the list named by the environment
// variable QMKV_CODEC_LIST), or the compiled-in default without a usable
// list (see qextractorcmn/README.md).
//   100: writes 1 when the device decodes the codec and returns 0; for a
//        codec it knows but cannot decode writes 0 and returns 0; for a
//        code that is no known video codec writes 0 and returns -109.
//   101: writes the four maximum dimensions and returns 0; -109 (nothing
//        written) when the codec is not decoded.
QCMN_API int32_t qvid_get_mm_spec(int32_t query, uint32_t fourcc, void *out, uint32_t out_size);

// ---------------------------------------------------------------------------
// AAC configuration

#define QAUD_CFG_OK 0
#define QAUD_CFG_ERR_MALFORMED (-1)    // broken or cut-short configuration
#define QAUD_CFG_ERR_ARG (-2)          // null record or no data
#define QAUD_CFG_ERR_UNSUPPORTED (-3)  // the tag is not an AAC tag

typedef struct qaud_config_in {
    const uint8_t *data;  // MPEG-4 AudioSpecificConfig (an ADTS header is accepted too)
    uint32_t size;
    uint32_t tag;         // 0xFF, "mp4a", "MP4A", "aac ", or 0 for "AAC, unspecified"
} qaud_config_in;

// Zero-filled by the caller; written only when the result is QAUD_CFG_OK.
typedef struct qaud_config_out {
    int32_t profile;          // byte 0: MediaCodecInfo.CodecProfileLevel AACObject*
                              //   value: 29 with PS, 5 with SBR, else the object type
    int32_t sample_rate;      // the core coder's sampling frequency
    int32_t channels;         // 0 when the configuration does not say
    int32_t object_type;      // the core audio object type (escape resolved)
    int32_t ext_object_type;  // 5 (SBR) or 29 (PS) when signalled, else 0
    int32_t ext_sample_rate;  // SBR output sampling frequency, else 0
    int32_t sbr_present;      // 1/0
    int32_t ps_present;       // 1/0
    int32_t frame_length;     // samples per frame: 1024/960, 512/480 (LD, ELD), 0 unknown
    int32_t reserved[7];
} qaud_config_out;

#ifdef QCMN_LAYOUT_ASSERT
QCMN_LAYOUT_ASSERT(offsetof(qaud_config_out, profile) == 0, "profile first");
#endif

QCMN_API int32_t qaud_config_parser(const qaud_config_in *in, qaud_config_out *out);

// ---------------------------------------------------------------------------
// Why a configuration is malformed

// What the last qvid_config_parser or qaud_config_parser call on the calling
// thread found wrong when it returned -1, in a few words ("AVC SPS cut
// short"); null after any other result. The string is static.
QCMN_API const char *qcmn_config_error(void);

#endif  // QEXTRACTORCMN_QEXTRACTORCMN_H_
