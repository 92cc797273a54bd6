#include "extractor/mfal/qcmn_mfal_android_q.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>
#include <media/MediaExtractorPluginHelper.h>

namespace {

const char kTag[] = "QMKVExtractorSO";
const char kPath[] = "frameworks/avcodec/mm_proprietary/libextractor/mfal/qcmn_mfal_android_q";

// Argument checks name the argument and carry a fixed line number, which
// field logs are matched against.
#define MFAL_ASSERT_FAILED(word, line) \
    __android_log_print(ANDROID_LOG_ERROR, kTag, "[%s:%d] assert failed! (" word ")\n", kPath, line)

}  // namespace

QCMN_MFAL_FP *qcmn_mfal_open(QCMN_MFAL *mfal, unsigned long /*mode*/) {
    if (mfal == nullptr) {
        MFAL_ASSERT_FAILED("mfal", 102);
        return nullptr;
    }
    QCMN_MFAL_FP *fp = static_cast<QCMN_MFAL_FP *>(calloc(1, sizeof(QCMN_MFAL_FP)));
    if (fp == nullptr) return nullptr;
    const QCMN_MFAL_ACCESS *access = static_cast<const QCMN_MFAL_ACCESS *>(mfal->user);
    fp->source = access != nullptr ? access->source : nullptr;
    if (fp->source == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "not supported");
        free(fp);
        return nullptr;
    }
    return fp;
}

void qcmn_mfal_close(QCMN_MFAL_FP *fp) {
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 134);
        return;
    }
    free(fp);
}

int32_t qcmn_mfal_read(QCMN_MFAL_FP *fp, void *buf, int32_t size) {
    if (size < 1) return 0;
    if (buf == nullptr) {
        MFAL_ASSERT_FAILED("buf", 151);
        return -1;
    }
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 152);
        return -1;
    }
    ssize_t n = fp->source->readAt(fp->pos, buf, (size_t)size);
    if (n < 0) n = 0;
    if (n > size) n = size;  // a misbehaving source must not move us past what was asked
    fp->pos += n;
    return (int32_t)n;
}

int32_t qcmn_mfal_write(QCMN_MFAL_FP *fp, const void * /*buf*/, int32_t /*size*/) {
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 165);
        return -1;
    }
    return 0;
}

int32_t qcmn_mfal_getpos(QCMN_MFAL_FP *fp, int64_t *pos) {
    if (pos == nullptr) {
        MFAL_ASSERT_FAILED("p", 174);
        return -1;
    }
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 175);
        return -1;
    }
    *pos = fp->pos;
    return 0;
}

int32_t qcmn_mfal_setpos(QCMN_MFAL_FP *fp, const int64_t *pos) {
    if (pos == nullptr) {
        MFAL_ASSERT_FAILED("p", 188);
        return -1;
    }
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 189);
        return -1;
    }
    fp->pos = *pos;
    return 0;
}

int32_t qcmn_mfal_skip(QCMN_MFAL_FP *fp, const int64_t *distance) {
    if (distance == nullptr) {
        MFAL_ASSERT_FAILED("fsize", 203);
        return -1;
    }
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 204);
        return -1;
    }
    if (*distance < 1) return -1;
    fp->pos += *distance;
    return 0;
}

int32_t qcmn_mfal_getsize(QCMN_MFAL_FP *fp, int64_t *size) {
    if (size == nullptr) {
        MFAL_ASSERT_FAILED("fsize", 224);
        return -1;
    }
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 225);
        return -1;
    }
    *size = 0;
    off64_t value = 0;
    (void)fp->source->getSize(&value);
    *size = value;
    return 0;
}

int32_t qcmn_mfal_ioctl(QCMN_MFAL_FP *fp, int code, void *arg) {
    if (fp == nullptr) {
        MFAL_ASSERT_FAILED("fp", 239);
        return -1;
    }
    if (arg == nullptr) {
        MFAL_ASSERT_FAILED("arg", 240);
        return -1;
    }
    return code == QCMN_MFAL_IOCTL_ACK ? 0 : -1;
}

int32_t qcmn_mfal_init(QCMN_MFAL *mfal, android::DataSourceHelper *source) {
    memset(mfal, 0, sizeof(*mfal));
    QCMN_MFAL_ACCESS *access = static_cast<QCMN_MFAL_ACCESS *>(calloc(1, sizeof(QCMN_MFAL_ACCESS)));
    if (access == nullptr) return -1;
    access->source = source;
    mfal->open = qcmn_mfal_open;
    mfal->close = qcmn_mfal_close;
    mfal->read = qcmn_mfal_read;
    mfal->write = qcmn_mfal_write;
    mfal->getpos = qcmn_mfal_getpos;
    mfal->setpos = qcmn_mfal_setpos;
    mfal->skip = qcmn_mfal_skip;
    mfal->getsize = qcmn_mfal_getsize;
    mfal->ioctl = qcmn_mfal_ioctl;
    mfal->user = access;
    return 0;
}

void qcmn_mfal_deinit(QCMN_MFAL *mfal) {
    free(mfal->user);
    memset(mfal, 0, sizeof(*mfal));
}
