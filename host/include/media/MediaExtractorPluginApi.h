// Host copy of the Android media extractor plug-in C interface, definition
// version 3 (the second NDK-based one). Layout and names match the platform
// so plug-in sources build unchanged and a plug-in built for the host is
// driven exactly as the framework drives it.
#ifndef MEDIA_EXTRACTOR_PLUGIN_API_H_
#define MEDIA_EXTRACTOR_PLUGIN_API_H_

#include <stdint.h>
#include <sys/types.h>

#include <media/NdkMediaError.h>
#include <utils/Errors.h>

struct AMediaFormat;

namespace android {

extern "C" {

// A random-access byte source handed to the plug-in by the framework.
struct CDataSource {
    ssize_t (*readAt)(void *handle, off64_t offset, void *data, size_t size);
    status_t (*getSize)(void *handle, off64_t *size);
    uint32_t (*flags)(void *handle);
    bool (*getUri)(void *handle, char *uriString, size_t bufferSize);
    void *handle;
};

// The `options` word of CMediaTrack::read: a seek mode in the low three bits,
// valid only with SEEK set.
enum CMediaTrackReadOptions : uint32_t {
    SEEK_PREVIOUS_SYNC = 0,
    SEEK_NEXT_SYNC = 1,
    SEEK_CLOSEST_SYNC = 2,
    SEEK_CLOSEST = 3,
    SEEK_FRAME_INDEX = 4,
    SEEK = 8,
    NONBLOCKING = 16
};

// A framework-owned media buffer. A plug-in only uses buffers it acquired
// from the group the framework passed to CMediaTrack::start.
struct CMediaBuffer {
    void *handle;
    void (*release)(void *handle);
    void *(*data)(void *handle);
    size_t (*size)(void *handle);
    size_t (*range_offset)(void *handle);
    size_t (*range_length)(void *handle);
    void (*set_range)(void *handle, size_t offset, size_t length);
    AMediaFormat *(*meta_data)(void *handle);
};

// A framework-owned pool of media buffers.
struct CMediaBufferGroup {
    void *handle;
    bool (*init)(void *handle, size_t buffers, size_t buffer_size, size_t growthLimit);
    void (*add_buffer)(void *handle, size_t size);
    media_status_t (*acquire_buffer)(void *handle, CMediaBuffer **buffer, bool nonBlocking,
                                     size_t requestedSize);
    bool (*has_buffers)(void *handle);
};

// One track of an extractor, as the plug-in exposes it.
struct CMediaTrack {
    void *data;
    void (*free)(void *data);

    media_status_t (*start)(void *data, CMediaBufferGroup *bufferGroup);
    media_status_t (*stop)(void *data);
    media_status_t (*getFormat)(void *data, AMediaFormat *format);
    media_status_t (*read)(void *data, CMediaBuffer **buffer, uint32_t options, int64_t seekPosUs);
    bool (*supportsNonBlockingRead)(void *data);
};

// The extractor object a plug-in's creator returns.
struct CMediaExtractor {
    void *data;

    void (*free)(void *data);
    size_t (*countTracks)(void *data);
    CMediaTrack *(*getTrack)(void *data, size_t index);
    media_status_t (*getTrackMetaData)(void *data, AMediaFormat *meta, size_t index, uint32_t flags);
    media_status_t (*getMetaData)(void *data, AMediaFormat *meta);
    uint32_t (*flags)(void *data);
    media_status_t (*setMediaCas)(void *data, const uint8_t *casToken, size_t size);
    const char *(*name)(void *data);
};

typedef CMediaExtractor *(*CreatorFunc)(CDataSource *source, void *meta);
typedef void (*FreeMetaFunc)(void *meta);

// Returns the creator when the plug-in claims the source, and its confidence
// in [0, 1]. It may leave an opaque `meta` for the creator; the framework
// passes it on and then frees it with `freeMeta` when that is set.
typedef CreatorFunc (*SnifferFunc)(CDataSource *source, float *confidence, void **meta,
                                   FreeMetaFunc *freeMeta);

typedef struct {
    const uint8_t b[16];
} media_uuid_t;

struct ExtractorDef {
    const uint32_t def_version;  // EXTRACTORDEF_VERSION_* of this record
    media_uuid_t extractor_uuid;
    // Among plug-ins with the same uuid, the highest version wins.
    const uint32_t extractor_version;
    const char *extractor_name;

    union {
        struct {
            SnifferFunc sniff;
        } v2;
        struct {
            SnifferFunc sniff;
            // Null-terminated list of container MIME types and file extensions.
            const char **supported_types;
        } v3;
    } u;
};

const uint32_t EXTRACTORDEF_VERSION_LEGACY = 1;  // the C++ interface of P; not supported
const uint32_t EXTRACTORDEF_VERSION_NDK_V1 = 2;
const uint32_t EXTRACTORDEF_VERSION_NDK_V2 = 3;
const uint32_t EXTRACTORDEF_VERSION = EXTRACTORDEF_VERSION_NDK_V2;

// Every plug-in library exports one function of this type, named
// GETEXTRACTORDEF.
typedef ExtractorDef (*GetExtractorDef)();

}  // extern "C"

}  // namespace android

#endif  // MEDIA_EXTRACTOR_PLUGIN_API_H_
