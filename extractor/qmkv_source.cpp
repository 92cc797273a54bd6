// The track source: one stream handle per track, read and seek under the
// source's lock, PCM converted to what the format announces.
#include <string.h>

#include <android/log.h>
#include <media/NdkMediaError.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvds.h"
#include "extractor/qmkv_check.h"
#include "extractor/qmkv_extractor.h"
#include "pcm/qcmn_pcm.h"

namespace android {

namespace {

const char kTag[] = "QMKVExtractorSO";
const int32_t kUnknownStream = 255;
const uint32_t kLpcm = QMKVD_FOURCC('l', 'p', 'c', 'm');
const int32_t kEncoding16 = 2;
const int32_t kEncodingFloat = 4;

// The framework's seek modes to the core's; there is no frame-exact seek,
// so "closest" lands on the sync point before.
const int32_t kSeekModes[4] = {QMKVDS_SEEK_PREVIOUS, QMKVDS_SEEK_NEXT, QMKVDS_SEEK_CLOSEST, QMKVDS_SEEK_PREVIOUS};

// Microseconds from `pts` to a later `end` (100 ns units); exact even when
// the difference does not fit a signed 64-bit number.
int64_t span_us(int64_t pts, int64_t end) { return (int64_t)(((uint64_t)end - (uint64_t)pts) / 10); }

class Locked {
public:
    explicit Locked(pthread_mutex_t *m) : mMutex(m) { pthread_mutex_lock(mMutex); }
    ~Locked() { pthread_mutex_unlock(mMutex); }

private:
    pthread_mutex_t *mMutex;
};

int typeSlot(int32_t type) { return type == QMKVD_TRACK_VIDEO ? 0 : type == QMKVD_TRACK_AUDIO ? 1 : 2; }

// Big-endian PCM to little-endian, in place.
void swapToLittleEndian(uint8_t *p, size_t len, int32_t bits) {
    const size_t width = bits == 16 ? 2 : bits == 24 ? 3 : bits == 32 ? 4 : 0;
    if (width == 0) return;
    for (size_t i = 0; i + width <= len; i += width) {
        for (size_t a = i, b = i + width - 1; a < b; ++a, --b) {
            const uint8_t t = p[a];
            p[a] = p[b];
            p[b] = t;
        }
    }
}

}  // namespace

QMKVSource::QMKVSource(AMediaFormat *format, DataSourceHelper *source, const sp<QMKVDSF> &dsf, int32_t index)
    // A copy of the track's format: a framework may free the extractor, and
    // with it the original, while this source still reads.
    : mFormat(AMediaFormat_new()),
      mDataSource(source),
      mDSF(dsf),
      mBuffer(nullptr),
      mTypeOrdinal(0),
      mStreamType(kUnknownStream),
      mCodec(0),
      mHandle(nullptr),
      mLastTimeUs(0),
      mStarted(false),
      mBitsPerSample(-1),
      mPcmEncoding(kEncoding16),
      mHasRateAndDuration(false),
      mSampleRate(0),
      mDurationUs(0) {
    pthread_mutex_init(&mLock, nullptr);
    AMediaFormat_copy(mFormat, format);
    const qmkvd_format &f = mDSF->mFormat;
    const int32_t type = f.track_type[index];
    for (int32_t i = 0; i < index; ++i)
        if (f.track_type[i] == type) mTypeOrdinal++;
    if (type != QMKVD_TRACK_VIDEO && type != QMKVD_TRACK_AUDIO && type != QMKVD_TRACK_SUBTITLE) return;
    mStreamType = type;
    int32_t err = 0;
    mHandle = qmkvds_open(mDSF->mHandle, index, &err);
    if (mDSF->mStreamCount < QMKVD_MAX_TRACKS) mDSF->mStreams[mDSF->mStreamCount++] = mHandle;
    if (mHandle == nullptr) {
        mDSF.clear();
        return;
    }
    const int slot = typeSlot(type);
    mDSF->mSources.handle[slot] = mHandle;
    mDSF->mSources.index[slot] = index;
    mDSF->mSources.open++;
    mDSF->mSources.openByType[slot]++;
    if (type == QMKVD_TRACK_VIDEO) mCodec = (int32_t)mDSF->mVidInfo[mTypeOrdinal].fourcc;
    if (type == QMKVD_TRACK_AUDIO) mCodec = (int32_t)mDSF->mAudInfo[mTypeOrdinal].fourcc;
    if (type == QMKVD_TRACK_SUBTITLE) mCodec = (int32_t)mDSF->mTxtInfo[mTypeOrdinal].fourcc;
}

QMKVSource::~QMKVSource() {
    {
        Locked lock(&mLock);
        if (mStarted) {
            QMKV_CHECK(mStarted, 1398);
            mStarted = false;
        }
        qmkvds_close(mHandle);
        mDSF.clear();
    }
    AMediaFormat_delete(mFormat);
    pthread_mutex_destroy(&mLock);
}

media_status_t QMKVSource::start() {
    Locked lock(&mLock);
    QMKV_CHECK(!mStarted, 1366);
    if (mDSF == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "QMKVSource::start() MKV demuxer is NULL");
        return AMEDIA_ERROR_UNSUPPORTED;
    }
    if (mStreamType == kUnknownStream) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "QMKVSource::start() mStreamType is unknown");
        return AMEDIA_ERROR_UNSUPPORTED;
    }
    int32_t max_size = 0;
    QMKV_CHECK(AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size), 1379);
    mBufferGroup->add_buffer((size_t)max_size);
    // What every read asks of the format, looked up once: the format is
    // this source's own copy and does not change.
    mBitsPerSample = -1;
    AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_BITS_PER_SAMPLE, &mBitsPerSample);
    mPcmEncoding = kEncoding16;
    AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_PCM_ENCODING, &mPcmEncoding);
    mSampleRate = 0;
    mDurationUs = 0;
    mHasRateAndDuration = AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_SAMPLE_RATE, &mSampleRate) &&
                          AMediaFormat_getInt64(mFormat, AMEDIAFORMAT_KEY_DURATION, &mDurationUs);
    mStarted = true;
    return AMEDIA_OK;
}

media_status_t QMKVSource::stop() {
    Locked lock(&mLock);
    QMKV_CHECK(mStarted, 1398);
    mStarted = false;
    return AMEDIA_OK;
}

media_status_t QMKVSource::getFormat(AMediaFormat *format) {
    Locked lock(&mLock);
    AMediaFormat_copy(format, mFormat);
    return AMEDIA_OK;
}

size_t QMKVSource::convertPcm(uint8_t *data, size_t len, size_t capacity) {
    const int32_t bits = mBitsPerSample;
    if (mStreamType != QMKVD_TRACK_AUDIO || bits < 0) return len;
    const uint32_t codec = (uint32_t)mCodec;
    if (codec == kLpcm) swapToLittleEndian(data, len, bits);
    const int32_t encoding = mPcmEncoding;
    // Widening conversions grow the data: never past the buffer.
    auto fit = [capacity](size_t samples, size_t outBytes) {
        return samples * outBytes <= capacity ? samples : capacity / outBytes;
    };
    if (codec == kLpcm || codec == 1) {
        if (encoding != kEncoding16 && encoding != kEncodingFloat) return len;
        const bool toFloat = encoding == kEncodingFloat;
        const size_t out = toFloat ? 4 : 2;
        switch (bits) {
            case 8: {
                const size_t n = fit(len, out);
                if (toFloat) memcpy_to_float_from_u8(reinterpret_cast<float *>(data), data, n);
                else memcpy_to_i16_from_u8(reinterpret_cast<int16_t *>(data), data, n);
                return n * out;
            }
            case 16: {
                if (!toFloat) return len & ~(size_t)1;
                const size_t n = fit(len / 2, 4);
                memcpy_to_float_from_i16(reinterpret_cast<float *>(data), reinterpret_cast<const int16_t *>(data), n);
                return n * 4;
            }
            case 24: {
                const size_t n = fit(len / 3, out);
                if (toFloat) memcpy_to_float_from_p24(reinterpret_cast<float *>(data), data, n);
                else memcpy_to_i16_from_p24(reinterpret_cast<int16_t *>(data), data, n);
                return n * out;
            }
            case 32: {
                const size_t n = len / 4;
                if (toFloat) memcpy_to_float_from_i32(reinterpret_cast<float *>(data), reinterpret_cast<const int32_t *>(data), n);
                else memcpy_to_i16_from_i32(reinterpret_cast<int16_t *>(data), reinterpret_cast<const int32_t *>(data), n);
                return n * out;
            }
            default:
                return 0;  // a sample width the decoders cannot take
        }
    }
    if (codec == 3 && encoding == kEncoding16) {
        const size_t n = len / 4;
        memcpy_to_i16_from_float(reinterpret_cast<int16_t *>(data), reinterpret_cast<const float *>(data), n);
        return n * 2;
    }
    return len;
}

void QMKVSource::setSampleMeta(AMediaFormat *meta, size_t *len, size_t capacity, int64_t pts, int64_t end) {
    if (mStreamType == QMKVD_TRACK_SUBTITLE) {
        // Text samples are NUL-terminated when there is room.
        if (*len >= 1 && *len < capacity) {
            static_cast<uint8_t *>(mBuffer->data())[(*len)++] = 0;
            if (end > pts) AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, span_us(pts, end));
        } else {
            AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, -1);
        }
    } else if (end > pts) {
        AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, span_us(pts, end));
    }
}

media_status_t QMKVSource::read(MediaBufferHelper **out, const ReadOptions *options) {
    Locked lock(&mLock);
    QMKV_CHECK(mStarted, 1407);
    *out = nullptr;
    const media_status_t acquired = mBufferGroup->acquire_buffer(&mBuffer);
    if (acquired != AMEDIA_OK) {
        QMKV_CHECK(mBuffer == NULL, 1418);
        __android_log_print(ANDROID_LOG_WARN, kTag, "QMKVSource::read() acquire_buffer returns %d", acquired);
        return AMEDIA_ERROR_UNKNOWN;
    }
    auto give_back = [this](media_status_t status) {
        mBuffer->release();
        mBuffer = nullptr;
        return status;
    };

    int64_t seekUs = 0;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekUs, &mode)) {
        if ((int32_t)mode > 3) QMKV_CHECK(!"Should not be here.", 1441);
        if (seekUs == 0 || mDSF->mFormat.seekable != 0) {
            int64_t t = (seekUs * 1000 - mDSF->mSeekPreRoll) / 100;
            if (t < 0) t = 0;
            uint64_t target = (uint64_t)t;
            int64_t found = 0;
            // A file whose length is unknown (0) cannot rule a target out.
            const int64_t duration = mDSF->mFormat.duration;
            if ((duration > 0 && t > duration) || qmkvds_seek(mHandle, &target, &found, kSeekModes[mode]) != 0)
                return give_back(AMEDIA_ERROR_END_OF_STREAM);
        }
    }

    uint8_t *data = static_cast<uint8_t *>(mBuffer->data());
    const size_t capacity = mBuffer->size();
    uint32_t frameLen = 0;
    int64_t pts = 0, end = 0;
    uint32_t key = 0;
    const int32_t r = qmkvds_get_frm(mHandle, data, (uint32_t)capacity, &frameLen, &pts, &end, &key);
    if (r == QMKVD_END_OF_STREAM) return give_back(AMEDIA_ERROR_END_OF_STREAM);
    if (r != 0) return give_back(AMEDIA_ERROR_IO);

    size_t len = convertPcm(data, frameLen, capacity);
    QMKV_CHECK(mBuffer != NULL, 1595);
    AMediaFormat *meta = mBuffer->meta_data();
    AMediaFormat_clear(meta);
    setSampleMeta(meta, &len, capacity, pts, end);

    if (mStreamType == QMKVD_TRACK_AUDIO && (mCodec == 0x2674F || mCodec == 0x6751)) {
        // The last Vorbis packets say how many of their samples lie inside
        // the track's duration.
        if (!mHasRateAndDuration) return give_back(AMEDIA_ERROR_MALFORMED);
        if (mDurationUs > pts / 10)
            AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_VALID_SAMPLES,
                                  (int32_t)(qmkvd_wrap_mul(qmkvd_wrap_sub(mDurationUs, pts / 10), mSampleRate) / 1000000));
    }

    mBuffer->set_range(0, len);
    mLastTimeUs = pts / 10;
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_TIME_US, pts / 10);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_IS_SYNC_FRAME, (int32_t)key);
    *out = mBuffer;
    return AMEDIA_OK;
}

}  // namespace android
