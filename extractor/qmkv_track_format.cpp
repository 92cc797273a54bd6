// The extractor's one-time initialisation: the demuxer, then every track
// described as an AMediaFormat, playable or not.
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <android-base/properties.h>
#include <android/binder_ibinder.h>
#include <android/log.h>
#include <media/stagefright/foundation/ColorUtils.h>
#include <media/stagefright/foundation/MediaDefs.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "extractor/qmkv_extractor.h"
#include "extractor/qmkv_track_status.h"
#include "qextractorcmn/ExtMediaFormatDef.h"
#include "qextractorcmn/qcmn_fcc2mime.h"
#include "qextractorcmn/qextractorcmn.h"

namespace android {

namespace {

const char kTag[] = "QMKVExtractorSO";

// Maximum input sizes by what the decoder may be handed.
const int32_t kVideoInputHd = 0x180000;
const int32_t kVideoInputUhd = 0x600000;
const int32_t kVideoInputLarger = 0xF00000;
const int64_t kAreaHd = 1920 * 1088;
const int64_t kAreaUhd = 3840 * 2160;
const int32_t kAudioInput = 0x80000;
const int32_t kTextInput = 0x800;
const int32_t kProbeFrames = 100;
const uid_t kFloatPcmUid = 1013;

constexpr uint32_t fcc(const char (&s)[5]) { return QMKVD_FOURCC(s[0], s[1], s[2], s[3]); }

const uint32_t kVideoWhitelist[] = {
    fcc("MPG2"), fcc("mpg2"), fcc("MP43"), fcc("H263"), fcc("S263"), fcc("h263"), fcc("s263"), fcc("AVC1"),
    fcc("avc1"), fcc("hvc1"), fcc("hev1"), fcc("VP80"), fcc("VP90"), fcc("av01"), fcc("H264"), fcc("X264"),
    fcc("h264"), fcc("x264"), fcc("FMP4"), fcc("fmp4"), fcc("XVID"), fcc("xvid"), fcc("MP4V"), fcc("mp4v"),
};
const uint32_t kAudioWhitelist[] = {
    1, 2, 3, 0x11, 0x50, 0x55, 0x92, 0xFF, 0x160, 0x161, 0x2000, 0x6751, 0xF1AC, 0x2674F,
    fcc("ec-3"), fcc("MP4A"), fcc("mp4a"), fcc("lpcm"), fcc("Opus"),
};
const uint32_t kTextWhitelist[] = {0x41535353, 0x53534153, 0x54525353};

template <size_t N>
bool listed(const uint32_t (&list)[N], uint32_t code) {
    for (uint32_t c : list)
        if (c == code) return true;
    return false;
}

// The track's codec-private data (as the demuxer presents it), read the
// two-step way into a buffer allocated without throwing.
struct CodecPrivate {
    uint8_t *data = nullptr;
    int32_t size = 0;
    ~CodecPrivate() { free(data); }
    // false when the data exists but cannot be read
    bool read(qmkvd *h, int32_t index) {
        int32_t n = 0;
        if (qmkvd_get_format(h, index, nullptr, &n) != 0 || n < 1) return true;
        data = static_cast<uint8_t *>(malloc((size_t)n));
        if (data == nullptr) return true;  // the step that needed it is skipped
        size = n;
        if (qmkvd_get_format(h, index, data, &size) != 0) return false;
        return true;
    }
};

bool isUnknownMime(const char *mime) { return strcasecmp(mime, QCMN_MIMETYPE_UNKNOWN) == 0; }

// The configuration parser's own words for a configuration it rejected.
const char *parserReason() {
    const char *why = qcmn_config_error();
    return why != nullptr ? why : "the configuration parser rejects it";
}

int32_t fitsInt32(uint64_t v) { return v <= INT32_MAX ? (int32_t)v : 2; }

uint16_t scaled(float v, float scale) { return (uint16_t)(v * scale + 0.5f); }

bool inUnit(const qmkvd_chromaticity *c) { return c != nullptr && c->x >= 0 && c->x <= 1 && c->y >= 0 && c->y <= 1; }

float floatOf(uint32_t bits) {
    float f;
    memcpy(&f, &bits, sizeof(f));
    return f;
}

}  // namespace

// Builds one track's format; the extractor's friend, so that the branches
// stay small.
class QMKVTrackMapper {
public:
    QMKVTrackMapper(QMKVExtractor *ex, int32_t index) : mEx(ex), mDSF(ex->mDSF.get()), mIndex(index) {}

    int32_t run(int32_t *vi, int32_t *ai, int32_t *ti);

private:
    void videoBranch(int32_t *vi);
    void configureVideo(qmkvd_info_vid *info);
    void checkCapability(const qmkvd_info_vid *info);
    void videoKeys(AMediaFormat *meta, qmkvd_info_vid *info);
    void videoExtras(AMediaFormat *meta, const qmkvd_info_vid *info);
    void audioBranch(int32_t *ai);
    void audioKeys(AMediaFormat *meta, qmkvd_info_aud *info);
    void audioCsd(AMediaFormat *meta, const qmkvd_info_aud *info);
    void textBranch(int32_t *ti);
    void textKeys(AMediaFormat *meta, const qmkvd_info_txt *info);

    QMKVExtractor *mEx;
    QMKVDSF *mDSF;
    int32_t mIndex;
    int32_t mType = 0;
    int32_t mStatus = QMKV_TRACK_OK;
    bool mLoggable = false;
    uint32_t mCode = 0;
    int32_t mMaxInputSize = kVideoInputHd;
    int32_t mIsMp4Dp = 0;
    int32_t mAacProfile = -1;
    bool mPrivateRead = false;
    CodecPrivate mPrivate;
    qmkvd_info_vid *mVid = nullptr;
    qmkvd_info_aud *mAud = nullptr;
    qmkvd_info_txt *mTxt = nullptr;
    TrackFindings mFound;
};

// --- video -------------------------------------------------------------

void QMKVTrackMapper::videoBranch(int32_t *vi) {
    qmkvd_info_vid *info = &mDSF->mVidInfo[*vi];
    if (qmkvd_get_info_vid(mDSF->mHandle, mIndex, info) != 0) {
        mStatus = QMKV_TRACK_UNDESCRIBED;
        return;
    }
    (*vi)++;
    mVid = info;
    mEx->mHasVideo = true;
    mCode = info->fourcc;
    if (!listed(kVideoWhitelist, mCode)) {
        mStatus = QMKV_TRACK_UNSUPPORTED;
        mLoggable = true;
        mMaxInputSize = kVideoInputHd;
        return;
    }
    configureVideo(info);
    if (mStatus == QMKV_TRACK_OK) checkCapability(info);
}

void QMKVTrackMapper::configureVideo(qmkvd_info_vid *info) {
    if (mCode == fcc("VP80")) return;
    mPrivateRead = true;
    if (!mPrivate.read(mDSF->mHandle, mIndex)) {
        mStatus = QMKV_TRACK_UNDESCRIBED;
        return;
    }
    if (mCode == fcc("VP90")) return;

    auto parse = [&](const uint8_t *data, int32_t size) {
        qvid_config_in in = {};
        in.data = data;
        in.size = (uint32_t)size;
        in.fourcc = mCode;
        qvid_config_out out = {};
        const int32_t r = qvid_config_parser(&in, &out);
        if (r == 0) {
            if (out.width != 0 && out.height != 0) {
                info->width = out.width;
                info->height = out.height;
            }
            mIsMp4Dp = out.data_partitioned;
        }
        return r;
    };
    if (mPrivate.size >= 1) {
        const int32_t r = parse(mPrivate.data, mPrivate.size);
        if (r != 0) {
            mStatus = QMKV_TRACK_BAD_CONFIG;
            mFound.badConfig = r < 0 ? parserReason() : "the codec private data holds no sequence header";
            mMaxInputSize = kVideoInputHd;
        }
        return;
    }
    // No configuration in the container: look for it in the first frames.
    int32_t err = 0;
    qmkvds *s = qmkvds_open(mDSF->mHandle, mIndex, &err);
    if (s == nullptr) {
        mStatus = QMKV_TRACK_UNDESCRIBED;
        return;
    }
    mStatus = QMKV_TRACK_BAD_CONFIG;
    mFound.badConfig = "none of the first 100 frames holds a sequence header";
    uint8_t *frame = static_cast<uint8_t *>(malloc(kVideoInputHd));
    for (int32_t n = 0; frame != nullptr && n < kProbeFrames; ++n) {
        uint32_t size = 0;
        int64_t pts, end;
        uint32_t key;
        if (qmkvds_get_frm(s, frame, kVideoInputHd, &size, &pts, &end, &key) != 0) break;
        const int32_t r = parse(frame, (int32_t)size);
        if (r == 0) {
            mStatus = QMKV_TRACK_OK;
            break;
        }
        if (r < 0) {
            mFound.badConfig = parserReason();
            break;
        }
    }
    free(frame);
    qmkvds_close(s);
    if (mStatus != QMKV_TRACK_OK) mMaxInputSize = kVideoInputHd;
}

void QMKVTrackMapper::checkCapability(const qmkvd_info_vid *info) {
    int32_t supported = 0;
    const int32_t r = qvid_get_mm_spec(100, mCode, &supported, sizeof(supported));
    if (r == -109 || (r >= 0 && supported == 0)) {
        mStatus = QMKV_TRACK_UNSUPPORTED;
        mFound.noDecoder = true;
        mLoggable = true;
        mMaxInputSize = kVideoInputHd;
        return;
    }
    // Landscape width and height, then portrait; overwritten by the device.
    int32_t limits[4] = {1920, 1088, 1088, 1920};
    mStatus = qvid_get_mm_spec(101, mCode, limits, sizeof(limits));
    const int64_t w = info->width, h = info->height;
    const int64_t limit = w < h ? (int64_t)limits[2] * limits[3] : (int64_t)limits[0] * limits[1];
    const int64_t area = w * h;
    if (limit < area) {
        mStatus = QMKV_TRACK_TOO_LARGE;
        mFound.limitWidth = w < h ? limits[2] : limits[0];
        mFound.limitHeight = w < h ? limits[3] : limits[1];
        mMaxInputSize = kVideoInputHd;
    } else if (area <= kAreaHd) {
        mMaxInputSize = kVideoInputHd;
    } else if (area <= kAreaUhd) {
        mMaxInputSize = kVideoInputUhd;
    } else {
        mMaxInputSize = kVideoInputLarger;
    }
}

void QMKVTrackMapper::videoKeys(AMediaFormat *meta, qmkvd_info_vid *info) {
    const char *mime = qcmn_fcc2mime(mCode);
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, isUnknownMime(mime) ? QCMN_MIMETYPE_VIDEO_UNKNOWN : mime);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FOURCC, (int32_t)mCode);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_WIDTH, info->width);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_HEIGHT, info->height);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, mMaxInputSize);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, mDSF->mFormat.duration / 10);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_DISPLAY_WIDTH, info->width);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_DISPLAY_HEIGHT, info->height);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FRAME_RATE, (int32_t)info->frame_rate);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_IS_MP4_DP, mIsMp4Dp);
    if (mStatus == QMKV_TRACK_OK) videoExtras(meta, info);
}

void QMKVTrackMapper::videoExtras(AMediaFormat *meta, const qmkvd_info_vid *info) {
    // Average key-frame interval from the cue index.
    uint32_t size = 0, count = 0;
    if (qmkvd_get_idx_table(mDSF->mHandle, mIndex, nullptr, (uint32_t)mMaxInputSize, &size, &count) == 0) {
        qmkvd_idx_entry *table = static_cast<qmkvd_idx_entry *>(malloc(size > 0 ? size : 1));
        if (table != nullptr &&
            qmkvd_get_idx_table(mDSF->mHandle, mIndex, table, size, &size, &count) == 0) {
            const uint64_t entries = size / sizeof(qmkvd_idx_entry);
            const int64_t interval = entries > 0 ? (int64_t)((uint64_t)mDSF->mFormat.duration / entries) / 10 : 0;
            AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL, interval);
        }
        free(table);
    }

    int32_t reported = 0;
    if (mPrivateRead && mPrivate.data != nullptr &&
        qmkvd_get_format(mDSF->mHandle, mIndex, nullptr, &reported) == 0 && reported > 0) {
        const uint8_t *p = mPrivate.data;
        const int32_t n = mPrivate.size;
        if (strcasecmp(qcmn_fcc2mime(mCode), MEDIA_MIMETYPE_VIDEO_AVC) == 0) {
            // Parameter sets in start-code form: SPS (and the like) before
            // the first PPS go to csd-0, the PPS onwards to csd-1.
            for (int32_t i = 0; n - i > 4;) {
                if (p[i] == 0 && p[i + 1] == 0 && p[i + 2] == 0 && p[i + 3] == 1) {
                    if ((p[i + 4] & 0x1F) == 8) {
                        if (i > 0) AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, p, (size_t)i);
                        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_1, p + i, (size_t)(n - i));
                        break;
                    }
                    i += 4;
                } else {
                    i += 1;
                }
            }
        } else {
            AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, p, (size_t)n);
        }
    }

    const qmkvd_colour *c = info->colour;
    if (c == nullptr) return;
    int32_t range = 0, standard = 0, transfer = 0;
    ColorUtils::convertIsoColorAspectsToPlatformAspects(fitsInt32(c->primaries), fitsInt32(c->transfer_characteristics),
                                                        fitsInt32(c->matrix_coefficients), c->range == 2, &range,
                                                        &standard, &transfer);
    if (range != 0) AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_COLOR_RANGE, range);
    if (standard != 0) AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_COLOR_STANDARD, standard);
    if (transfer != 0) AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_COLOR_TRANSFER, transfer);

    HDRStaticInfo hdr = {};
    if (c->max_cll < 65536) hdr.sType1.mMaxContentLightLevel = (uint16_t)c->max_cll;
    if (c->max_fall < 65536) hdr.sType1.mMaxFrameAverageLightLevel = (uint16_t)c->max_fall;
    if (const qmkvd_mastering *m = c->mastering) {
        const float maxL = floatOf(m->luminance_max);
        const float minL = floatOf(m->luminance_min);
        if (maxL >= 0.5f && maxL < 65535.5f) hdr.sType1.mMaxDisplayLuminance = (uint16_t)(maxL + 0.5f);
        if (minL >= 0.00005f && minL < 6.55355f) hdr.sType1.mMinDisplayLuminance = scaled(minL, 10000.0f);
        if (inUnit(m->white_point)) {
            hdr.sType1.mW.x = scaled(m->white_point->x, 50000.0f);
            hdr.sType1.mW.y = scaled(m->white_point->y, 50000.0f);
        }
        if (inUnit(m->primary_r) && inUnit(m->primary_g) && inUnit(m->primary_b)) {
            hdr.sType1.mR.x = scaled(m->primary_r->x, 50000.0f);
            hdr.sType1.mR.y = scaled(m->primary_r->y, 50000.0f);
            hdr.sType1.mG.x = scaled(m->primary_g->x, 50000.0f);
            hdr.sType1.mG.y = scaled(m->primary_g->y, 50000.0f);
            hdr.sType1.mB.x = scaled(m->primary_b->x, 50000.0f);
            hdr.sType1.mB.y = scaled(m->primary_b->y, 50000.0f);
        }
    }
    const HDRStaticInfo empty = {};
    if (memcmp(&hdr.sType1, &empty.sType1, sizeof(hdr.sType1)) != 0) ColorUtils::setHDRStaticInfoIntoAMediaFormat(hdr, meta);
}

// --- audio -------------------------------------------------------------

void QMKVTrackMapper::audioBranch(int32_t *ai) {
    qmkvd_info_aud *info = &mDSF->mAudInfo[*ai];
    if (qmkvd_get_info_aud(mDSF->mHandle, mIndex, info) != 0) {
        mStatus = QMKV_TRACK_UNDESCRIBED;
        return;
    }
    mAud = info;
    mCode = info->fourcc;
    if (!listed(kAudioWhitelist, mCode)) {
        mStatus = QMKV_TRACK_UNSUPPORTED;
        mLoggable = true;
    }
    (*ai)++;
    if (mCode == 0xFF || mCode == fcc("mp4a") || mCode == fcc("MP4A")) {
        mPrivateRead = true;
        if (mPrivate.read(mDSF->mHandle, mIndex) && mPrivate.size > 0) {
            qaud_config_in in = {mPrivate.data, (uint32_t)mPrivate.size, mCode};
            qaud_config_out out = {};
            if (qaud_config_parser(&in, &out) == 0) {
                mAacProfile = out.profile;
            } else {
                mStatus = QMKV_TRACK_BAD_CONFIG;
                mFound.badConfig = parserReason();
            }
        }
    }
}

void QMKVTrackMapper::audioKeys(AMediaFormat *meta, qmkvd_info_aud *info) {
    const char *mime = qcmn_fcc2mime(mCode);
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, isUnknownMime(mime) ? QCMN_MIMETYPE_AUDIO_UNKNOWN : mime);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FOURCC, (int32_t)mCode);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_CHANNEL_COUNT, info->channels);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_SAMPLE_RATE, info->sample_rate);
    if (info->bits_per_sample == 0) info->bits_per_sample = 16;
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_BITS_PER_SAMPLE, info->bits_per_sample);
    // Float PCM only for the one caller that takes it, and only when the
    // samples carry more than 16 bits.
    int32_t encoding = 2;
    if (info->bits_per_sample > 16 && AIBinder_getCallingUid() == kFloatPcmUid)
        encoding = base::GetBoolProperty("media.extractor.float", true) ? 4 : 2;
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_PCM_ENCODING, encoding);
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_LANGUAGE, info->language);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, kAudioInput);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, mDSF->mFormat.duration / 10);
    if (info->name_length >= 1 && info->name != nullptr)
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_TRACK_NAME, info->name, (size_t)info->name_length);
    if (mAacProfile >= 0) AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_AAC_PROFILE, mAacProfile);
    audioCsd(meta, info);
}

void QMKVTrackMapper::audioCsd(AMediaFormat *meta, const qmkvd_info_aud *info) {
    const uint32_t t = mCode;
    const bool whole = t == 2 || t == 0x11 || (t >= 0x160 && t <= 0x163) || t == 0x2001 || t == 0xFF || t == 0xF1AC;
    const bool vorbis = t == 0x6751 || t == 0x2674F;
    const bool opus = t == fcc("Opus");
    if (!whole && !vorbis && !opus) return;
    if (!mPrivateRead) {
        mPrivateRead = true;
        mPrivate.read(mDSF->mHandle, mIndex);
    }
    const uint8_t *p = mPrivate.data;
    const int32_t n = mPrivate.size;
    if (whole) {
        if (p != nullptr && n > 0) AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, p, (size_t)n);
        return;
    }
    if (opus) {
        if (p != nullptr && n > 0) AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, p, (size_t)n);
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_1, &info->codec_delay, sizeof(info->codec_delay));
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_2, &info->seek_pre_roll, sizeof(info->seek_pre_roll));
        mDSF->mSeekPreRoll = (int64_t)info->seek_pre_roll;
        return;
    }
    // Vorbis: the Xiph-laced header triple; identification and setup headers
    // become csd-0 and csd-1, the comment header is dropped.
    if (p == nullptr || n < 4) return;
    bool ok = false;
    if (p[0] != 2) {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "buf[0] != 0x02");
    } else {
        const int32_t a = p[1], b = p[2];
        const int32_t o = 3 + a + b;
        ok = a < 255 && b < 255 && n > o && p[3] == 1 && p[3 + a] == 3 && p[o] == 5;
        if (ok) {
            AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, p + 3, (size_t)a);
            AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_1, p + o, (size_t)(n - o));
        }
    }
    if (!ok) {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "vorbis csd is malformed");
        mStatus = QMKV_TRACK_BAD_CONFIG;
        mFound.badConfig = "Vorbis header packets malformed";
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_TYPE, mStatus);
    }
}

// --- text ----------------------------------------------------------------

void QMKVTrackMapper::textBranch(int32_t *ti) {
    qmkvd_info_txt *info = &mDSF->mTxtInfo[*ti];
    if (qmkvd_get_info_txt(mDSF->mHandle, mIndex, info) != 0) {
        mStatus = QMKV_TRACK_UNDESCRIBED;
        return;
    }
    (*ti)++;
    mTxt = info;
    mCode = info->fourcc;
    if (!listed(kTextWhitelist, mCode)) mStatus = QMKV_TRACK_UNSUPPORTED;
}

void QMKVTrackMapper::textKeys(AMediaFormat *meta, const qmkvd_info_txt *info) {
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, qcmn_fcc2mime(mCode));
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FOURCC, (int32_t)mCode);
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_LANGUAGE, info->language);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, kTextInput);
    if (info->name_length >= 1 && info->name != nullptr)
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_TRACK_NAME, info->name, (size_t)info->name_length);
}

// --- one track -------------------------------------------------------------

int32_t QMKVTrackMapper::run(int32_t *vi, int32_t *ai, int32_t *ti) {
    mType = mDSF->mFormat.track_type[mIndex];
    switch (mType) {
        case QMKVD_TRACK_VIDEO: videoBranch(vi); break;
        case QMKVD_TRACK_AUDIO: audioBranch(ai); break;
        case QMKVD_TRACK_SUBTITLE: textBranch(ti); break;
        default: break;
    }
    if (mStatus == QMKV_TRACK_UNDESCRIBED) return QMKV_TRACK_UNDESCRIBED;

    ExtractorTrack *track = new ExtractorTrack();
    track->mNext = nullptr;
    track->mMeta = AMediaFormat_new();
    track->mTimeScale = 10000000;
    track->mTrackIndex = mIndex;
    track->mIncludeExtensive = track->mFlagReserved = false;
    mEx->appendTrack(track);
    AMediaFormat *meta = track->mMeta;
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, mDSF->mFormat.duration / 10);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING, 1);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_TYPE, mStatus);
    if (mStatus == QMKV_TRACK_UNSUPPORTED) {
        // Described as if playable, so the framework sees the whole track.
        mStatus = QMKV_TRACK_OK;
        if (mLoggable) {
            AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_TRACK_FOURCC, (int32_t)mCode);
            AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_LOGGABLE, 1);
        }
    }
    switch (mType) {
        case QMKVD_TRACK_VIDEO: videoKeys(meta, mVid); break;
        case QMKVD_TRACK_AUDIO: audioKeys(meta, mAud); break;
        case QMKVD_TRACK_SUBTITLE: textKeys(meta, mTxt); break;
        default: AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, QCMN_MIMETYPE_UNKNOWN); break;
    }
    mFound.type = mType;
    mFound.code = mCode;
    if (mVid != nullptr) {
        mFound.width = mVid->width;
        mFound.height = mVid->height;
    }
    setTrackStatus(meta, mFound);
    return 0;
}

// --- initialisation --------------------------------------------------------

int32_t QMKVExtractor::init_qmkvff() {
    if (mDSF != nullptr) return mInitialized ? 0 : INT32_MIN;
    mDSF = new QMKVDSF();
    mInitialized = true;
    mDSF->mSource = new DataSourceHelper(mDataSource);
    qcmn_mfal_init(&mDSF->mMfal, mDSF->mSource);
    mDSF->mOpenParams |= QMKVD_OPEN_NO_DTS;

    int32_t error = 0;
    mDSF->mHandle = qmkvd_create(&mDSF->mMfal, &mDSF->mOpenParams, &mDSF->mFormat, &error);
    if (mDSF->mHandle == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "QMKVExtractor::init_qmkvff() qmkvd_create() failed(%d)!", error);
        qcmn_mfal_deinit(&mDSF->mMfal);
        mValid = false;
        if (error == QMKVD_ERR_IMPOSSIBLE) return QMKV_ERROR_UNSUPPORTED;
        if (error == QMKVD_ERR_IO) return QMKV_ERROR_IO;
        return QMKV_ERROR_MALFORMED;
    }
    if (mDSF->mFormat.video_count == 0 && mDSF->mFormat.audio_count == 0) {
        mValid = false;
        return QMKV_ERROR_MALFORMED;
    }
    int32_t vi = 0, ai = 0, ti = 0;
    for (int32_t i = 0; i < mDSF->mFormat.track_count; ++i) {
        QMKVTrackMapper mapper(this, i);
        const int32_t r = mapper.run(&vi, &ai, &ti);
        if (r != 0) return r;
    }
    fillFileMeta();
    return 0;
}

}  // namespace android
