#include "tests/support/memory_source.h"

#include <string.h>

namespace qmkv_test {

MemorySource::MemorySource(std::vector<uint8_t> bytes) : mBytes(std::move(bytes)) {
    mSource.readAt = readAt;
    mSource.getSize = getSize;
    mSource.flags = flags;
    mSource.getUri = getUri;
    mSource.handle = this;
}

ssize_t MemorySource::readAt(void *h, off64_t offset, void *data, size_t size) {
    MemorySource *self = static_cast<MemorySource *>(h);
    self->readCalls++;
    self->askedBytes += size;
    if (self->failReads) return android::UNKNOWN_ERROR;
    if (offset < 0 || (uint64_t)offset >= self->mBytes.size()) return 0;
    size_t n = self->mBytes.size() - (size_t)offset;
    if (n > size) n = size;
    memcpy(data, self->mBytes.data() + offset, n);
    return (ssize_t)n;
}

android::status_t MemorySource::getSize(void *h, off64_t *size) {
    MemorySource *self = static_cast<MemorySource *>(h);
    if (self->unknownSize) return android::INVALID_OPERATION;
    *size = (off64_t)self->mBytes.size();
    return android::OK;
}

uint32_t MemorySource::flags(void *) { return 0; }

bool MemorySource::getUri(void *, char *, size_t) { return false; }

}  // namespace qmkv_test
