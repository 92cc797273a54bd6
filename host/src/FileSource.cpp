#include <media/stagefright/FileSource.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace android {

namespace {
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

FileSource::FileSource(const char *path) : mFd(-1), mLength(-1) {
    mFd = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (mFd >= 0 && fstat(mFd, &st) == 0) mLength = st.st_size;
    mWrapper.readAt = wrapReadAt;
    mWrapper.getSize = wrapGetSize;
    mWrapper.flags = wrapFlags;
    mWrapper.getUri = wrapGetUri;
    mWrapper.handle = this;
}

FileSource::~FileSource() {
    if (mFd >= 0) ::close(mFd);
}

ssize_t FileSource::readAt(off64_t offset, void *data, size_t size) {
    if (mFd < 0) return NO_INIT;
    if (offset < 0) return UNKNOWN_ERROR;
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

}  // namespace android
