// Bytes in memory opened through the real file-access layer, as the core
// sees a file.
#ifndef QMKV_TEST_MEMORY_FILE_H_
#define QMKV_TEST_MEMORY_FILE_H_

#include <media/MediaExtractorPluginHelper.h>

#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "tests/support/memory_source.h"

namespace qmkv_test {

class MemoryFile {
public:
    explicit MemoryFile(std::vector<uint8_t> bytes) : mem(std::move(bytes)), helper(mem.source()) {
        qcmn_mfal_init(&mfal, &helper);
        fp = qcmn_mfal_open(&mfal, 0);
    }
    ~MemoryFile() {
        qcmn_mfal_close(fp);
        qcmn_mfal_deinit(&mfal);
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    int64_t pos() const { return fp->pos; }

    MemorySource mem;
    android::DataSourceHelper helper;
    QCMN_MFAL mfal;
    QCMN_MFAL_FP *fp;
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_MEMORY_FILE_H_
