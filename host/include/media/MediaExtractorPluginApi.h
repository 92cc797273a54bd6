// Host copy of the Android media extractor plug-in C interface.
// Layout and names match the platform so plug-in sources build unchanged.
#ifndef MEDIA_EXTRACTOR_PLUGIN_API_H_
#define MEDIA_EXTRACTOR_PLUGIN_API_H_

#include <stdint.h>
#include <sys/types.h>
#include <utils/Errors.h>

extern "C" {

// A random-access byte source handed to the plug-in by the framework.
struct CDataSource {
    ssize_t (*readAt)(void *handle, off64_t offset, void *data, size_t size);
    android::status_t (*getSize)(void *handle, off64_t *size);
    uint32_t (*flags)(void *handle);
    bool (*getUri)(void *handle, char *uriString, size_t bufferSize);
    void *handle;
};

}  // extern "C"

#endif  // MEDIA_EXTRACTOR_PLUGIN_API_H_
