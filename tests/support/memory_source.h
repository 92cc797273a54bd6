// A CDataSource over bytes in memory, with knobs for the failures a real
// source can show (failed reads, unknown size), and readAt counters.
#ifndef QMKV_TEST_MEMORY_SOURCE_H_
#define QMKV_TEST_MEMORY_SOURCE_H_

#include <stdint.h>

#include <vector>

#include <media/MediaExtractorPluginApi.h>

namespace qmkv_test {

class MemorySource {
public:
    explicit MemorySource(std::vector<uint8_t> bytes = {});
    MemorySource(const MemorySource &) = delete;
    MemorySource &operator=(const MemorySource &) = delete;

    android::CDataSource *source() { return &mSource; }
    std::vector<uint8_t> &bytes() { return mBytes; }

    bool failReads = false;    // readAt returns a negative status
    bool unknownSize = false;  // getSize fails and leaves the size alone
    int readCalls = 0;
    uint64_t askedBytes = 0;  // what the reads asked for

private:
    static ssize_t readAt(void *h, off64_t offset, void *data, size_t size);
    static android::status_t getSize(void *h, off64_t *size);
    static uint32_t flags(void *h);
    static bool getUri(void *h, char *uri, size_t size);

    std::vector<uint8_t> mBytes;
    android::CDataSource mSource;
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_MEMORY_SOURCE_H_
