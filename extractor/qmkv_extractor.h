// The Matroska extractor plug-in: the extractor, the demuxer holder shared
// with the track sources, and the track source.
#ifndef QMKV_EXTRACTOR_H_
#define QMKV_EXTRACTOR_H_

#include <pthread.h>
#include <stdint.h>

#include <media/MediaExtractorPluginApi.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <utils/RefBase.h>

#include "common/qcmn_mfal.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvd_types.h"

namespace android {

// Statuses of the framework's older media error family.
enum {
    QMKV_ERROR_IO = -1004,
    QMKV_ERROR_MALFORMED = -1007,
    QMKV_ERROR_UNSUPPORTED = -1010,
};

// Per-track statuses in AMEDIAFORMAT_KEY_ERROR_TYPE.
enum {
    QMKV_TRACK_OK = 0,
    QMKV_TRACK_UNDESCRIBED = -1001,  // the demuxer could not describe it
    QMKV_TRACK_UNSUPPORTED = -1002,
    QMKV_TRACK_BAD_CONFIG = -1003,
    QMKV_TRACK_TOO_LARGE = -1004,  // beyond the device's resolution limit
};

// Owns the demuxer and everything that must outlive the extractor while a
// track source still reads.
class QMKVDSF : public RefBase {
public:
    QMKVDSF();
    ~QMKVDSF() override;

    qmkvd *mHandle;
    qmkvds *mStreams[QMKVD_MAX_TRACKS];
    qmkvd_format mFormat;
    uint32_t mOpenParams;
    qmkvd_info_vid mVidInfo[QMKVD_MAX_TRACKS];
    qmkvd_info_aud mAudInfo[QMKVD_MAX_TRACKS];
    qmkvd_info_txt mTxtInfo[QMKVD_MAX_TRACKS];
    QCMN_MFAL mMfal;
    int32_t mStreamCount;
    // Written by track sources as they open their streams.
    struct {
        qmkvds *handle[3];  // the latest of each type: video, audio, text
        int32_t index[3];
        int32_t open;
        int32_t openByType[3];
    } mSources;
    int64_t mSeekPreRoll;  // ns, of the last Opus track
    // The file-access layer reads through this helper over the framework's
    // source, owned here so that it lives as long as the streams.
    DataSourceHelper *mSource;
};

struct ExtractorTrack {
    ExtractorTrack *mNext;
    AMediaFormat *mMeta;
    int32_t mTimeScale;
    int32_t mTrackIndex;
    bool mIncludeExtensive;
    bool mFlagReserved;
};

class QMKVExtractor : public MediaExtractorPluginHelper {
public:
    explicit QMKVExtractor(DataSourceHelper *source);
    ~QMKVExtractor() override;

    size_t countTracks() override;
    MediaTrackHelper *getTrack(size_t index) override;
    media_status_t getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t flags) override;
    media_status_t getMetaData(AMediaFormat *meta) override;
    uint32_t flags() const override;
    const char *name() override { return "QMKVExtractor"; }
    // The older-style entry: media statuses of the previous generation.
    status_t readMetaData();

private:
    // The one-time initialisation: demuxer, then every track's format.
    int32_t init_qmkvff();
    // Runs initialisation on first need; false when the extractor is unusable.
    bool prepare();
    ExtractorTrack *trackAt(size_t index);
    void appendTrack(ExtractorTrack *track);
    void fillFileMeta();

    DataSourceHelper *mDataSource;
    sp<QMKVDSF> mDSF;
    AMediaFormat *mFileMeta;
    ExtractorTrack *mTracks;
    ExtractorTrack *mTracksTail;
    bool mInitialized;
    bool mHasVideo;
    bool mValid;

    friend class QMKVTrackMapper;
};

class QMKVSource : public MediaTrackHelper {
public:
    QMKVSource(AMediaFormat *format, DataSourceHelper *source, const sp<QMKVDSF> &dsf, int32_t index);
    ~QMKVSource() override;

    media_status_t start() override;
    media_status_t stop() override;
    media_status_t getFormat(AMediaFormat *format) override;
    media_status_t read(MediaBufferHelper **buffer, const ReadOptions *options = nullptr) override;

private:
    // Converts PCM samples in place to the encoding the format announces;
    // returns the new length.
    size_t convertPcm(uint8_t *data, size_t len, size_t capacity);
    // The sample's duration (and a text sample's terminator).
    void setSampleMeta(AMediaFormat *meta, size_t *len, size_t capacity, int64_t pts, int64_t end);

    pthread_mutex_t mLock;
    AMediaFormat *mFormat;  // the track's format, copied
    [[maybe_unused]] DataSourceHelper *mDataSource;  // the source the track was made on; reads go through mDSF
    sp<QMKVDSF> mDSF;
    MediaBufferHelper *mBuffer;
    int32_t mTypeOrdinal;
    int32_t mStreamType;
    int32_t mCodec;
    qmkvds *mHandle;
    int64_t mLastTimeUs;
    bool mStarted;
    int32_t mBitsPerSample;  // -1 when the format has none
    int32_t mPcmEncoding;
    // Vorbis and Opus samples are trimmed to the track's duration.
    bool mHasRateAndDuration;
    int32_t mSampleRate;
    int64_t mDurationUs;
};

}  // namespace android

#endif  // QMKV_EXTRACTOR_H_
