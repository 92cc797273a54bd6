// The plug-in driven as the framework drives it: loaded from its entry
// point, opened over bytes in memory or a file, its formats read at once.
#ifndef QMKV_TEST_PLUGIN_RUN_H_
#define QMKV_TEST_PLUGIN_RUN_H_

#include <stdint.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <qmkvhost/ExtractorHost.h>
#include <qmkvhost/FileSource.h>

#include "tests/support/memory_source.h"

namespace qmkv_test {

std::unique_ptr<qmkvhost::Plugin> loadPlugin();

// A format's values; a missing key gives INT32_MIN, -1, "<none>" or no bytes.
int32_t i32(AMediaFormat *f, const char *key);
int64_t i64(AMediaFormat *f, const char *key);
std::string str(AMediaFormat *f, const char *key);
std::vector<uint8_t> buffer(AMediaFormat *f, const char *key);

struct PluginRun {
    explicit PluginRun(std::vector<uint8_t> bytes);
    explicit PluginRun(const std::string &path);
    ~PluginRun();
    PluginRun(const PluginRun &) = delete;
    PluginRun &operator=(const PluginRun &) = delete;

    size_t tracks() const { return formats.size(); }
    // Every sample's size and time, after an optional seek.
    std::vector<std::pair<size_t, int64_t>> read(size_t track, uint32_t seek = 0, int64_t seekUs = 0);

    std::unique_ptr<qmkvhost::Plugin> plugin = loadPlugin();
    std::unique_ptr<MemorySource> memory;
    std::unique_ptr<qmkvhost::FileSource> file;
    std::unique_ptr<qmkvhost::Extractor> ex;
    AMediaFormat *fileMeta = nullptr;
    std::vector<AMediaFormat *> formats;  // one per track

private:
    void open(android::CDataSource *source);
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_PLUGIN_RUN_H_
