// Codec codes to media types: one sorted table per media kind, searched by
// bisection. The tables are written in a readable order and sorted at compile
// time, so adding an entry cannot break the search.
#include "common/qcmn_fcc2mt.h"

#include <stddef.h>

namespace {

struct Entry {
    int32_t code;
    qcmn_media_type type;
};

// Four characters, first one in the lowest byte, as codec codes are stored.
constexpr int32_t fcc(const char (&s)[5]) {
    return (int32_t)((uint32_t)(uint8_t)s[0] | (uint32_t)(uint8_t)s[1] << 8 | (uint32_t)(uint8_t)s[2] << 16 |
                     (uint32_t)(uint8_t)s[3] << 24);
}

template <size_t N>
struct Table {
    Entry e[N];
};

template <size_t N>
constexpr Table<N> sorted(const Entry (&in)[N]) {
    Table<N> t{};
    for (size_t i = 0; i < N; ++i) t.e[i] = in[i];
    for (size_t i = 1; i < N; ++i) {
        Entry x = t.e[i];
        size_t j = i;
        for (; j > 0 && t.e[j - 1].code > x.code; --j) t.e[j] = t.e[j - 1];
        t.e[j] = x;
    }
    return t;
}

// A code listed twice would make the answer depend on the sort.
template <size_t N>
constexpr bool strictly_ascending(const Table<N> &t) {
    for (size_t i = 1; i < N; ++i)
        if (t.e[i - 1].code >= t.e[i].code) return false;
    return true;
}

template <size_t N>
qcmn_media_type find(const Table<N> &t, int32_t code, qcmn_media_type unknown) {
    size_t lo = 0, hi = N;
    while (lo < hi) {
        const size_t mid = lo + (hi - lo) / 2;
        if (t.e[mid].code < code)
            lo = mid + 1;
        else
            hi = mid;
    }
    return (lo < N && t.e[lo].code == code) ? t.e[lo].type : unknown;
}

constexpr Entry kAudioList[] = {
    {1, QCMN_MT_AUDIO_PCM},
    {2, QCMN_MT_AUDIO_MS_ADPCM},
    {6, QCMN_MT_AUDIO_G711_ALAW},
    {7, QCMN_MT_AUDIO_G711_MULAW},
    {0x11, QCMN_MT_AUDIO_IMA_ADPCM},
    {0x50, QCMN_MT_AUDIO_MPEG},
    {0x55, QCMN_MT_AUDIO_MP3},
    {0xFF, QCMN_MT_AUDIO_AAC},
    {0x160, QCMN_MT_AUDIO_WMA},
    {0x161, QCMN_MT_AUDIO_WMA},
    {0x162, QCMN_MT_AUDIO_WMA_PRO},
    {0x163, QCMN_MT_AUDIO_WMA_LOSSLESS},
    {0x2000, QCMN_MT_AUDIO_AC3},
    {0x2001, QCMN_MT_AUDIO_DTS},
    {0xF1AC, QCMN_MT_AUDIO_FLAC},
    {0x2674F, QCMN_MT_AUDIO_VORBIS},
    {fcc("aac "), QCMN_MT_AUDIO_AAC},
    {fcc("mp4a"), QCMN_MT_AUDIO_AAC},
    {fcc("ac-3"), QCMN_MT_AUDIO_AC3},
    {fcc("ec-3"), QCMN_MT_AUDIO_EAC3},
    {fcc("ac-4"), QCMN_MT_AUDIO_AC4},
    {fcc("DSD "), QCMN_MT_AUDIO_DSD},
    {fcc("fLaC"), QCMN_MT_AUDIO_FLAC},
    {fcc("samr"), QCMN_MT_AUDIO_AMR_NB},
    {fcc("sawb"), QCMN_MT_AUDIO_AMR_WB},
    {fcc("sqcp"), QCMN_MT_AUDIO_QCELP},
    {fcc("dqcp"), QCMN_MT_AUDIO_QCELP},
    {fcc("evrc"), QCMN_MT_AUDIO_EVRC},
    {fcc("sipr"), QCMN_MT_AUDIO_SIPR},
    {fcc("cook"), QCMN_MT_AUDIO_COOK},
    {fcc("Opus"), QCMN_MT_AUDIO_OPUS},
};

constexpr Entry kVideoList[] = {
    {fcc("MP4V"), QCMN_MT_VIDEO_MPEG4},
    {fcc("mp4v"), QCMN_MT_VIDEO_MPEG4},
    {fcc("FMP4"), QCMN_MT_VIDEO_MPEG4},
    {fcc("DIVX"), QCMN_MT_VIDEO_MPEG4},
    {fcc("divx"), QCMN_MT_VIDEO_MPEG4},
    {fcc("XVID"), QCMN_MT_VIDEO_MPEG4},
    {fcc("xvid"), QCMN_MT_VIDEO_MPEG4},
    {fcc("DX50"), QCMN_MT_VIDEO_MPEG4},
    {fcc("dx50"), QCMN_MT_VIDEO_MPEG4},
    {fcc("DIV4"), QCMN_MT_VIDEO_MPEG4},
    {fcc("div4"), QCMN_MT_VIDEO_MPEG4},
    {fcc("M4S2"), QCMN_MT_VIDEO_MPEG4},
    {fcc("m4s2"), QCMN_MT_VIDEO_MPEG4},
    {fcc("H263"), QCMN_MT_VIDEO_H263},
    {fcc("h263"), QCMN_MT_VIDEO_H263},
    {fcc("S263"), QCMN_MT_VIDEO_H263},
    {fcc("s263"), QCMN_MT_VIDEO_H263},
    {fcc("d263"), QCMN_MT_VIDEO_H263},
    {fcc("AVC1"), QCMN_MT_VIDEO_H264},
    {fcc("avc1"), QCMN_MT_VIDEO_H264},
    {fcc("avcC"), QCMN_MT_VIDEO_H264},
    {fcc("H264"), QCMN_MT_VIDEO_H264},
    {fcc("h264"), QCMN_MT_VIDEO_H264},
    {fcc("X264"), QCMN_MT_VIDEO_H264},
    {fcc("x264"), QCMN_MT_VIDEO_H264},
    {fcc("M264"), QCMN_MT_VIDEO_H264},
    {fcc("WMV1"), QCMN_MT_VIDEO_WMV7},
    {fcc("wmv1"), QCMN_MT_VIDEO_WMV7},
    {fcc("WMV2"), QCMN_MT_VIDEO_WMV8},
    {fcc("wmv2"), QCMN_MT_VIDEO_WMV8},
    {fcc("WMV3"), QCMN_MT_VIDEO_WMV9},
    {fcc("wmv3"), QCMN_MT_VIDEO_WMV9},
    {fcc("DIV3"), QCMN_MT_VIDEO_DIVX3},
    {fcc("div3"), QCMN_MT_VIDEO_DIVX3},
    {fcc("FLV1"), QCMN_MT_VIDEO_SORENSON},
    {fcc("RV10"), QCMN_MT_VIDEO_RV1},
    {fcc("RV20"), QCMN_MT_VIDEO_RV2},
    {fcc("RV30"), QCMN_MT_VIDEO_RV3},
    {fcc("RV40"), QCMN_MT_VIDEO_RV4},
    {fcc("MP43"), QCMN_MT_VIDEO_MP43},
    {fcc("mp43"), QCMN_MT_VIDEO_MP43},
    {fcc("WVC1"), QCMN_MT_VIDEO_VC1},
    {fcc("wvc1"), QCMN_MT_VIDEO_VC1},
    {fcc("vc-1"), QCMN_MT_VIDEO_VC1},
    {fcc("VP80"), QCMN_MT_VIDEO_VP8},
    {fcc("hev1"), QCMN_MT_VIDEO_HEVC},
    {fcc("hvc1"), QCMN_MT_VIDEO_HEVC},
    {fcc("hvcC"), QCMN_MT_VIDEO_HEVC},
    {fcc("smhC"), QCMN_MT_VIDEO_HEVC},
    {fcc("VP90"), QCMN_MT_VIDEO_VP9},
    {fcc("av01"), QCMN_MT_VIDEO_AV1},
    {fcc("av1C"), QCMN_MT_VIDEO_AV1},
};

constexpr Entry kSubtitleList[] = {
    {fcc("SSRT"), QCMN_MT_SUBTITLE_SRT},
    {fcc("tx3g"), QCMN_MT_SUBTITLE_3GPP},
    {fcc("TX3G"), QCMN_MT_SUBTITLE_3GPP},
    {fcc("sbtl"), QCMN_MT_SUBTITLE_3GPP},
    {fcc("SBTL"), QCMN_MT_SUBTITLE_3GPP},
    {fcc("SASS"), QCMN_MT_SUBTITLE_ASS},
    {fcc("SSSA"), QCMN_MT_SUBTITLE_SSA},
};

constexpr Entry kDrmList[] = {
    {fcc("DIVX"), QCMN_MT_DRM_DIVX},
    {fcc("divx"), QCMN_MT_DRM_DIVX},
};

constexpr auto kAudio = sorted(kAudioList);
constexpr auto kVideo = sorted(kVideoList);
constexpr auto kSubtitle = sorted(kSubtitleList);
constexpr auto kDrm = sorted(kDrmList);

static_assert(strictly_ascending(kAudio), "audio table lists a code twice");
static_assert(strictly_ascending(kVideo), "video table lists a code twice");
static_assert(strictly_ascending(kSubtitle), "subtitle table lists a code twice");
static_assert(strictly_ascending(kDrm), "DRM table lists a code twice");

}  // namespace

qcmn_media_type qcmn_fcc2mt_aud(int32_t code) { return find(kAudio, code, QCMN_MT_AUDIO_UNKNOWN); }

qcmn_media_type qcmn_fcc2mt_vid(int32_t code) { return find(kVideo, code, QCMN_MT_VIDEO_UNKNOWN); }

qcmn_media_type qcmn_fcc2mt_sub(int32_t code) { return find(kSubtitle, code, QCMN_MT_SUBTITLE_UNKNOWN); }

qcmn_media_type qcmn_fcc2mt_drm(int32_t code) { return find(kDrm, code, QCMN_MT_DRM_UNKNOWN); }

qcmn_media_type qcmn_fcc2mt(int32_t code) {
    qcmn_media_type t = qcmn_fcc2mt_aud(code);
    if (t != QCMN_MT_AUDIO_UNKNOWN) return t;
    t = qcmn_fcc2mt_vid(code);
    if (t != QCMN_MT_VIDEO_UNKNOWN) return t;
    t = qcmn_fcc2mt_sub(code);
    if (t != QCMN_MT_SUBTITLE_UNKNOWN) return t;
    // The video table already claims both DivX spellings, so this never fires;
    // it stays so that the combined lookup keeps its established order.
    t = qcmn_fcc2mt_drm(code);
    if (t != QCMN_MT_DRM_UNKNOWN) return t;
    // Anything unrecognised reports as an unknown subtitle.
    return QCMN_MT_SUBTITLE_UNKNOWN;
}
