// A data source that counts the reads made through it and the bytes they
// ask for: on a device each read is a call into another process, so the
// count is the cost a file's reading has there.
#ifndef QMKVPROBE_COUNTED_SOURCE_H_
#define QMKVPROBE_COUNTED_SOURCE_H_

#include <stdint.h>

#include <media/MediaExtractorPluginApi.h>

namespace qmkvprobe {

class CountedSource {
public:
    explicit CountedSource(android::CDataSource *inner);
    CountedSource(const CountedSource &) = delete;
    CountedSource &operator=(const CountedSource &) = delete;

    // The counting source, valid as long as this object and `inner`.
    android::CDataSource *source() { return &mSource; }
    uint64_t reads() const { return mReads; }
    uint64_t readBytes() const { return mReadBytes; }

private:
    static ssize_t readAt(void *handle, off64_t offset, void *data, size_t size);
    static android::status_t getSize(void *handle, off64_t *size);
    static uint32_t flags(void *handle);
    static bool getUri(void *handle, char *uri, size_t size);

    android::CDataSource *mInner;
    android::CDataSource mSource;
    uint64_t mReads = 0;
    uint64_t mReadBytes = 0;
};

}  // namespace qmkvprobe

#endif  // QMKVPROBE_COUNTED_SOURCE_H_
