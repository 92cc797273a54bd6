#include <qmkvhost/FileSource.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qmkvhost {

using android::NO_INIT;
using android::OK;
using android::status_t;
using android::UNKNOWN_ERROR;

namespace {
// Bytes after each read of the mapped file that are prefetched: enough for
// the next block header and a small frame; more competes with the reads of
// large frames for memory bandwidth.
const off64_t kPrefetchAhead = 1024;
const size_t kStreamingRead = 256;

ssize_t wrapReadAt(void *h, off64_t offset, void *data, size_t size) {
    return static_cast<FileSource *>(h)->readAt(offset, data, size);
}
status_t wrapGetSize(void *h, off64_t *size) {
    return static_cast<FileSource *>(h)->getSize(size);
}
uint32_t wrapFlags(void *h) {
    return static_cast<FileSource *>(h)->flags();
}
bool wrapGetUri(void *, char *uri, size_t size) {
    if (uri != nullptr && size > 0) uri[0] = '\0';
    return false;
}
}  // namespace

FileSource::FileSource(const char *path) : mFd(-1), mLength(-1), mMap(nullptr) {
    mFd = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (mFd >= 0 && fstat(mFd, &st) == 0) mLength = st.st_size;
    if (mLength > 0 && S_ISREG(st.st_mode)) {
        void *map = mmap(nullptr, (size_t)mLength, PROT_READ, MAP_PRIVATE, mFd, 0);
        if (map != MAP_FAILED) mMap = static_cast<const uint8_t *>(map);
    }
    mWrapper.readAt = wrapReadAt;
    mWrapper.getSize = wrapGetSize;
    mWrapper.flags = wrapFlags;
    mWrapper.getUri = wrapGetUri;
    mWrapper.handle = this;
}

FileSource::~FileSource() {
    if (mMap != nullptr) munmap(const_cast<uint8_t *>(mMap), (size_t)mLength);
    if (mFd >= 0) ::close(mFd);
}

ssize_t FileSource::readAt(off64_t offset, void *data, size_t size) {
    if (mFd < 0) return NO_INIT;
    if (offset < 0) return UNKNOWN_ERROR;
    if (mMap != nullptr) {
        if (offset >= mLength) return 0;
        const size_t n = size < (size_t)(mLength - offset) ? size : (size_t)(mLength - offset);
        memcpy(data, mMap + offset, n);
        // A read of some size is a parser streaming through the file, which
        // reads on from where it ended: start bringing those bytes into the
        // cache now. Small reads are header probes that jump.
        const off64_t end = offset + (off64_t)n;
        const off64_t left = mLength - end;
        const off64_t ahead = n < kStreamingRead ? 0 : left < kPrefetchAhead ? left : kPrefetchAhead;
        for (off64_t p = 0; p < ahead; p += 64) __builtin_prefetch(mMap + end + p);
        return (ssize_t)n;
    }
    size_t done = 0;
    while (done < size) {
        ssize_t n = ::pread64(mFd, static_cast<char *>(data) + done, size - done, offset + (off64_t)done);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done > 0) return (ssize_t)done;
            return UNKNOWN_ERROR;
        }
        if (n == 0) break;
        done += (size_t)n;
    }
    return (ssize_t)done;
}

status_t FileSource::getSize(off64_t *size) {
    if (mFd < 0 || mLength < 0) return NO_INIT;
    *size = mLength;
    return OK;
}

}  // namespace qmkvhost
