// Plug-in entry, sniffing, the extractor object and the demuxer holder.
#include "extractor/qmkv_extractor.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>
#include <media/NdkMediaError.h>
#include <media/stagefright/foundation/MediaDefs.h>

#include "common/qcmn_export.h"
#include "demux/qmkvd.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"

namespace android {

namespace {

const char kTag[] = "QMKVExtractorSO";
const size_t kSniffSize = 128;
const float kConfidence = 0.7f;

// Whether `p` starts an EBML DocType element (ID 0x4282) holding "matroska"
// that ends within `avail` bytes. Writers differ in the encoding: the size
// may take 1 to 8 bytes, and the text may be padded with zero bytes
// (GStreamer writes "matroska\0"), which readers ignore.
bool isMatroskaDocType(const uint8_t *p, size_t avail) {
    static const uint8_t kText[8] = {'m', 'a', 't', 'r', 'o', 's', 'k', 'a'};
    if (avail < 3 + sizeof(kText) || p[0] != 0x42 || p[1] != 0x82 || p[2] == 0) return false;
    size_t lengthBytes = 1;
    while ((p[2] & (0x80u >> (lengthBytes - 1))) == 0) ++lengthBytes;
    uint64_t size = p[2] & (0xFFu >> lengthBytes);
    bool unknown = size == (0xFFu >> lengthBytes);
    for (size_t k = 1; k < lengthBytes; ++k) {
        size = (size << 8) | p[2 + k];
        unknown = unknown && p[2 + k] == 0xFF;
    }
    const size_t header = 2 + lengthBytes;
    if (unknown || size < sizeof(kText) || size > avail - header) return false;
    const uint8_t *text = p + header;
    if (memcmp(text, kText, sizeof(kText)) != 0) return false;
    for (size_t k = sizeof(kText); k < size; ++k)
        if (text[k] != 0) return false;
    return true;
}

CMediaExtractor *CreateExtractor(CDataSource *source, void * /*meta*/) {
    return wrap(new QMKVExtractor(new DataSourceHelper(source)));
}

CreatorFunc Sniff(CDataSource *source, float *confidence, void ** /*meta*/, FreeMetaFunc * /*freeMeta*/) {
    uint8_t head[kSniffSize];
    if ((size_t)source->readAt(source->handle, 0, head, kSniffSize) < kSniffSize) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "can't read buffer size of maxScanOffset");
        return nullptr;
    }
    // Only "matroska" is claimed; WebM is left to other extractors. The
    // element must end before the block's last byte, so its shortest form
    // starts at offset 116 at the latest.
    for (size_t i = 0; i + 1 < kSniffSize; ++i) {
        if (isMatroskaDocType(head + i, kSniffSize - 1 - i)) {
            *confidence = kConfidence;
            return CreateExtractor;
        }
    }
    return nullptr;
}

const char *kSupportedTypes[] = {"mkv", "mka", nullptr};

}  // namespace

// --- QMKVDSF -------------------------------------------------------------

QMKVDSF::QMKVDSF()
    : mHandle(nullptr), mOpenParams(0), mStreamCount(0), mSources(), mSeekPreRoll(0), mSource(nullptr) {
    memset(mStreams, 0, sizeof(mStreams));
    memset(&mFormat, 0, sizeof(mFormat));
    memset(mVidInfo, 0, sizeof(mVidInfo));
    memset(mAudInfo, 0, sizeof(mAudInfo));
    memset(mTxtInfo, 0, sizeof(mTxtInfo));
    memset(&mMfal, 0, sizeof(mMfal));
}

QMKVDSF::~QMKVDSF() {
    if (mHandle != nullptr) {
        // Streams go before the demuxer they belong to.
        for (int32_t i = 0; i < mStreamCount; ++i) {
            if (mStreams[i] != nullptr) {
                qmkvds_close(mStreams[i]);
                mStreams[i] = nullptr;
            }
        }
        qmkvd_delete(mHandle);
        mHandle = nullptr;
    }
    qcmn_mfal_deinit(&mMfal);
    delete mSource;
}

// --- QMKVExtractor ---------------------------------------------------------

QMKVExtractor::QMKVExtractor(DataSourceHelper *source)
    : mDataSource(source),
      mFileMeta(AMediaFormat_new()),
      mTracks(nullptr),
      mTracksTail(nullptr),
      mInitialized(false),
      mHasVideo(false),
      mValid(true) {}

QMKVExtractor::~QMKVExtractor() {
    AMediaFormat_delete(mFileMeta);
    for (ExtractorTrack *t = mTracks; t != nullptr;) {
        ExtractorTrack *next = t->mNext;
        if (t->mMeta != nullptr) AMediaFormat_delete(t->mMeta);
        delete t;
        t = next;
    }
    mTracks = mTracksTail = nullptr;
    mDSF.clear();
    delete mDataSource;
}

bool QMKVExtractor::prepare() {
    if (!mValid) return false;
    if (mInitialized) return true;
    if (init_qmkvff() != 0) return false;
    if (mInitialized) {
        AMediaFormat_setString(mFileMeta, AMEDIAFORMAT_KEY_MIME,
                               mHasVideo ? MEDIA_MIMETYPE_CONTAINER_MATROSKA : "audio/x-matroska");
    }
    return true;
}

ExtractorTrack *QMKVExtractor::trackAt(size_t index) {
    ExtractorTrack *t = mTracks;
    for (size_t i = 0; t != nullptr && i < index; ++i) t = t->mNext;
    return t;
}

void QMKVExtractor::appendTrack(ExtractorTrack *track) {
    if (mTracksTail == nullptr) {
        mTracks = mTracksTail = track;
    } else {
        mTracksTail->mNext = track;
        mTracksTail = track;
    }
}

size_t QMKVExtractor::countTracks() {
    if (!prepare()) return 0;
    size_t n = 0;
    for (ExtractorTrack *t = mTracks; t != nullptr; t = t->mNext) ++n;
    return n;
}

MediaTrackHelper *QMKVExtractor::getTrack(size_t index) {
    if (!prepare()) return nullptr;
    ExtractorTrack *t = trackAt(index);
    if (t == nullptr) return nullptr;
    return new QMKVSource(t->mMeta, mDataSource, mDSF, t->mTrackIndex);
}

media_status_t QMKVExtractor::getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t /*flags*/) {
    if (!prepare()) return AMEDIA_ERROR_UNKNOWN;
    ExtractorTrack *t = trackAt(index);
    if (t == nullptr) return AMEDIA_ERROR_UNKNOWN;
    return AMediaFormat_copy(meta, t->mMeta);
}

media_status_t QMKVExtractor::getMetaData(AMediaFormat *meta) {
    if (!prepare()) return AMEDIA_ERROR_UNKNOWN;
    AMediaFormat_copy(meta, mFileMeta);
    return AMEDIA_OK;
}

uint32_t QMKVExtractor::flags() const {
    // Only asked after a successful query, when the holder exists.
    if (mDSF != nullptr && mDSF->mFormat.seekable != 0)
        return CAN_SEEK_BACKWARD | CAN_SEEK_FORWARD | CAN_PAUSE | CAN_SEEK;
    return CAN_PAUSE;
}

status_t QMKVExtractor::readMetaData() {
    if (!mValid) return QMKV_ERROR_UNSUPPORTED;
    if (mInitialized) return OK;
    const int32_t r = init_qmkvff();
    if (mInitialized) {
        AMediaFormat_setString(mFileMeta, AMEDIAFORMAT_KEY_MIME,
                               mHasVideo ? MEDIA_MIMETYPE_CONTAINER_MATROSKA : "audio/x-matroska");
    }
    return r;
}

extern "C" {

__attribute__((visibility("default"))) ExtractorDef GETEXTRACTORDEF() {
    return {
        EXTRACTORDEF_VERSION_NDK_V2,
        // Random, fixed: this plug-in's identity.
        {{0x6b, 0x2e, 0x91, 0x0d, 0x4f, 0x37, 0x4c, 0x1a, 0x9e, 0x52, 0xd4, 0x8c, 0x3a, 0x71, 0x05, 0xe6}},
        1,
        "QRT MKV Extractor",
        {.v3 = {Sniff, kSupportedTypes}},
    };
}

}  // extern "C"

}  // namespace android
