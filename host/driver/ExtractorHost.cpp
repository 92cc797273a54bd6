#include <qmkvhost/ExtractorHost.h>

#include <dlfcn.h>
#include <stdlib.h>

#include <utility>

#include <utils/Log.h>

#undef LOG_TAG
#define LOG_TAG "ExtractorHost"

using android::CMediaBuffer;

namespace qmkvhost {

Track::Track(android::CMediaTrack *record) : mRecord(record) {}

Track::~Track() {
    if (mRecord == nullptr) return;
    mRecord->free(mRecord->data);
    free(mRecord);
}

media_status_t Track::start() { return mRecord->start(mRecord->data, mGroup.wrap()); }

media_status_t Track::stop() { return mRecord->stop(mRecord->data); }

media_status_t Track::getFormat(AMediaFormat *format) { return mRecord->getFormat(mRecord->data, format); }

media_status_t Track::read(Sample *out, uint32_t options, int64_t seekPosUs) {
    out->reset();  // a held sample could be the buffer this read needs
    CMediaBuffer *raw = nullptr;
    media_status_t status = mRecord->read(mRecord->data, &raw, options, seekPosUs);
    if (status != AMEDIA_OK) return status;
    MediaBuffer *buffer = MediaBuffer::fromRecord(raw);
    if (buffer == nullptr || !buffer->isHeld()) {
        ALOGE("read succeeded without a held buffer of this host (%p)", raw);
        return AMEDIA_ERROR_INVALID_OBJECT;
    }
    out->reset(buffer);
    return AMEDIA_OK;
}

bool Track::supportsNonBlockingRead() { return mRecord->supportsNonBlockingRead(mRecord->data); }

Extractor::Extractor(android::CMediaExtractor *record) : mRecord(record) {}

Extractor::~Extractor() {
    if (mRecord == nullptr) return;
    mRecord->free(mRecord->data);
    free(mRecord);
}

size_t Extractor::countTracks() { return mRecord->countTracks(mRecord->data); }

std::unique_ptr<Track> Extractor::getTrack(size_t index) {
    android::CMediaTrack *track = mRecord->getTrack(mRecord->data, index);
    if (track == nullptr) return nullptr;
    return std::make_unique<Track>(track);
}

media_status_t Extractor::getTrackMetaData(AMediaFormat *meta, size_t index, uint32_t flags) {
    return mRecord->getTrackMetaData(mRecord->data, meta, index, flags);
}

media_status_t Extractor::getMetaData(AMediaFormat *meta) { return mRecord->getMetaData(mRecord->data, meta); }

uint32_t Extractor::flags() { return mRecord->flags(mRecord->data); }

media_status_t Extractor::setMediaCas(const uint8_t *casToken, size_t size) {
    return mRecord->setMediaCas(mRecord->data, casToken, size);
}

const char *Extractor::name() { return mRecord->name(mRecord->data); }

SniffResult::~SniffResult() { freeTheMeta(); }

SniffResult::SniffResult(SniffResult &&other) noexcept { *this = std::move(other); }

SniffResult &SniffResult::operator=(SniffResult &&other) noexcept {
    if (this != &other) {
        freeTheMeta();
        creator = other.creator;
        confidence = other.confidence;
        meta = other.meta;
        freeMeta = other.freeMeta;
        other.meta = nullptr;
        other.freeMeta = nullptr;
    }
    return *this;
}

void SniffResult::freeTheMeta() {
    if (meta != nullptr && freeMeta != nullptr) freeMeta(meta);
    meta = nullptr;
    freeMeta = nullptr;
}

Plugin::Plugin(void *library, const android::ExtractorDef &def) : mLibrary(library), mDef(def) {}

Plugin::~Plugin() {
    if (mLibrary != nullptr) dlclose(mLibrary);
}

std::unique_ptr<Plugin> Plugin::load(const std::string &path, std::string *error) {
    void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        *error = std::string("cannot load ") + path + ": " + dlerror();
        return nullptr;
    }
    auto entry = reinterpret_cast<android::GetExtractorDef>(dlsym(library, "GETEXTRACTORDEF"));
    if (entry == nullptr) {
        *error = path + " exports no GETEXTRACTORDEF";
        dlclose(library);
        return nullptr;
    }
    std::unique_ptr<Plugin> plugin = adopt(library, entry, error);
    if (plugin == nullptr) dlclose(library);
    return plugin;
}

std::unique_ptr<Plugin> Plugin::fromEntry(android::GetExtractorDef entry, std::string *error) {
    return adopt(nullptr, entry, error);
}

std::unique_ptr<Plugin> Plugin::adopt(void *library, android::GetExtractorDef entry, std::string *error) {
    const android::ExtractorDef def = entry();
    // Versions 2 and 3 both keep the sniffer first in the union.
    if (def.def_version != android::EXTRACTORDEF_VERSION_NDK_V1 &&
        def.def_version != android::EXTRACTORDEF_VERSION_NDK_V2) {
        *error = "unsupported plug-in definition version " + std::to_string(def.def_version);
        return nullptr;
    }
    if (def.u.v2.sniff == nullptr) {
        *error = "plug-in definition without a sniffer";
        return nullptr;
    }
    return std::unique_ptr<Plugin>(new Plugin(library, def));
}

std::vector<std::string> Plugin::supportedTypes() const {
    std::vector<std::string> types;
    if (mDef.def_version < android::EXTRACTORDEF_VERSION_NDK_V2 || mDef.u.v3.supported_types == nullptr) {
        return types;
    }
    for (const char **t = mDef.u.v3.supported_types; *t != nullptr; ++t) types.emplace_back(*t);
    return types;
}

SniffResult Plugin::sniff(android::CDataSource *source) const {
    SniffResult result;
    result.creator = mDef.u.v2.sniff(source, &result.confidence, &result.meta, &result.freeMeta);
    return result;
}

std::unique_ptr<Extractor> Plugin::create(android::CDataSource *source, SniffResult &sniffed) const {
    if (!sniffed) return nullptr;
    android::CMediaExtractor *record = sniffed.creator(source, sniffed.meta);
    sniffed = SniffResult();  // the framework frees the meta right after creating
    if (record == nullptr) return nullptr;
    return std::make_unique<Extractor>(record);
}

std::unique_ptr<Extractor> Plugin::open(android::CDataSource *source, float *confidence) const {
    SniffResult sniffed = sniff(source);
    if (confidence != nullptr) *confidence = sniffed.confidence;
    return create(source, sniffed);
}

}  // namespace qmkvhost
