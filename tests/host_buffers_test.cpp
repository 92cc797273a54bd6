// The host's buffer group, the plug-in helpers' wrap() records and the
// loader that drives them behave as the framework's do.
#include <gtest/gtest.h>

#include <string.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <host/ExtractorHost.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/stagefright/MediaBufferGroup.h>

using android::MediaBuffer;
using android::MediaBufferGroup;
using android::MediaBufferHelper;
using android::MediaTrackHelper;
using qmkvhost::Sample;

namespace {

// ---------------------------------------------------------------- buffer group

TEST(HostBufferGroup, AcquiredBuffersComeResetAndGoBackOnRelease) {
    MediaBufferGroup group;
    ASSERT_TRUE(group.init(2, 8));
    EXPECT_FALSE(group.init(1, 8));  // only once

    MediaBuffer *a = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&a));
    EXPECT_TRUE(a->isHeld());
    EXPECT_EQ(8u, a->size());
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
    again->release();
}

TEST(HostBufferGroup, NonBlockingAcquireReportsWouldBlockWhenAllAreHeld) {
    MediaBufferGroup group;
    group.add_buffer(4);
    MediaBuffer *held = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&held));
    EXPECT_FALSE(group.has_buffers());
    MediaBuffer *other = reinterpret_cast<MediaBuffer *>(1);
    EXPECT_EQ(AMEDIA_ERROR_WOULD_BLOCK, group.acquire_buffer(&other, true));
    EXPECT_EQ(nullptr, other);
    held->release();
    EXPECT_TRUE(group.has_buffers());
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

TEST(HostBufferGroup, SizeRequestsGrowAFreeBufferOrAddOneWithinTheLimit) {
    struct Case {
        size_t growthLimit;
        size_t existing;  // one buffer of 8 bytes, held or not
        bool existingHeld;
        size_t requested;
        media_status_t status;
        size_t size;     // of the buffer handed out
        size_t buffers;  // in the group afterwards
    };
    const Case cases[] = {
        {0, 1, false, 0, AMEDIA_OK, 8, 1},
        {0, 1, false, 8, AMEDIA_OK, 8, 1},
        {0, 1, false, 100, AMEDIA_OK, 100, 1},  // the free one is enlarged
        {0, 1, true, 0, AMEDIA_ERROR_WOULD_BLOCK, 0, 1},
        {2, 1, true, 0, AMEDIA_OK, 8, 2},    // a new one like the others
        {2, 1, true, 50, AMEDIA_OK, 50, 2},  // a new one of the requested size
        {0, 0, false, 0, AMEDIA_ERROR_INVALID_OPERATION, 0, 0},  // would wait forever
        {1, 0, false, 16, AMEDIA_OK, 16, 1},
    };
    for (const Case &c : cases) {
        MediaBufferGroup group(c.growthLimit);
        MediaBuffer *first = nullptr;
        if (c.existing > 0) {
            group.add_buffer(8);
            if (c.existingHeld) {
                ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&first));
            }
        }
        MediaBuffer *got = nullptr;
        EXPECT_EQ(c.status, group.acquire_buffer(&got, true, c.requested)) << c.requested;
        if (c.status == AMEDIA_OK) {
            ASSERT_NE(nullptr, got);
            EXPECT_EQ(c.size, got->size());
            EXPECT_EQ(c.size, got->range_length());
            got->release();
        }
        EXPECT_EQ(c.buffers, group.buffer_count());
        if (first != nullptr) first->release();
    }
}

TEST(HostBufferGroup, ABufferHeldPastItsGroupIsFreedByItsRelease) {
    MediaBuffer *held = nullptr;
    {
        MediaBufferGroup group;
        group.add_buffer(16);
        group.add_buffer(16);
        ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&held));
    }
    memset(held->data(), 0x5A, held->size());
    AMediaFormat_setInt32(held->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, 1);
    held->release();  // the sanitizer run checks nothing leaks or is touched after
}

TEST(HostBufferGroup, RecordsOnlyResolveToThisHostsBuffers) {
    MediaBufferGroup group;
    group.add_buffer(4);
    MediaBuffer *b = nullptr;
    ASSERT_EQ(AMEDIA_OK, group.acquire_buffer(&b));
    EXPECT_EQ(b, MediaBuffer::fromRecord(b->wrap()));
    android::CMediaBuffer foreign = *b->wrap();
    foreign.release = [](void *) {};
    EXPECT_EQ(nullptr, MediaBuffer::fromRecord(&foreign));
    EXPECT_EQ(nullptr, MediaBuffer::fromRecord(nullptr));
    b->release();
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

// ------------------------------------------------------------ read options

TEST(HostReadOptions, DecodeTheFrameworksOptionWord) {
    using Options = MediaTrackHelper::ReadOptions;
    struct Case {
        uint32_t options;
        bool seek;
        Options::SeekMode mode;
        bool nonBlocking;
    };
    const Case cases[] = {
        {0, false, Options::SEEK_PREVIOUS_SYNC, false},
        {android::SEEK_CLOSEST, false, Options::SEEK_PREVIOUS_SYNC, false},  // a mode without SEEK
        {android::SEEK | android::SEEK_PREVIOUS_SYNC, true, Options::SEEK_PREVIOUS_SYNC, false},
        {android::SEEK | android::SEEK_NEXT_SYNC, true, Options::SEEK_NEXT_SYNC, false},
        {android::SEEK | android::SEEK_CLOSEST_SYNC, true, Options::SEEK_CLOSEST_SYNC, false},
        {android::SEEK | android::SEEK_CLOSEST, true, Options::SEEK_CLOSEST, false},
        {android::SEEK | android::SEEK_FRAME_INDEX, true, Options::SEEK_FRAME_INDEX, false},
        {android::NONBLOCKING, false, Options::SEEK_PREVIOUS_SYNC, true},
        {android::SEEK | android::NONBLOCKING | 7, true, static_cast<Options::SeekMode>(7), true},
    };
    for (const Case &c : cases) {
        Options opts(c.options, 1234567);
        int64_t time = -1;
        Options::SeekMode mode = Options::SEEK_PREVIOUS_SYNC;
        EXPECT_EQ(c.seek, opts.getSeekTo(&time, &mode)) << c.options;
        if (c.seek) {
            EXPECT_EQ(1234567, time);
            EXPECT_EQ(c.mode, mode) << c.options;
        }
        EXPECT_EQ(c.nonBlocking, opts.getNonBlocking()) << c.options;
    }
}

// ------------------------------------------------ a trivial plug-in, wrapped

constexpr int kSamples = 10;

// What the trivial plug-in saw, kept by the test.
struct PluginLog {
    int tracksAlive = 0;
    int extractorsAlive = 0;
    int starts = 0;
    int stops = 0;
    std::vector<bool> seeks;
    std::vector<int> seekModes;
    std::vector<int64_t> seekTimes;
    std::vector<bool> nonBlocking;
    std::vector<MediaBufferHelper *> helpers;
    int metaFrees = 0;
};

// Serves kSamples samples of 4 bytes (the index, little-endian), 1 ms apart;
// a seek to t us continues from sample t / 1000.
class CountingTrack : public MediaTrackHelper {
public:
    CountingTrack(PluginLog *log, int id) : mLog(log), mId(id) { ++mLog->tracksAlive; }
    ~CountingTrack() override { --mLog->tracksAlive; }

    media_status_t start() override {
        ++mLog->starts;
        mBufferGroup->add_buffer(4);
        return AMEDIA_OK;
    }
    media_status_t stop() override {
        ++mLog->stops;
        return AMEDIA_OK;
    }
    media_status_t getFormat(AMediaFormat *format) override {
        AMediaFormat_setInt32(format, "id", mId);
        return AMEDIA_OK;
    }
    media_status_t read(MediaBufferHelper **out, const ReadOptions *options) override {
        *out = nullptr;
        int64_t time = 0;
        ReadOptions::SeekMode mode = ReadOptions::SEEK_PREVIOUS_SYNC;
        bool seek = options->getSeekTo(&time, &mode);
        mLog->seeks.push_back(seek);
        mLog->seekModes.push_back(mode);
        mLog->seekTimes.push_back(time);
        mLog->nonBlocking.push_back(options->getNonBlocking());
        if (seek) mNext = static_cast<int>(time / 1000);
        if (mNext >= kSamples) return AMEDIA_ERROR_END_OF_STREAM;
        MediaBufferHelper *buffer = nullptr;
        media_status_t status = mBufferGroup->acquire_buffer(&buffer, options->getNonBlocking());
        if (status != AMEDIA_OK) return status;
        uint32_t value = static_cast<uint32_t>(mNext);
        memcpy(buffer->data(), &value, 4);
        buffer->set_range(0, 4);
        AMediaFormat_setInt64(buffer->meta_data(), AMEDIAFORMAT_KEY_TIME_US, mNext * 1000);
        AMediaFormat_setInt32(buffer->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, mNext % 5 == 0);
        mLog->helpers.push_back(buffer);
        ++mNext;
        *out = buffer;
        return AMEDIA_OK;
    }

private:
    PluginLog *mLog;
    int mId;
    int mNext = 0;
};

class TinyExtractor : public android::MediaExtractorPluginHelper {
public:
    explicit TinyExtractor(PluginLog *log) : mLog(log) { ++mLog->extractorsAlive; }
    ~TinyExtractor() override { --mLog->extractorsAlive; }

    size_t countTracks() override { return 2; }
    MediaTrackHelper *getTrack(size_t index) override {
        return index < 2 ? new CountingTrack(mLog, static_cast<int>(index)) : nullptr;
    }
    media_status_t getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t flags) override {
        if (index >= 2) return AMEDIA_ERROR_UNKNOWN;
        AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, index == 0 ? "video/avc" : "audio/raw");
        AMediaFormat_setInt32(meta, "flags", static_cast<int32_t>(flags));
        return AMEDIA_OK;
    }
    media_status_t getMetaData(AMediaFormat *meta) override {
        AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, "video/x-matroska");
        return AMEDIA_OK;
    }
    const char *name() override { return "TinyExtractor"; }

private:
    PluginLog *mLog;
};

class WrappedPlugin : public ::testing::Test {
protected:
    WrappedPlugin() : extractor(std::make_unique<qmkvhost::Extractor>(android::wrap(new TinyExtractor(&log)))) {}

    uint32_t sampleValue(const Sample &s) {
        uint32_t v = 0;
        EXPECT_EQ(4u, s->range_length());
        memcpy(&v, static_cast<uint8_t *>(s->data()) + s->range_offset(), 4);
        return v;
    }
    int64_t sampleTime(const Sample &s) {
        int64_t t = -1;
        EXPECT_TRUE(AMediaFormat_getInt64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US, &t));
        return t;
    }

    PluginLog log;
    std::unique_ptr<qmkvhost::Extractor> extractor;
};

TEST_F(WrappedPlugin, ExtractorCallsReachTheHelper) {
    EXPECT_EQ(2u, extractor->countTracks());
    AMediaFormat *meta = AMediaFormat_new();
    const char *mime = nullptr;
    ASSERT_EQ(AMEDIA_OK, extractor->getTrackMetaData(meta, 1, 1));
    ASSERT_TRUE(AMediaFormat_getString(meta, AMEDIAFORMAT_KEY_MIME, &mime));
    EXPECT_STREQ("audio/raw", mime);
    int32_t flags = 0;
    EXPECT_TRUE(AMediaFormat_getInt32(meta, "flags", &flags));
    EXPECT_EQ(1, flags);
    EXPECT_EQ(AMEDIA_ERROR_UNKNOWN, extractor->getTrackMetaData(meta, 2));
    ASSERT_EQ(AMEDIA_OK, extractor->getMetaData(meta));
    ASSERT_TRUE(AMediaFormat_getString(meta, AMEDIAFORMAT_KEY_MIME, &mime));
    EXPECT_STREQ("video/x-matroska", mime);
    AMediaFormat_delete(meta);

    // The helper's defaults.
    EXPECT_EQ(15u, extractor->flags());
    EXPECT_EQ(AMEDIA_ERROR_INVALID_OPERATION, extractor->setMediaCas(nullptr, 0));
    EXPECT_STREQ("TinyExtractor", extractor->name());

    EXPECT_FALSE(extractor->getTrack(2));
    EXPECT_EQ(0, log.tracksAlive);
    extractor.reset();
    EXPECT_EQ(0, log.extractorsAlive);
}

TEST_F(WrappedPlugin, TrackReadsSeeksAndBuffersRoundTrip) {
    std::unique_ptr<qmkvhost::Track> track = extractor->getTrack(0);
    ASSERT_NE(nullptr, track);
    EXPECT_EQ(1, log.tracksAlive);
    EXPECT_FALSE(track->supportsNonBlockingRead());
    AMediaFormat *format = AMediaFormat_new();
    int32_t id = -1;
    ASSERT_EQ(AMEDIA_OK, track->getFormat(format));
    EXPECT_TRUE(AMediaFormat_getInt32(format, "id", &id));
    EXPECT_EQ(0, id);
    AMediaFormat_delete(format);

    ASSERT_EQ(AMEDIA_OK, track->start());
    EXPECT_EQ(1u, track->bufferGroup().buffer_count());

    Sample s;
    ASSERT_EQ(AMEDIA_OK, track->read(&s));
    EXPECT_EQ(0u, sampleValue(s));
    EXPECT_EQ(0, sampleTime(s));
    int32_t sync = 0;
    EXPECT_TRUE(AMediaFormat_getInt32(s->meta_data(), AMEDIAFORMAT_KEY_IS_SYNC_FRAME, &sync));
    EXPECT_EQ(1, sync);

    // The only buffer is still out: a non-blocking read cannot get one.
    Sample none;
    EXPECT_EQ(AMEDIA_ERROR_WOULD_BLOCK, track->read(&none, android::NONBLOCKING));
    EXPECT_FALSE(none);
    s.reset();

    ASSERT_EQ(AMEDIA_OK, track->read(&s, android::SEEK | android::SEEK_CLOSEST_SYNC, 5000));
    EXPECT_EQ(5u, sampleValue(s));
    EXPECT_EQ(5000, sampleTime(s));
    ASSERT_EQ(AMEDIA_OK, track->read(&s));  // s gives its buffer back first
    EXPECT_EQ(6u, sampleValue(s));
    s.reset();
    EXPECT_EQ(AMEDIA_ERROR_END_OF_STREAM, track->read(&s, android::SEEK | android::SEEK_NEXT_SYNC, 10000));
    EXPECT_FALSE(s);

    // What the plug-in was told, read by read.
    EXPECT_EQ((std::vector<bool>{false, false, true, false, true}), log.seeks);
    EXPECT_EQ(android::SEEK_CLOSEST_SYNC, log.seekModes[2]);
    EXPECT_EQ(5000, log.seekTimes[2]);
    EXPECT_EQ(android::SEEK_NEXT_SYNC, log.seekModes[4]);
    EXPECT_EQ((std::vector<bool>{false, true, false, false, false}), log.nonBlocking);
    // One helper object per framework buffer, however often it comes back.
    ASSERT_EQ(3u, log.helpers.size());
    EXPECT_EQ(log.helpers[0], log.helpers[1]);
    EXPECT_EQ(log.helpers[0], log.helpers[2]);

    EXPECT_EQ(AMEDIA_OK, track->stop());
    // A restart gets the same group again; this plug-in adds a buffer each time.
    ASSERT_EQ(AMEDIA_OK, track->start());
    EXPECT_EQ(2u, track->bufferGroup().buffer_count());
    EXPECT_EQ(AMEDIA_OK, track->stop());
    EXPECT_EQ(2, log.starts);
    EXPECT_EQ(2, log.stops);

    track.reset();
    EXPECT_EQ(0, log.tracksAlive);
}

TEST_F(WrappedPlugin, TracksAndSamplesMayOutliveWhatMadeThem) {
    std::unique_ptr<qmkvhost::Track> track = extractor->getTrack(1);
    ASSERT_NE(nullptr, track);
    extractor.reset();
    EXPECT_EQ(0, log.extractorsAlive);
    ASSERT_EQ(AMEDIA_OK, track->start());
    Sample s;
    ASSERT_EQ(AMEDIA_OK, track->read(&s));
    track.reset();
    EXPECT_EQ(0, log.tracksAlive);
    EXPECT_EQ(0u, sampleValue(s));
    s.reset();
}

// -------------------------------------------------------- plug-in definition

PluginLog *gEntryLog = nullptr;
const char *gTypes[] = {"tiny", "tny", nullptr};

android::CMediaExtractor *createTiny(android::CDataSource *, void *meta) {
    EXPECT_EQ(42, *static_cast<int *>(meta));
    return android::wrap(new TinyExtractor(gEntryLog));
}

void freeTinyMeta(void *meta) {
    ++gEntryLog->metaFrees;
    delete static_cast<int *>(meta);
}

// Claims sources that start with "TINY".
android::CreatorFunc sniffTiny(android::CDataSource *source, float *confidence, void **meta,
                               android::FreeMetaFunc *freeMeta) {
    char magic[4] = {};
    if (source->readAt(source->handle, 0, magic, 4) != 4 || memcmp(magic, "TINY", 4) != 0) return nullptr;
    *confidence = 0.5f;
    *meta = new int(42);
    *freeMeta = freeTinyMeta;
    return createTiny;
}

android::ExtractorDef tinyDef() {
    return {android::EXTRACTORDEF_VERSION, UUID("0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0"), 1, "Tiny Extractor",
            {.v3 = {sniffTiny, gTypes}}};
}

android::ExtractorDef legacyDef() {
    return {android::EXTRACTORDEF_VERSION_LEGACY, UUID("00000000-0000-0000-0000-000000000000"), 1, "Old",
            {.v3 = {sniffTiny, gTypes}}};
}

// A CDataSource over a string.
struct TextSource {
    explicit TextSource(std::string text) : bytes(std::move(text)) {
        source.handle = this;
        source.readAt = [](void *h, off64_t offset, void *data, size_t size) -> ssize_t {
            const std::string &b = static_cast<TextSource *>(h)->bytes;
            if (offset < 0 || static_cast<size_t>(offset) >= b.size()) return 0;
            size_t n = std::min(size, b.size() - static_cast<size_t>(offset));
            memcpy(data, b.data() + offset, n);
            return static_cast<ssize_t>(n);
        };
        source.getSize = [](void *h, off64_t *size) -> android::status_t {
            *size = static_cast<off64_t>(static_cast<TextSource *>(h)->bytes.size());
            return android::OK;
        };
        source.flags = [](void *) -> uint32_t { return 0; };
        source.getUri = [](void *, char *, size_t) { return false; };
    }
    std::string bytes;
    android::CDataSource source;
};

class PluginDefinition : public ::testing::Test {
protected:
    PluginDefinition() { gEntryLog = &log; }
    ~PluginDefinition() override { gEntryLog = nullptr; }
    PluginLog log;
};

TEST_F(PluginDefinition, SniffCreateAndFreeTheMetaLikeTheFramework) {
    std::string error;
    std::unique_ptr<qmkvhost::Plugin> plugin = qmkvhost::Plugin::fromEntry(tinyDef, &error);
    ASSERT_NE(nullptr, plugin) << error;
    EXPECT_STREQ("Tiny Extractor", plugin->def().extractor_name);
    EXPECT_EQ(0x0f, plugin->def().extractor_uuid.b[0]);
    EXPECT_EQ(0xf0, plugin->def().extractor_uuid.b[15]);
    EXPECT_EQ((std::vector<std::string>{"tiny", "tny"}), plugin->supportedTypes());

    TextSource other("RIFF....");
    float confidence = -1;
    EXPECT_FALSE(plugin->open(&other.source, &confidence));
    EXPECT_EQ(0.0f, confidence);

    TextSource tiny("TINY and more");
    std::unique_ptr<qmkvhost::Extractor> extractor = plugin->open(&tiny.source, &confidence);
    ASSERT_NE(nullptr, extractor);
    EXPECT_EQ(0.5f, confidence);
    EXPECT_EQ(1, log.metaFrees);  // right after creation
    EXPECT_EQ(2u, extractor->countTracks());

    {
        qmkvhost::SniffResult unused = plugin->sniff(&tiny.source);
        EXPECT_TRUE(unused);
        qmkvhost::SniffResult moved = std::move(unused);
    }
    EXPECT_EQ(2, log.metaFrees);  // a sniff that is not followed up still frees its meta once
    extractor.reset();
    EXPECT_EQ(0, log.extractorsAlive);
}

TEST_F(PluginDefinition, UnusableDefinitionsAndLibrariesAreRefused) {
    std::string error;
    EXPECT_FALSE(qmkvhost::Plugin::fromEntry(legacyDef, &error));
    EXPECT_NE(std::string::npos, error.find("version 1")) << error;
    EXPECT_FALSE(qmkvhost::Plugin::load("/nonexistent/libnothing.so", &error));
    EXPECT_NE(std::string::npos, error.find("/nonexistent/libnothing.so")) << error;
}

TEST(HostUuid, TextFormBecomesTheSixteenBytesInOrder) {
    constexpr android::media_uuid_t uuid = android::constUUID("7d613858-5837-4a38-84c5-332d1cddEE27");
    const uint8_t expected[16] = {0x7d, 0x61, 0x38, 0x58, 0x58, 0x37, 0x4a, 0x38,
                                  0x84, 0xc5, 0x33, 0x2d, 0x1c, 0xdd, 0xee, 0x27};
    EXPECT_EQ(0, memcmp(expected, uuid.b, 16));
    android::media_uuid_t viaMacro = UUID("7d613858-5837-4a38-84c5-332d1cddee27");
    EXPECT_EQ(0, memcmp(expected, viaMacro.b, 16));
}

}  // namespace
