// The host's data source over a local file, handed to plug-ins as a
// CDataSource (the platform's own file sources are framework-side classes
// that plug-ins never see). Like
// the platform's caching sources it makes small reads cheap: the file is
// mapped, and a read is a copy (pread when the file cannot be mapped), after
// which the bytes that follow are prefetched.
#ifndef QMKVHOST_FILE_SOURCE_H_
#define QMKVHOST_FILE_SOURCE_H_

#include <media/MediaExtractorPluginApi.h>

namespace qmkvhost {

class FileSource {
public:
    explicit FileSource(const char *path);
    ~FileSource();
    FileSource(const FileSource &) = delete;
    FileSource &operator=(const FileSource &) = delete;

    android::status_t initCheck() const { return mFd >= 0 ? android::OK : android::NO_INIT; }
    ssize_t readAt(off64_t offset, void *data, size_t size);
    android::status_t getSize(off64_t *size);
    uint32_t flags() const { return kIsLocalFileSource | kSeekable; }

    // The C view the framework hands to a plug-in; valid while this object lives.
    android::CDataSource *wrap() { return &mWrapper; }

    enum Flags { kIsLocalFileSource = 16, kSeekable = 32 };

private:
    int mFd;
    off64_t mLength;
    const uint8_t *mMap;
    android::CDataSource mWrapper;
};

}  // namespace qmkvhost

#endif  // QMKVHOST_FILE_SOURCE_H_
