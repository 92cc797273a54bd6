#include "qextractorcmn/qcmn_fcc2mime.h"

#include <media/stagefright/foundation/MediaDefs.h>

namespace {

using namespace android;

// The media types the platform does not name, as variables like its own, so
// that the table refers to every type the same way.
const char *const kMimeTextSsa = QCMN_MIMETYPE_TEXT_SSA;

// First character in the lowest byte.
constexpr uint32_t fcc(const char (&s)[5]) {
    return uint32_t(uint8_t(s[0])) | uint32_t(uint8_t(s[1])) << 8 | uint32_t(uint8_t(s[2])) << 16 |
           uint32_t(uint8_t(s[3])) << 24;
}

static_assert(fcc("AVC1") == 0x31435641, "first character in the lowest byte");

struct Mapping {
    uint32_t code;
    const char *const *mime;  // the variable holding the type
};

// Codes are matched exactly, so each spelling has its own row.
//
// video
//   MPG2 mpg2                           MPEG-2 video        video/mpeg2
//   MP43                                MS MPEG-4 v3        video/divx3
//   H263 S263 h263 s263                 H.263               video/3gpp
//   AVC1 avc1 H264 X264 h264 x264       H.264 / AVC         video/avc
//   hvc1 hev1                           H.265 / HEVC        video/hevc
//   VP80                                VP8                 video/x-vnd.on2.vp8
//   VP90                                VP9                 video/x-vnd.on2.vp9
//   av01                                AV1                 video/av01
//   FMP4 fmp4 XVID xvid MP4V mp4v       MPEG-4 part 2       video/mp4v-es
// audio (WAVE format tags, then four-character codes)
//   1 (integer PCM), 3 (float PCM)      linear PCM          audio/raw
//   2                                   Microsoft ADPCM     audio/x-adpcm-ms
//   0x11                                IMA (DVI) ADPCM     audio/x-adpcm-dvi-ima
//   0x50                                MPEG layer 1/2      audio/mpeg-L2
//   0x55                                MPEG layer 3        audio/mpeg
//   0x92, 0x2000                        AC-3                audio/ac3
//   0xFF                                AAC                 audio/mp4a-latm
//   0x160, 0x161                        WMA 1 and 2         audio/x-ms-wma
//   0x6751, 0x2674F                     Vorbis              audio/vorbis
//   0xF1AC                              FLAC                audio/flac
//   ec-3                                E-AC-3              audio/eac3
//   MP4A mp4a                           AAC                 audio/mp4a-latm
//   lpcm (big-endian PCM)               linear PCM          audio/raw
//   Opus                                Opus                audio/opus
// subtitles
//   SSRT                                SubRip (UTF-8 text) application/x-subrip
//   SASS SSSA                           (Advanced) SSA      text/x-ssa
// anything else                                             unknown
const Mapping kTable[] = {
    {fcc("MPG2"), &MEDIA_MIMETYPE_VIDEO_MPEG2},
    {fcc("mpg2"), &MEDIA_MIMETYPE_VIDEO_MPEG2},
    {fcc("MP43"), &MEDIA_MIMETYPE_VIDEO_DIVX3},
    {fcc("H263"), &MEDIA_MIMETYPE_VIDEO_H263},
    {fcc("S263"), &MEDIA_MIMETYPE_VIDEO_H263},
    {fcc("h263"), &MEDIA_MIMETYPE_VIDEO_H263},
    {fcc("s263"), &MEDIA_MIMETYPE_VIDEO_H263},
    {fcc("AVC1"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("avc1"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("H264"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("X264"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("h264"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("x264"), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fcc("hvc1"), &MEDIA_MIMETYPE_VIDEO_HEVC},
    {fcc("hev1"), &MEDIA_MIMETYPE_VIDEO_HEVC},
    {fcc("VP80"), &MEDIA_MIMETYPE_VIDEO_VP8},
    {fcc("VP90"), &MEDIA_MIMETYPE_VIDEO_VP9},
    {fcc("av01"), &MEDIA_MIMETYPE_VIDEO_AV1},
    {fcc("FMP4"), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fcc("fmp4"), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fcc("XVID"), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fcc("xvid"), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fcc("MP4V"), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fcc("mp4v"), &MEDIA_MIMETYPE_VIDEO_MPEG4},

    {0x1, &MEDIA_MIMETYPE_AUDIO_RAW},
    {0x2, &MEDIA_MIMETYPE_AUDIO_MS_ADPCM},
    {0x3, &MEDIA_MIMETYPE_AUDIO_RAW},
    {0x11, &MEDIA_MIMETYPE_AUDIO_DVI_IMA_ADPCM},
    {0x50, &MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II},
    {0x55, &MEDIA_MIMETYPE_AUDIO_MPEG},
    {0x92, &MEDIA_MIMETYPE_AUDIO_AC3},
    {0xFF, &MEDIA_MIMETYPE_AUDIO_AAC},
    {0x160, &MEDIA_MIMETYPE_AUDIO_WMA},
    {0x161, &MEDIA_MIMETYPE_AUDIO_WMA},
    {0x2000, &MEDIA_MIMETYPE_AUDIO_AC3},
    {0x6751, &MEDIA_MIMETYPE_AUDIO_VORBIS},
    {0xF1AC, &MEDIA_MIMETYPE_AUDIO_FLAC},
    {0x2674F, &MEDIA_MIMETYPE_AUDIO_VORBIS},
    {fcc("ec-3"), &MEDIA_MIMETYPE_AUDIO_EAC3},
    {fcc("MP4A"), &MEDIA_MIMETYPE_AUDIO_AAC},
    {fcc("mp4a"), &MEDIA_MIMETYPE_AUDIO_AAC},
    {fcc("lpcm"), &MEDIA_MIMETYPE_AUDIO_RAW},
    {fcc("Opus"), &MEDIA_MIMETYPE_AUDIO_OPUS},

    {fcc("SSRT"), &MEDIA_MIMETYPE_TEXT_SUBRIP},
    {fcc("SASS"), &kMimeTextSsa},
    {fcc("SSSA"), &kMimeTextSsa},
};

}  // namespace

const char *qcmn_fcc2mime(uint32_t code) {
    for (const Mapping &m : kTable) {
        if (m.code == code) return *m.mime;
    }
    return QCMN_MIMETYPE_UNKNOWN;
}
