// A read-only CDataSource over bytes the caller keeps alive, as the
// framework's data source looks to the plug-in.
#ifndef QMKV_FUZZ_FUZZ_SOURCE_H_
#define QMKV_FUZZ_FUZZ_SOURCE_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <media/MediaExtractorPluginApi.h>

namespace qmkv_fuzz {

class BytesSource {
public:
    BytesSource(const uint8_t *data, size_t size) : mData(data), mSize(size) {
        mSource.readAt = readAt;
        mSource.getSize = getSize;
        mSource.flags = flags;
        mSource.getUri = getUri;
        mSource.handle = this;
    }
    BytesSource(const BytesSource &) = delete;
    BytesSource &operator=(const BytesSource &) = delete;

    android::CDataSource *source() { return &mSource; }

private:
    static ssize_t readAt(void *h, off64_t offset, void *data, size_t size) {
        const BytesSource *self = static_cast<const BytesSource *>(h);
        if (offset < 0 || (uint64_t)offset >= self->mSize) return 0;
        size_t n = self->mSize - (size_t)offset;
        if (n > size) n = size;
        memcpy(data, self->mData + offset, n);
        return (ssize_t)n;
    }
    static android::status_t getSize(void *h, off64_t *size) {
        *size = (off64_t) static_cast<const BytesSource *>(h)->mSize;
        return android::OK;
    }
    static uint32_t flags(void *) { return 0; }
    static bool getUri(void *, char *, size_t) { return false; }

    const uint8_t *mData;
    size_t mSize;
    android::CDataSource mSource;
};

}  // namespace qmkv_fuzz

#endif  // QMKV_FUZZ_FUZZ_SOURCE_H_
