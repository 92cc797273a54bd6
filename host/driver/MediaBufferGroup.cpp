#include <qmkvhost/MediaBufferGroup.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include <utils/Log.h>

#include <sanitizer/asan_interface.h>  // its marks do nothing without ASan
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
#define VALGRIND_MAKE_MEM_NOACCESS(addr, size) ((void)(addr), (void)(size))
#define VALGRIND_MAKE_MEM_UNDEFINED(addr, size) ((void)(addr), (void)(size))
#endif

#undef LOG_TAG
#define LOG_TAG "MediaBufferGroup"

namespace qmkvhost {

using android::CMediaBuffer;

// What a group and its buffers share. Buffers keep it alive, so a buffer
// released after its group is gone still finds the lock it needs.
struct MediaBuffer::Pool {
    std::mutex lock;
    std::condition_variable available;  // a buffer was released or added
    std::vector<MediaBuffer *> buffers;  // owned; emptied when the group goes
    size_t growthLimit = 0;
    bool orphaned = false;  // the group is gone; held buffers free themselves
};

namespace {

MediaBuffer *buf(void *handle) { return static_cast<MediaBuffer *>(handle); }

void recordRelease(void *h) { buf(h)->release(); }
void *recordData(void *h) { return buf(h)->data(); }
size_t recordSize(void *h) { return buf(h)->size(); }
size_t recordRangeOffset(void *h) { return buf(h)->range_offset(); }
size_t recordRangeLength(void *h) { return buf(h)->range_length(); }
void recordSetRange(void *h, size_t offset, size_t length) { buf(h)->set_range(offset, length); }
AMediaFormat *recordMetaData(void *h) { return buf(h)->meta_data(); }

MediaBufferGroup *group(void *handle) { return static_cast<MediaBufferGroup *>(handle); }

// Buffer memory of the sizes a plug-in asks for at every track start (its
// maximum input sizes, 1.5 MiB and up) is kept for the next buffer of the
// same size, as the C library's allocator does on its own: fresh pages of
// that size cost more than demuxing a small file. A kept block is marked
// unaddressable for the memory checkers, and a reused one unwritten, so a
// stale pointer or a read of bytes never written is still reported.
class BlockCache {
public:
    uint8_t *take(size_t size) {
        std::lock_guard<std::mutex> lock(mLock);
        for (size_t i = 0; i < mBlocks.size(); ++i) {
            if (mBlocks[i].size != size) continue;
            uint8_t *block = mBlocks[i].bytes;
            mBlocks.erase(mBlocks.begin() + (ptrdiff_t)i);
            markUnwritten(block, size);
            return block;
        }
        return nullptr;
    }
    bool keep(uint8_t *block, size_t size) {
        std::lock_guard<std::mutex> lock(mLock);
        if (mBlocks.size() >= kMaxBlocks) return false;
        mBlocks.push_back({block, size});
        markUnaddressable(block, size);
        return true;
    }

private:
    static const size_t kMaxBlocks = 8;
    struct Kept {
        uint8_t *bytes;
        size_t size;
    };
    static void markUnaddressable(uint8_t *block, size_t size) {
        ASAN_POISON_MEMORY_REGION(block, size);
        VALGRIND_MAKE_MEM_NOACCESS(block, size);
    }
    static void markUnwritten(uint8_t *block, size_t size) {
        ASAN_UNPOISON_MEMORY_REGION(block, size);
        VALGRIND_MAKE_MEM_UNDEFINED(block, size);
    }
    std::mutex mLock;
    std::vector<Kept> mBlocks;
};

BlockCache &blockCache() {
    static BlockCache *cache = new BlockCache;  // outlives buffers freed at exit
    return *cache;
}

bool groupInit(void *h, size_t buffers, size_t bufferSize, size_t growthLimit) {
    return group(h)->init(buffers, bufferSize, growthLimit);
}
void groupAddBuffer(void *h, size_t size) { group(h)->add_buffer(size); }
media_status_t groupAcquire(void *h, CMediaBuffer **out, bool nonBlocking, size_t requestedSize) {
    MediaBuffer *buffer = nullptr;
    media_status_t status = group(h)->acquire_buffer(&buffer, nonBlocking, requestedSize);
    *out = status == AMEDIA_OK ? buffer->wrap() : nullptr;
    return status;
}
bool groupHasBuffers(void *h) { return group(h)->has_buffers(); }

}  // namespace

MediaBuffer::Block MediaBuffer::newBlock(size_t size) {
    uint8_t *block = blockCache().take(size);
    return Block(block != nullptr ? block : new uint8_t[size], BlockReturn{size});
}

void MediaBuffer::BlockReturn::operator()(uint8_t *block) const {
    if (!blockCache().keep(block, size)) delete[] block;
}

MediaBuffer::MediaBuffer(std::shared_ptr<Pool> pool, size_t size)
    : mPool(std::move(pool)), mData(newBlock(size)), mSize(size), mRangeLength(size), mMeta(AMediaFormat_new()) {
    mRecord.handle = this;
    mRecord.release = recordRelease;
    mRecord.data = recordData;
    mRecord.size = recordSize;
    mRecord.range_offset = recordRangeOffset;
    mRecord.range_length = recordRangeLength;
    mRecord.set_range = recordSetRange;
    mRecord.meta_data = recordMetaData;
}

MediaBuffer::~MediaBuffer() {
    AMediaFormat_delete(mMeta);
}

void MediaBuffer::set_range(size_t offset, size_t length) {
    LOG_ALWAYS_FATAL_IF(offset > mSize || length > mSize - offset,
                        "set_range(%zu, %zu) outside a buffer of %zu bytes", offset, length, mSize);
    mRangeOffset = offset;
    mRangeLength = length;
}

void MediaBuffer::release() {
    bool orphaned;
    {
        std::lock_guard<std::mutex> lock(mPool->lock);
        LOG_ALWAYS_FATAL_IF(!mHeld, "release of a buffer that is not held");
        mHeld = false;
        orphaned = mPool->orphaned;
        // Notified under the lock: once it is dropped the group may free us.
        if (!orphaned) mPool->available.notify_all();
    }
    if (orphaned) delete this;
}

bool MediaBuffer::isHeld() const {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return mHeld;
}

MediaBuffer *MediaBuffer::fromRecord(CMediaBuffer *record) {
    if (record == nullptr || record->release != recordRelease) return nullptr;
    return buf(record->handle);
}

MediaBufferGroup::MediaBufferGroup(size_t growthLimit) : mPool(std::make_shared<MediaBuffer::Pool>()) {
    mPool->growthLimit = growthLimit;
    mRecord.handle = this;
    mRecord.init = groupInit;
    mRecord.add_buffer = groupAddBuffer;
    mRecord.acquire_buffer = groupAcquire;
    mRecord.has_buffers = groupHasBuffers;
}

MediaBufferGroup::~MediaBufferGroup() {
    std::lock_guard<std::mutex> lock(mPool->lock);
    mPool->orphaned = true;
    size_t held = 0;
    for (MediaBuffer *b : mPool->buffers) {
        if (b->mHeld) {
            ++held;
        } else {
            delete b;
        }
    }
    mPool->buffers.clear();
    if (held > 0) ALOGW("group destroyed with %zu buffers still held", held);
}

bool MediaBufferGroup::init(size_t buffers, size_t bufferSize, size_t growthLimit) {
    std::lock_guard<std::mutex> lock(mPool->lock);
    if (!mPool->buffers.empty()) return false;
    mPool->growthLimit = std::max(growthLimit, buffers);
    for (size_t i = 0; i < buffers; ++i) mPool->buffers.push_back(new MediaBuffer(mPool, bufferSize));
    return true;
}

void MediaBufferGroup::add_buffer(size_t size) {
    std::lock_guard<std::mutex> lock(mPool->lock);
    mPool->buffers.push_back(new MediaBuffer(mPool, size));
    mPool->available.notify_all();  // a waiting acquire may take it
}

media_status_t MediaBufferGroup::acquire_buffer(MediaBuffer **out, bool nonBlocking, size_t requestedSize) {
    *out = nullptr;
    std::unique_lock<std::mutex> lock(mPool->lock);
    std::vector<MediaBuffer *> &buffers = mPool->buffers;
    for (;;) {
        MediaBuffer *chosen = nullptr;
        MediaBuffer *tooSmall = nullptr;
        size_t largest = 0;
        for (MediaBuffer *b : buffers) {
            largest = std::max(largest, b->size());
            if (b->mHeld) continue;
            if (b->size() >= requestedSize) {
                chosen = b;
                break;
            }
            if (tooSmall == nullptr) tooSmall = b;
        }
        if (chosen == nullptr && tooSmall != nullptr) {
            // A new block: what the old one held is not kept.
            tooSmall->mData = MediaBuffer::newBlock(requestedSize);
            tooSmall->mSize = requestedSize;
            chosen = tooSmall;
        }
        if (chosen == nullptr && buffers.size() < mPool->growthLimit) {
            chosen = new MediaBuffer(mPool, std::max(requestedSize, largest));
            buffers.push_back(chosen);
        }
        if (chosen != nullptr) {
            chosen->mHeld = true;
            chosen->mRangeOffset = 0;
            chosen->mRangeLength = chosen->mSize;
            AMediaFormat_clear(chosen->mMeta);
            *out = chosen;
            return AMEDIA_OK;
        }
        if (buffers.empty()) {
            ALOGE("acquire_buffer on a group without buffers that may not grow");
            return AMEDIA_ERROR_INVALID_OPERATION;
        }
        if (nonBlocking) return AMEDIA_ERROR_WOULD_BLOCK;
        mPool->available.wait(lock);
    }
}

bool MediaBufferGroup::has_buffers() {
    std::lock_guard<std::mutex> lock(mPool->lock);
    if (mPool->buffers.size() < mPool->growthLimit) return true;
    for (MediaBuffer *b : mPool->buffers) {
        if (!b->mHeld) return true;
    }
    return false;
}

size_t MediaBufferGroup::buffer_count() {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return mPool->buffers.size();
}

size_t MediaBufferGroup::held_count() {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return static_cast<size_t>(
        std::count_if(mPool->buffers.begin(), mPool->buffers.end(), [](MediaBuffer *b) { return b->mHeld; }));
}

}  // namespace qmkvhost
