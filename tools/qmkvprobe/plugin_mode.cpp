#include "plugin_mode.h"

#include <stdio.h>

#include <vector>

#include <qmkvhost/ExtractorHost.h>
#include <qmkvhost/FileSource.h>

#include "core_view.h"
#include "counted_source.h"
#include "dropped_tracks.h"
#include "plugin_formats.h"
#include "probe_util.h"
#include "seek_targets.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

namespace {

// The framework's read options for a --seek mode.
uint32_t seekOptions(const std::string &mode) {
    uint32_t m = android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC;
    if (mode == "next") m = android::CMediaTrackReadOptions::SEEK_NEXT_SYNC;
    if (mode == "closest_sync") m = android::CMediaTrackReadOptions::SEEK_CLOSEST_SYNC;
    if (mode == "closest") m = android::CMediaTrackReadOptions::SEEK_CLOSEST;
    return android::CMediaTrackReadOptions::SEEK | m;
}

struct Counts {
    uint64_t frames = 0, bytes = 0;
};

// Reads one track to its end; returns false when a read failed.
bool readTrack(const Options &opts, qmkvhost::Extractor &ex, size_t index, Counts *counts) {
    std::unique_ptr<qmkvhost::Track> track = ex.getTrack(index);
    media_status_t status = track != nullptr ? track->start() : AMEDIA_ERROR_UNKNOWN;
    const bool started = status == AMEDIA_OK;
    uint32_t options = opts.seek ? seekOptions(opts.seekMode) : 0;
    while (status == AMEDIA_OK) {
        qmkvhost::Sample sample;
        status = track->read(&sample, options, opts.seekUs);
        options = 0;
        if (status != AMEDIA_OK) break;
        const uint8_t *data = static_cast<const uint8_t *>(sample->data()) + sample->range_offset();
        const size_t size = sample->range_length();
        counts->frames++;
        counts->bytes += size;
        if (opts.count) continue;
        AMediaFormat *meta = sample->meta_data();
        int64_t timeUs = 0, durationUs = 0;
        int32_t sync = 0;
        AMediaFormat_getInt64(meta, AMEDIAFORMAT_KEY_TIME_US, &timeUs);
        AMediaFormat_getInt32(meta, AMEDIAFORMAT_KEY_IS_SYNC_FRAME, &sync);
        const bool hasDuration = AMediaFormat_getInt64(meta, AMEDIAFORMAT_KEY_DURATION, &durationUs);
        if (opts.json) {
            ordered_json line = {{"track", index}, {"time_us", timeUs}, {"size", size}, {"sync", sync},
                                 {"crc32", crc32Hex(data, size)}};
            if (hasDuration) line["duration_us"] = durationUs;
            printf("%s\n", line.dump().c_str());
        } else {
            printf("track %zu time_us %lld size %zu sync %d crc32 %s", index, (long long)timeUs, size, sync,
                   crc32Hex(data, size).c_str());
            if (hasDuration) printf(" duration_us %lld", (long long)durationUs);
            printf("\n");
        }
    }
    // The framework stops only a track that started.
    if (started) track->stop();
    if (status == AMEDIA_ERROR_END_OF_STREAM) return true;
    fprintf(stderr, "qmkvprobe: track %zu %s (status %d)\n", index, started ? "ended in a read error" : "did not start",
            status);
    if (!opts.count) {
        if (opts.json)
            printf("%s\n", ordered_json({{"track", index}, {"error", status}}).dump().c_str());
        else
            printf("track %zu error %d\n", index, status);
    }
    return false;
}

int seekCount(const Options &opts, qmkvhost::Extractor &ex, const Formats &formats) {
    int64_t durationUs = 0;
    for (AMediaFormat *t : formats.tracks) {
        int64_t d = 0;
        if (AMediaFormat_getInt64(t, AMEDIAFORMAT_KEY_DURATION, &d) && d > durationUs) durationUs = d;
    }
    const std::vector<int64_t> targets = seekTargets(opts.seekCount, durationUs);
    const uint32_t options = seekOptions(opts.seek ? opts.seekMode : "prev");
    const double start = now();
    int64_t failed = 0;
    for (size_t i = 0; i < formats.tracks.size(); ++i) {
        std::unique_ptr<qmkvhost::Track> track = ex.getTrack(i);
        if (track == nullptr || track->start() != AMEDIA_OK) {
            failed += (int64_t)targets.size();
            continue;
        }
        for (int64_t t : targets) {
            qmkvhost::Sample sample;
            if (track->read(&sample, options, t) != AMEDIA_OK) failed++;
        }
        track->stop();
    }
    printSeekCountLine(opts.seekCount, failed, (int64_t)formats.tracks.size(), now() - start);
    return 0;
}

}  // namespace

int runPlugin(const Options &opts, const std::string &pluginPath) {
    std::string error;
    std::unique_ptr<qmkvhost::Plugin> plugin = qmkvhost::Plugin::load(pluginPath, &error);
    if (plugin == nullptr) {
        fprintf(stderr, "qmkvprobe: cannot load the plug-in %s: %s\n", pluginPath.c_str(), error.c_str());
        return 1;
    }
    qmkvhost::FileSource file(opts.file.c_str());
    if (file.initCheck() != android::OK) {
        fprintf(stderr, "qmkvprobe: cannot open %s\n", opts.file.c_str());
        return 1;
    }
    CountedSource counted(file.wrap());
    const double openStart = now();
    Formats formats;
    std::string why;
    std::unique_ptr<qmkvhost::Extractor> ex = openFormats(*plugin, counted.source(), &formats, &why);
    const OpenCost open = {now() - openStart, counted.reads()};
    if (ex == nullptr) {
        fprintf(stderr, "qmkvprobe: %s: %s\n", opts.file.c_str(), why.c_str());
        return 1;
    }
    if (opts.seekCount >= 0) return seekCount(opts, *ex, formats);
    if (!opts.count) {
        nlohmann::ordered_json view = formatsJson(formats);
        // The plug-in's formats never mention the entries it dropped; the
        // core, opened on the same file, lists them.
        view["dropped"] = droppedOfFile(opts.file);
        printView(view, opts.json);
    }
    if (!opts.packets && !opts.count) return 0;

    Counts counts;
    bool ok = true;
    const double start = now();
    for (size_t i = 0; i < formats.tracks.size(); ++i) ok = readTrack(opts, *ex, i, &counts) && ok;
    if (opts.count) printCountLine(counts.frames, counts.bytes, now() - start, open, counted);
    return ok ? 0 : 1;
}

}  // namespace qmkvprobe
