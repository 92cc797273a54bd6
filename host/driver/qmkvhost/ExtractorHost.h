// Drives an extractor plug-in the way the Android framework does: load the
// library, read its definition through GETEXTRACTORDEF, sniff a data source,
// create the extractor, query its tracks and formats, and start, read (with
// seeks) and stop tracks with buffers from a real buffer group. Used by the
// probe and the tests; it adds no behaviour of its own to the plug-in's.
//
// Lifetimes: a Plugin must outlive every Extractor and Track made from it (its
// code is unloaded with it); a Track may outlive its Extractor, as in the
// framework; a Sample may outlive its Track.
#ifndef QMKV_HOST_EXTRACTOR_HOST_H_
#define QMKV_HOST_EXTRACTOR_HOST_H_

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <media/MediaExtractorPluginApi.h>
#include <media/NdkMediaFormat.h>
#include <qmkvhost/MediaBufferGroup.h>

namespace qmkvhost {

struct ReleaseSample {
    void operator()(MediaBuffer *buffer) const {
        if (buffer != nullptr) buffer->release();
    }
};
// One sample read from a track; going out of scope gives the buffer back.
using Sample = std::unique_ptr<MediaBuffer, ReleaseSample>;

class Track {
public:
    // Takes ownership of a record a plug-in returned.
    explicit Track(android::CMediaTrack *record);
    // Frees the record (and with it the plug-in's track) as the framework
    // does, without stopping it first.
    ~Track();
    Track(const Track &) = delete;
    Track &operator=(const Track &) = delete;

    // Start hands the plug-in this track's buffer group, the same one on
    // every start.
    media_status_t start();
    media_status_t stop();
    media_status_t getFormat(AMediaFormat *format);
    // One sample. `options` is a CMediaTrackReadOptions combination, e.g.
    // SEEK | SEEK_CLOSEST_SYNC with the target in seekPosUs. Whatever *out
    // held is released first; it holds the new sample only on AMEDIA_OK. A
    // plug-in that reports success without a held buffer of this host gets
    // AMEDIA_ERROR_INVALID_OBJECT.
    media_status_t read(Sample *out, uint32_t options = 0, int64_t seekPosUs = 0);
    bool supportsNonBlockingRead();

    MediaBufferGroup &bufferGroup() { return mGroup; }

private:
    android::CMediaTrack *mRecord;
    MediaBufferGroup mGroup;
};

class Extractor {
public:
    // Takes ownership of a record a plug-in's creator returned.
    explicit Extractor(android::CMediaExtractor *record);
    ~Extractor();
    Extractor(const Extractor &) = delete;
    Extractor &operator=(const Extractor &) = delete;

    size_t countTracks();
    // Null when the plug-in returns no track.
    std::unique_ptr<Track> getTrack(size_t index);
    media_status_t getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t flags = 0);
    media_status_t getMetaData(AMediaFormat *meta);
    uint32_t flags();
    media_status_t setMediaCas(const uint8_t *casToken, size_t size);
    const char *name();

private:
    android::CMediaExtractor *mRecord;
};

// What a sniff left: the creator (null when the plug-in does not claim the
// source), its confidence and its opaque meta, which is freed with the
// plug-in's freeMeta when the result goes unless create() used it.
class SniffResult {
public:
    SniffResult() = default;
    ~SniffResult();
    SniffResult(SniffResult &&other) noexcept;
    SniffResult &operator=(SniffResult &&other) noexcept;

    explicit operator bool() const { return creator != nullptr; }

    android::CreatorFunc creator = nullptr;
    float confidence = 0.0f;
    void *meta = nullptr;
    android::FreeMetaFunc freeMeta = nullptr;

private:
    void freeTheMeta();
};

class Plugin {
public:
    // Loads a plug-in library. Null, with the reason in *error, when it
    // cannot be loaded, has no GETEXTRACTORDEF or an unusable definition.
    static std::unique_ptr<Plugin> load(const std::string &path, std::string *error);
    // A plug-in linked into this process, known by its entry point.
    static std::unique_ptr<Plugin> fromEntry(android::GetExtractorDef entry, std::string *error);
    ~Plugin();
    Plugin(const Plugin &) = delete;
    Plugin &operator=(const Plugin &) = delete;

    const android::ExtractorDef &def() const { return mDef; }
    // The definition's list of container types and extensions (version 3).
    std::vector<std::string> supportedTypes() const;

    SniffResult sniff(android::CDataSource *source) const;
    // Creates the extractor for a source a sniff claimed, then frees the
    // sniff's meta, as the framework does. Null when the creator fails.
    std::unique_ptr<Extractor> create(android::CDataSource *source, SniffResult &sniffed) const;
    // Sniff and create; null when the source is not claimed.
    std::unique_ptr<Extractor> open(android::CDataSource *source, float *confidence = nullptr) const;

private:
    Plugin(void *library, const android::ExtractorDef &def);
    static std::unique_ptr<Plugin> adopt(void *library, android::GetExtractorDef entry, std::string *error);

    void *mLibrary;  // dlopen handle; null for a linked-in plug-in
    android::ExtractorDef mDef;
};

}  // namespace qmkvhost

#endif  // QMKV_HOST_EXTRACTOR_HOST_H_
