#include "counted_source.h"

namespace qmkvprobe {

CountedSource::CountedSource(android::CDataSource *inner) : mInner(inner), mSource{readAt, getSize, flags, getUri, this} {}

ssize_t CountedSource::readAt(void *handle, off64_t offset, void *data, size_t size) {
    CountedSource *self = static_cast<CountedSource *>(handle);
    self->mReads++;
    self->mReadBytes += size;
    return self->mInner->readAt(self->mInner->handle, offset, data, size);
}

android::status_t CountedSource::getSize(void *handle, off64_t *size) {
    android::CDataSource *inner = static_cast<CountedSource *>(handle)->mInner;
    return inner->getSize(inner->handle, size);
}

uint32_t CountedSource::flags(void *handle) {
    android::CDataSource *inner = static_cast<CountedSource *>(handle)->mInner;
    return inner->flags(inner->handle);
}

bool CountedSource::getUri(void *handle, char *uri, size_t size) {
    android::CDataSource *inner = static_cast<CountedSource *>(handle)->mInner;
    return inner->getUri(inner->handle, uri, size);
}

}  // namespace qmkvprobe
