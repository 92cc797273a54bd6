#include "tests/support/plugin_run.h"

#include <gtest/gtest.h>

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace qmkv_test {

std::unique_ptr<qmkvhost::Plugin> loadPlugin() {
    std::string error;
    std::unique_ptr<qmkvhost::Plugin> p = qmkvhost::Plugin::fromEntry(GETEXTRACTORDEF, &error);
    EXPECT_NE(nullptr, p) << error;
    return p;
}

int32_t i32(AMediaFormat *f, const char *key) {
    int32_t v = INT32_MIN;
    AMediaFormat_getInt32(f, key, &v);
    return v;
}

int64_t i64(AMediaFormat *f, const char *key) {
    int64_t v = -1;
    AMediaFormat_getInt64(f, key, &v);
    return v;
}

std::string str(AMediaFormat *f, const char *key) {
    const char *v = nullptr;
    return AMediaFormat_getString(f, key, &v) ? v : "<none>";
}

std::vector<uint8_t> buffer(AMediaFormat *f, const char *key) {
    void *data = nullptr;
    size_t size = 0;
    if (!AMediaFormat_getBuffer(f, key, &data, &size)) return {};
    return std::vector<uint8_t>(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + size);
}

PluginRun::PluginRun(std::vector<uint8_t> bytes) : memory(std::make_unique<MemorySource>(std::move(bytes))) {
    open(memory->source());
}

PluginRun::PluginRun(const std::string &path) : file(std::make_unique<qmkvhost::FileSource>(path.c_str())) {
    open(file->wrap());
}

void PluginRun::open(android::CDataSource *source) {
    if (plugin != nullptr) ex = plugin->open(source);
    if (ex == nullptr) return;
    fileMeta = AMediaFormat_new();
    ex->getMetaData(fileMeta);
    for (size_t i = 0; i < ex->countTracks(); ++i) {
        formats.push_back(AMediaFormat_new());
        ex->getTrackMetaData(formats.back(), i, 0);
    }
}

PluginRun::~PluginRun() {
    ex.reset();
    for (AMediaFormat *f : formats) AMediaFormat_delete(f);
    if (fileMeta != nullptr) AMediaFormat_delete(fileMeta);
}

std::vector<std::pair<size_t, int64_t>> PluginRun::read(size_t track, uint32_t seek, int64_t seekUs) {
    std::vector<std::pair<size_t, int64_t>> out;
    std::unique_ptr<qmkvhost::Track> t = ex->getTrack(track);
    if (t == nullptr || t->start() != AMEDIA_OK) return out;
    qmkvhost::Sample s;
    for (media_status_t st = t->read(&s, seek, seekUs); st == AMEDIA_OK && out.size() < 100000; st = t->read(&s))
        out.emplace_back(s->range_length(), i64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US));
    t->stop();
    return out;
}

}  // namespace qmkv_test
