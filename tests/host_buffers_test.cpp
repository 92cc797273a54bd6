// The host's buffer group, the plug-in helpers' wrap() records and the
// loader that drives them behave as the framework's do.
#include <gtest/gtest.h>

#include <string.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <media/MediaExtractorPluginHelper.h>
#include <qmkvhost/ExtractorHost.h>
#include <qmkvhost/MediaBufferGroup.h>

using qmkvhost::MediaBuffer;
using qmkvhost::MediaBufferGroup;
using android::MediaBufferHelper;
using android::MediaTrackHelper;
using qmkvhost::Sample;

namespace {

TEST(HostBufferGroup, AcquiredBuffersComeResetGoBackOnReleaseAndAreKnownByTheirRecord) {
    MediaBufferGroup group;
    ASSERT_TRUE(group.init(2, 8));
    EXPECT_FALSE(group.init(1, 8));  // only once
    MediaBuffer *a = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&a));
    EXPECT_TRUE(a->isHeld());
    a->set_range(2, 3);
    AMediaFormat_setInt64(a->meta_data(), AMEDIAFORMAT_KEY_TIME_US, 5);
    a->release();
    EXPECT_FALSE(a->isHeld());

    MediaBuffer *again = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&again));
    EXPECT_EQ(a, again);  // the first free one
    EXPECT_EQ(0u, again->range_offset());
    EXPECT_EQ(8u, again->range_length());
    int64_t t;
    EXPECT_FALSE(AMediaFormat_getInt64(again->meta_data(), AMEDIAFORMAT_KEY_TIME_US, &t));
    EXPECT_EQ(1u, group.held_count());
    // Only records of this host's buffers lead back to a buffer.
    EXPECT_EQ(again, MediaBuffer::fromRecord(again->wrap()));
    android::CMediaBuffer foreign = *again->wrap();
    foreign.release = [](void *) {};
    EXPECT_EQ(nullptr, MediaBuffer::fromRecord(&foreign));
    EXPECT_EQ(nullptr, MediaBuffer::fromRecord(nullptr));
    again->release();
}

TEST(HostBufferGroup, BlockingAcquireWaitsForAReleaseFromAnotherThread) {
    MediaBufferGroup group;
    group.add_buffer(4);
    MediaBuffer *held = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&held));
    MediaBuffer *got = nullptr;
    auto waiter = std::async(std::launch::async, [&] { return group.acquire_buffer(&got); });
    EXPECT_EQ(std::future_status::timeout, waiter.wait_for(std::chrono::milliseconds(100)));
    held->release();
    if (waiter.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        group.add_buffer(4);  // let the stuck waiter go so the test can end
        FAIL() << "acquire_buffer did not wake on release";
    }
    EXPECT_EQ(AMEDIA_OK, waiter.get());
    EXPECT_EQ(held, got);
    got->release();
}

// Non-blocking requests: grow a free buffer, add one within the limit, or report why not.
TEST(HostBufferGroup, SizeRequestsGrowAFreeBufferOrAddOneWithinTheLimit) {
    // Growth limit; existing: 0 none, 1 one free buffer of 8 bytes, 2 that buffer held; the size asked for;
    // the status, size of the buffer handed out and buffers in the group afterwards.
    const struct { size_t limit; int existing; size_t asked; media_status_t status; size_t size, buffers; } cases[] = {
        {0, 1, 0, AMEDIA_OK, 8, 1},
        {0, 1, 8, AMEDIA_OK, 8, 1},
        {0, 1, 100, AMEDIA_OK, 100, 1},  // the free one is enlarged
        {0, 2, 0, AMEDIA_ERROR_WOULD_BLOCK, 0, 1},
        {2, 2, 0, AMEDIA_OK, 8, 2},    // a new one like the others
        {2, 2, 50, AMEDIA_OK, 50, 2},  // a new one of the requested size
        {0, 0, 0, AMEDIA_ERROR_INVALID_OPERATION, 0, 0},  // would wait forever
        {1, 0, 16, AMEDIA_OK, 16, 1},
    };
    for (const auto &c : cases) {
        MediaBufferGroup group(c.limit);
        MediaBuffer *first = nullptr;
        if (c.existing > 0) group.add_buffer(8);
        if (c.existing == 2) {
            ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&first));
        }
        MediaBuffer *got = reinterpret_cast<MediaBuffer *>(1);
        EXPECT_EQ(c.status, group.acquire_buffer(&got, true, c.asked)) << c.asked;
        if (c.status != AMEDIA_OK) {
            EXPECT_EQ(nullptr, got);
        } else {
            ASSERT_NE(nullptr, got);
            EXPECT_EQ(c.size, got->size());
            EXPECT_EQ(c.size, got->range_length());
            got->release();
        }
        EXPECT_EQ(c.buffers, group.buffer_count());
        EXPECT_EQ(c.buffers > (c.existing == 2 ? 1u : 0u), group.has_buffers());
        if (first != nullptr) first->release();
    }
}

TEST(HostBufferGroupDeathTest, ARangeOutsideTheBufferIsFatal) {
    MediaBufferGroup group;
    group.add_buffer(4);
    MediaBuffer *b = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&b));
    b->set_range(4, 0);
    EXPECT_DEATH(b->set_range(2, 3), "outside a buffer of 4 bytes");
    EXPECT_DEATH(b->set_range(5, 0), "outside");
    b->release();
}

// ------------------------------------------------ a trivial plug-in, wrapped

// What the trivial plug-in saw, kept by the test.
struct PluginLog {
    int tracksAlive = 0, extractorsAlive = 0;
    std::vector<MediaBufferHelper *> helpers;
} gLog;

// Serves 4-byte samples, each in a buffer of its own, and never waits for one.
class TinyTrack : public MediaTrackHelper {
public:
    TinyTrack() { ++gLog.tracksAlive; }
    ~TinyTrack() override { --gLog.tracksAlive; }
    media_status_t start() override {
        mBufferGroup->add_buffer(4);
        return AMEDIA_OK;
    }
    media_status_t stop() override { return AMEDIA_OK; }
    media_status_t getFormat(AMediaFormat *) override { return AMEDIA_OK; }
    media_status_t read(MediaBufferHelper **out, const ReadOptions *) override {
        media_status_t status = mBufferGroup->acquire_buffer(out, true);
        if (status != AMEDIA_OK) return status;
        memset((*out)->data(), 0x5A, 4);
        (*out)->set_range(0, 4);
        gLog.helpers.push_back(*out);
        return AMEDIA_OK;
    }
};

struct TinyExtractor : public android::MediaExtractorPluginHelper {
    TinyExtractor() { ++gLog.extractorsAlive; }
    ~TinyExtractor() override { --gLog.extractorsAlive; }
    size_t countTracks() override { return 1; }
    MediaTrackHelper *getTrack(size_t) override { return new TinyTrack(); }
    media_status_t getTrackMetaData(AMediaFormat *, size_t, uint32_t) override { return AMEDIA_OK; }
    media_status_t getMetaData(AMediaFormat *) override { return AMEDIA_OK; }
};

TEST(TinyPlugin, BuffersComeBackAndTracksAndSamplesOutliveWhatMadeThem) {
    gLog = {};
    auto extractor = std::make_unique<qmkvhost::Extractor>(android::wrap(new TinyExtractor()));
    std::unique_ptr<qmkvhost::Track> track = extractor->getTrack(0);
    ASSERT_NE(nullptr, track);
    extractor.reset();
    EXPECT_EQ(0, gLog.extractorsAlive);
    ASSERT_EQ(AMEDIA_OK, track->start());
    Sample s, none;
    ASSERT_EQ(AMEDIA_OK, track->read(&s));
    EXPECT_EQ(AMEDIA_ERROR_WOULD_BLOCK, track->read(&none));  // the only buffer is still out
    EXPECT_FALSE(none);
    ASSERT_EQ(AMEDIA_OK, track->read(&s));  // s gives its buffer back first
    // One helper object per framework buffer, however often it comes back.
    ASSERT_EQ(2u, gLog.helpers.size());
    EXPECT_EQ(gLog.helpers[0], gLog.helpers[1]);
    EXPECT_EQ(AMEDIA_OK, track->stop());
    // A restart gets the same group again; this plug-in adds a buffer each time.
    ASSERT_EQ(AMEDIA_OK, track->start());
    EXPECT_EQ(2u, track->bufferGroup().buffer_count());
    // The sample's buffer outlives the track's group; the sanitizer run checks its release.
    track.reset();
    EXPECT_EQ(0, gLog.tracksAlive);
    EXPECT_EQ(0x5A, static_cast<uint8_t *>(s->data())[3]);
    AMediaFormat_setInt32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, 1);
}

TEST(HostPlugin, AMissingLibraryIsRefusedByItsPath) {
    std::string error;
    EXPECT_FALSE(qmkvhost::Plugin::load("/nonexistent/libnothing.so", &error));
    EXPECT_NE(std::string::npos, error.find("/nonexistent/libnothing.so")) << error;
}

}  // namespace
