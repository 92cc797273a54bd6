#include "bench_io.h"

namespace qmkvbench {

namespace {
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
}  // namespace

CountingSource::CountingSource(const std::string &path) : mFile(path.c_str()) {
    off64_t size = 0;
    if (mFile.getSize(&size) == android::OK) mSize = size;
    mWrapper.readAt = sourceReadAt;
    mWrapper.getSize = sourceGetSize;
    mWrapper.flags = sourceFlags;
    mWrapper.getUri = sourceGetUri;
    mWrapper.handle = this;
}

}  // namespace qmkvbench
