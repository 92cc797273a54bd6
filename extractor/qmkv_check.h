// Broken invariants of the plug-in end the process through the platform's
// assertion, with the source path and line number field reports are
// matched against.
#ifndef QMKV_CHECK_H_
#define QMKV_CHECK_H_

#include <android/log.h>

#define QMKV_SOURCE_PATH "frameworks/avcodec/mm_proprietary/libextractor/qmkv_extractor"

#define QMKV_CHECK(expr, line)                                                                          \
    do {                                                                                                \
        if (!(expr))                                                                                    \
            __android_log_assert(nullptr, "QMKVExtractorSO", "%s:%d CHECK(%s) failed.", QMKV_SOURCE_PATH, \
                                 line, #expr);                                                          \
    } while (0)

#endif  // QMKV_CHECK_H_
