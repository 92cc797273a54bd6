#include "bench_io.h"

#include <time.h>

namespace qmkvbench {

namespace {
uint32_t gCharge = 0;

ssize_t sourceReadAt(void *h, off64_t offset, void *data, size_t size) {
    return static_cast<CountingSource *>(h)->readAt(offset, data, size);
}
android::status_t sourceGetSize(void *h, off64_t *size) {
    *size = static_cast<CountingSource *>(h)->size();
    return android::OK;
}
uint32_t sourceFlags(void *) { return qmkvhost::FileSource::kIsLocalFileSource | qmkvhost::FileSource::kSeekable; }
bool sourceGetUri(void *, char *uri, size_t size) {
    if (uri != nullptr && size > 0) uri[0] = '\0';
    return false;
}

int64_t nowNs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000000ll + ts.tv_nsec;
}
}  // namespace

void setReadCharge(uint32_t micros) { gCharge = micros; }
uint32_t readCharge() { return gCharge; }

CountingSource::CountingSource(const std::string &path) : mFile(path.c_str()), mCharge(gCharge) {
    off64_t size = 0;
    if (mFile.getSize(&size) == android::OK) mSize = size;
    mWrapper.readAt = sourceReadAt;
    mWrapper.getSize = sourceGetSize;
    mWrapper.flags = sourceFlags;
    mWrapper.getUri = sourceGetUri;
    mWrapper.handle = this;
}

// Busy-waits: a sleep of a few microseconds lasts far longer than asked.
void CountingSource::spin() const {
    const int64_t until = nowNs() + (int64_t)mCharge * 1000;
    while (nowNs() < until) {
    }
}

}  // namespace qmkvbench
