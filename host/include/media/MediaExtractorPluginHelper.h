// Host copy of the platform's C++ helpers over the extractor plug-in C
// interface: base classes a plug-in derives from, thin wrappers over the
// framework's buffers, and the wrap() functions that turn a helper object into
// the C record the framework calls. Names and behaviour follow the platform so
// plug-in sources build unchanged.
#ifndef MEDIA_EXTRACTOR_PLUGIN_HELPER_H_
#define MEDIA_EXTRACTOR_PLUGIN_HELPER_H_

#include <stdint.h>
#include <stdlib.h>

#include <map>

#include <media/MediaExtractorPluginApi.h>
#include <media/NdkMediaFormat.h>
#include <utils/Errors.h>

namespace android {

class MediaTrackHelper;
CMediaTrack *wrap(MediaTrackHelper *track);

// A plug-in's view of one framework buffer.
class MediaBufferHelper {
public:
    explicit MediaBufferHelper(CMediaBuffer *buffer) : mBuffer(buffer) {}
    virtual ~MediaBufferHelper() {}

    // Gives the buffer back to its group.
    virtual void release() { mBuffer->release(mBuffer->handle); }
    virtual void *data() { return mBuffer->data(mBuffer->handle); }
    // Capacity in bytes.
    virtual size_t size() { return mBuffer->size(mBuffer->handle); }
    // The valid bytes: [range_offset, range_offset + range_length).
    virtual size_t range_offset() { return mBuffer->range_offset(mBuffer->handle); }
    virtual size_t range_length() { return mBuffer->range_length(mBuffer->handle); }
    virtual void set_range(size_t offset, size_t length) {
        mBuffer->set_range(mBuffer->handle, offset, length);
    }
    // The sample's metadata (time, sync flag, ...); owned by the buffer.
    virtual AMediaFormat *meta_data() { return mBuffer->meta_data(mBuffer->handle); }

private:
    friend CMediaTrack *wrap(MediaTrackHelper *track);
    CMediaBuffer *mBuffer;
};

// A plug-in's view of the framework's buffer group for one track. It keeps
// one MediaBufferHelper per framework buffer, so the same buffer always comes
// back as the same helper object.
class MediaBufferGroupHelper {
public:
    explicit MediaBufferGroupHelper(CMediaBufferGroup *group) : mGroup(group) {}
    ~MediaBufferGroupHelper() {
        for (auto &entry : mBufferHelpers) delete entry.second;
    }
    MediaBufferGroupHelper(const MediaBufferGroupHelper &) = delete;
    MediaBufferGroupHelper &operator=(const MediaBufferGroupHelper &) = delete;

    bool init(size_t buffers, size_t buffer_size, size_t growthLimit = 0) {
        return mGroup->init(mGroup->handle, buffers, buffer_size, growthLimit);
    }
    void add_buffer(size_t size) { mGroup->add_buffer(mGroup->handle, size); }

    // Takes a free buffer of at least `requestedSize` bytes, waiting for one
    // to be released unless `nonBlocking`. *buffer is null on failure.
    media_status_t acquire_buffer(MediaBufferHelper **buffer, bool nonBlocking = false,
                                  size_t requestedSize = 0) {
        CMediaBuffer *raw = nullptr;
        media_status_t status = mGroup->acquire_buffer(mGroup->handle, &raw, nonBlocking, requestedSize);
        *buffer = nullptr;
        if (status != AMEDIA_OK || raw == nullptr) return status;
        MediaBufferHelper *&helper = mBufferHelpers[raw];
        if (helper == nullptr) helper = new MediaBufferHelper(raw);
        *buffer = helper;
        return status;
    }

    // True when acquire_buffer would not have to wait.
    bool has_buffers() { return mGroup->has_buffers(mGroup->handle); }

private:
    CMediaBufferGroup *mGroup;
    std::map<CMediaBuffer *, MediaBufferHelper *> mBufferHelpers;
};

// Base class of a plug-in's track.
class MediaTrackHelper {
public:
    MediaTrackHelper() : mBufferGroup(nullptr) {}
    virtual ~MediaTrackHelper() { delete mBufferGroup; }
    MediaTrackHelper(const MediaTrackHelper &) = delete;
    MediaTrackHelper &operator=(const MediaTrackHelper &) = delete;

    // mBufferGroup is set when start() runs.
    virtual media_status_t start() = 0;
    virtual media_status_t stop() = 0;
    virtual media_status_t getFormat(AMediaFormat *format) = 0;

    // The framework's read request: an optional seek and the non-blocking bit.
    class ReadOptions {
    public:
        enum SeekMode : int32_t {
            SEEK_PREVIOUS_SYNC,
            SEEK_NEXT_SYNC,
            SEEK_CLOSEST_SYNC,
            SEEK_CLOSEST,
            SEEK_FRAME_INDEX,
        };

        ReadOptions(uint32_t options, int64_t seekPosUs) : mOptions(options), mSeekPosUs(seekPosUs) {}

        // False when no seek is asked for; otherwise the target and the mode.
        bool getSeekTo(int64_t *time_us, SeekMode *mode) const {
            if ((mOptions & CMediaTrackReadOptions::SEEK) == 0) return false;
            *time_us = mSeekPosUs;
            *mode = static_cast<SeekMode>(mOptions & 7);
            return true;
        }
        bool getNonBlocking() const { return (mOptions & CMediaTrackReadOptions::NONBLOCKING) != 0; }

    private:
        uint32_t mOptions;
        int64_t mSeekPosUs;
    };

    // On AMEDIA_OK *buffer is a buffer of mBufferGroup holding one sample,
    // which the caller releases.
    virtual media_status_t read(MediaBufferHelper **buffer, const ReadOptions *options = nullptr) = 0;
    virtual bool supportsNonBlockingRead() { return false; }

protected:
    friend CMediaTrack *wrap(MediaTrackHelper *track);
    MediaBufferGroupHelper *mBufferGroup;
};

// The C record for `track`, or null for null. The record owns the track: its
// free entry deletes it, and the framework then frees the record itself.
inline CMediaTrack *wrap(MediaTrackHelper *track) {
    if (track == nullptr) return nullptr;
    CMediaTrack *record = static_cast<CMediaTrack *>(malloc(sizeof(CMediaTrack)));
    if (record == nullptr) {
        delete track;
        return nullptr;
    }
    record->data = track;
    record->free = [](void *data) { delete static_cast<MediaTrackHelper *>(data); };
    record->start = [](void *data, CMediaBufferGroup *group) -> media_status_t {
        MediaTrackHelper *self = static_cast<MediaTrackHelper *>(data);
        // Each start may come with another group; the helpers of the old one go.
        delete self->mBufferGroup;
        self->mBufferGroup = new MediaBufferGroupHelper(group);
        return self->start();
    };
    record->stop = [](void *data) -> media_status_t { return static_cast<MediaTrackHelper *>(data)->stop(); };
    record->getFormat = [](void *data, AMediaFormat *format) -> media_status_t {
        return static_cast<MediaTrackHelper *>(data)->getFormat(format);
    };
    record->read = [](void *data, CMediaBuffer **buffer, uint32_t options, int64_t seekPosUs) -> media_status_t {
        MediaTrackHelper::ReadOptions opts(options, seekPosUs);
        MediaBufferHelper *out = nullptr;
        media_status_t status = static_cast<MediaTrackHelper *>(data)->read(&out, &opts);
        *buffer = (status == AMEDIA_OK && out != nullptr) ? out->mBuffer : nullptr;
        return status;
    };
    record->supportsNonBlockingRead = [](void *data) -> bool {
        return static_cast<MediaTrackHelper *>(data)->supportsNonBlockingRead();
    };
    return record;
}

// Base class of a plug-in's extractor.
class MediaExtractorPluginHelper {
public:
    virtual ~MediaExtractorPluginHelper() {}
    MediaExtractorPluginHelper(const MediaExtractorPluginHelper &) = delete;
    MediaExtractorPluginHelper &operator=(const MediaExtractorPluginHelper &) = delete;

    virtual size_t countTracks() = 0;
    // A new track object, owned by the caller; called once per track.
    virtual MediaTrackHelper *getTrack(size_t index) = 0;

    enum GetTrackMetaDataFlags { kIncludeExtensiveMetaData = 1 };
    virtual media_status_t getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t flags = 0) = 0;

    // The container's own metadata.
    virtual media_status_t getMetaData(AMediaFormat *meta) = 0;

    enum Flags {
        CAN_SEEK_BACKWARD = 1,  // skip back a few seconds
        CAN_SEEK_FORWARD = 2,   // skip ahead a few seconds
        CAN_PAUSE = 4,
        CAN_SEEK = 8,  // seek anywhere
    };
    virtual uint32_t flags() const { return CAN_SEEK_BACKWARD | CAN_SEEK_FORWARD | CAN_SEEK | CAN_PAUSE; }

    virtual media_status_t setMediaCas(const uint8_t * /*casToken*/, size_t /*size*/) {
        return AMEDIA_ERROR_INVALID_OPERATION;
    }

    virtual const char *name() { return "<unspecified>"; }

protected:
    MediaExtractorPluginHelper() {}
};

// The C record for `extractor`; as for tracks, the record owns the object.
inline CMediaExtractor *wrap(MediaExtractorPluginHelper *extractor) {
    if (extractor == nullptr) return nullptr;
    CMediaExtractor *record = static_cast<CMediaExtractor *>(malloc(sizeof(CMediaExtractor)));
    if (record == nullptr) {
        delete extractor;
        return nullptr;
    }
    record->data = extractor;
    record->free = [](void *data) { delete static_cast<MediaExtractorPluginHelper *>(data); };
    record->countTracks = [](void *data) -> size_t {
        return static_cast<MediaExtractorPluginHelper *>(data)->countTracks();
    };
    record->getTrack = [](void *data, size_t index) -> CMediaTrack * {
        return wrap(static_cast<MediaExtractorPluginHelper *>(data)->getTrack(index));
    };
    record->getTrackMetaData = [](void *data, AMediaFormat *meta, size_t index, uint32_t flags) -> media_status_t {
        return static_cast<MediaExtractorPluginHelper *>(data)->getTrackMetaData(meta, index, flags);
    };
    record->getMetaData = [](void *data, AMediaFormat *meta) -> media_status_t {
        return static_cast<MediaExtractorPluginHelper *>(data)->getMetaData(meta);
    };
    record->flags = [](void *data) -> uint32_t { return static_cast<MediaExtractorPluginHelper *>(data)->flags(); };
    record->setMediaCas = [](void *data, const uint8_t *casToken, size_t size) -> media_status_t {
        return static_cast<MediaExtractorPluginHelper *>(data)->setMediaCas(casToken, size);
    };
    record->name = [](void *data) -> const char * { return static_cast<MediaExtractorPluginHelper *>(data)->name(); };
    return record;
}

// A plug-in's view of the framework's data source.
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

protected:
    CDataSource *mSource;
};

}  // namespace android

#endif  // MEDIA_EXTRACTOR_PLUGIN_HELPER_H_
