// The framework's side of the plug-in buffers on the host (the host's own
// classes, not the platform's MediaBufferGroup): a pool of real
// buffers that a track source fills and the framework (here the host loader,
// tests or the probe) consumes and releases.
//
// A buffer is either free or held. acquire_buffer hands out a free one, reset
// to an empty metadata record and its full range; when none is free and the
// group may not grow, it waits until another thread releases one (or fails
// with AMEDIA_ERROR_WOULD_BLOCK when asked not to wait). Releasing a buffer
// returns it to its group. A group destroyed while buffers are still held
// leaves them to be freed by their last release.
#ifndef QMKVHOST_MEDIA_BUFFER_GROUP_H_
#define QMKVHOST_MEDIA_BUFFER_GROUP_H_

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

#include <media/MediaExtractorPluginApi.h>
#include <media/NdkMediaFormat.h>

namespace qmkvhost {

class MediaBufferGroup;

class MediaBuffer {
public:
    MediaBuffer(const MediaBuffer &) = delete;
    MediaBuffer &operator=(const MediaBuffer &) = delete;

    void *data() { return mData.get(); }
    size_t size() const { return mSize; }
    size_t range_offset() const { return mRangeOffset; }
    size_t range_length() const { return mRangeLength; }
    // Aborts when the range does not lie within the buffer.
    void set_range(size_t offset, size_t length);
    // The sample's metadata; owned by the buffer.
    AMediaFormat *meta_data() { return mMeta; }

    // Gives the buffer back to its group.
    void release();
    // Whether the buffer is currently handed out.
    bool isHeld() const;

    // The C record handed to plug-ins; valid while the buffer lives.
    android::CMediaBuffer *wrap() { return &mRecord; }
    // The host buffer behind a record this host made, or null for any other.
    static MediaBuffer *fromRecord(android::CMediaBuffer *record);

private:
    friend class MediaBufferGroup;
    struct Pool;

    MediaBuffer(std::shared_ptr<Pool> pool, size_t size);
    ~MediaBuffer();

    // Gives a buffer's memory back for the next buffer of its size.
    struct BlockReturn {
        size_t size;
        void operator()(uint8_t *block) const;
    };
    using Block = std::unique_ptr<uint8_t[], BlockReturn>;
    static Block newBlock(size_t size);

    std::shared_ptr<Pool> mPool;
    // Not zero-filled, as on a device: a track source writes before it sets
    // the range, and memory checkers see any read of bytes never written.
    Block mData;
    size_t mSize;
    size_t mRangeOffset = 0;
    size_t mRangeLength = 0;
    AMediaFormat *mMeta;
    bool mHeld = false;  // guarded by the pool's lock
    android::CMediaBuffer mRecord;
};

class MediaBufferGroup {
public:
    // With a growth limit above 0, acquire_buffer allocates a new buffer
    // (while fewer than that many exist) instead of waiting.
    explicit MediaBufferGroup(size_t growthLimit = 0);
    ~MediaBufferGroup();
    MediaBufferGroup(const MediaBufferGroup &) = delete;
    MediaBufferGroup &operator=(const MediaBufferGroup &) = delete;

    // Adds `buffers` buffers of `bufferSize` bytes and sets the growth limit
    // (never below the number of buffers). False when buffers already exist.
    bool init(size_t buffers, size_t bufferSize, size_t growthLimit = 0);
    void add_buffer(size_t size);

    // A free buffer of at least `requestedSize` bytes (a smaller free one is
    // enlarged). AMEDIA_ERROR_WOULD_BLOCK when none is free and `nonBlocking`;
    // AMEDIA_ERROR_INVALID_OPERATION when the group holds no buffer at all
    // and may not grow, since waiting could never end.
    media_status_t acquire_buffer(MediaBuffer **out, bool nonBlocking = false, size_t requestedSize = 0);
    // True when acquire_buffer would not wait.
    bool has_buffers();

    size_t buffer_count();
    size_t held_count();

    // The C record handed to a track's start; valid while the group lives.
    android::CMediaBufferGroup *wrap() { return &mRecord; }

private:
    std::shared_ptr<MediaBuffer::Pool> mPool;
    android::CMediaBufferGroup mRecord;
};

}  // namespace qmkvhost

#endif  // QMKVHOST_MEDIA_BUFFER_GROUP_H_
