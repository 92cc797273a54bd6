// Host copy of the platform's C++ helpers over the extractor plug-in C interface.
#ifndef MEDIA_EXTRACTOR_PLUGIN_HELPER_H_
#define MEDIA_EXTRACTOR_PLUGIN_HELPER_H_

#include <media/MediaExtractorPluginApi.h>

namespace android {

class DataSourceHelper {
public:
    explicit DataSourceHelper(CDataSource *csource) : mSource(csource) {}
    explicit DataSourceHelper(DataSourceHelper *source) : mSource(source->mSource) {}
    virtual ~DataSourceHelper() {}

    virtual ssize_t readAt(off64_t offset, void *data, size_t size) {
        return mSource->readAt(mSource->handle, offset, data, size);
    }
    virtual status_t getSize(off64_t *size) {
        return mSource->getSize(mSource->handle, size);
    }
    bool getUri(char *uriString, size_t bufferSize) {
        return mSource->getUri(mSource->handle, uriString, bufferSize);
    }
    virtual uint32_t flags() {
        return mSource->flags(mSource->handle);
    }

    // Big-endian helpers.
    bool getUInt16(off64_t offset, uint16_t *x) {
        uint8_t b[2];
        if (readAt(offset, b, 2) != 2) return false;
        *x = (uint16_t)((b[0] << 8) | b[1]);
        return true;
    }
    bool getUInt24(off64_t offset, uint32_t *x) {
        uint8_t b[3];
        if (readAt(offset, b, 3) != 3) return false;
        *x = ((uint32_t)b[0] << 16) | ((uint32_t)b[1] << 8) | b[2];
        return true;
    }
    bool getUInt32(off64_t offset, uint32_t *x) {
        uint8_t b[4];
        if (readAt(offset, b, 4) != 4) return false;
        *x = ((uint32_t)b[0] << 24) | ((uint32_t)b[1] << 16) | ((uint32_t)b[2] << 8) | b[3];
        return true;
    }
    bool getUInt64(off64_t offset, uint64_t *x) {
        uint32_t hi, lo;
        if (!getUInt32(offset, &hi) || !getUInt32(offset + 4, &lo)) return false;
        *x = ((uint64_t)hi << 32) | lo;
        return true;
    }

protected:
    CDataSource *mSource;
};

}  // namespace android

#endif  // MEDIA_EXTRACTOR_PLUGIN_HELPER_H_
