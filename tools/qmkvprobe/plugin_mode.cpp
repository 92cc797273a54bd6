#include "plugin_mode.h"

#include <stdio.h>

#include <vector>

#include <qmkvhost/ExtractorHost.h>
#include <qmkvhost/FileSource.h>

#include "core_view.h"
#include "counted_source.h"
#include "format_json.h"
#include "probe_util.h"
#include "qextractorcmn/ExtMediaFormatDef.h"
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

struct Formats {
    AMediaFormat *file = nullptr;
    std::vector<AMediaFormat *> tracks;
    ~Formats() {
        AMediaFormat_delete(file);
        for (AMediaFormat *f : tracks) AMediaFormat_delete(f);
    }
};

void readFormats(qmkvhost::Extractor &ex, Formats *f) {
    f->file = AMediaFormat_new();
    ex.getMetaData(f->file);
    const size_t n = ex.countTracks();
    for (size_t i = 0; i < n; ++i) {
        AMediaFormat *meta = AMediaFormat_new();
        ex.getTrackMetaData(meta, i, 0);
        f->tracks.push_back(meta);
    }
}

// A track's format with the plug-in's words for its status under "status",
// next to the status code.
ordered_json trackJson(AMediaFormat *format) {
    const ordered_json keys = formatToJson(format);
    const auto words = keys.find(AMEDIAFORMAT_KEY_TRACK_STATUS);
    const ordered_json status = words != keys.end() ? *words : ordered_json("not reported by the plug-in");
    ordered_json j = ordered_json::object();
    for (auto &[key, value] : keys.items()) {
        if (key == AMEDIAFORMAT_KEY_TRACK_STATUS) continue;
        j[key] = value;
        if (key == AMEDIAFORMAT_KEY_ERROR_TYPE) j["status"] = status;
    }
    if (!j.contains("status")) j["status"] = status;
    return j;
}

ordered_json formatsJson(const Formats &f) {
    ordered_json tracks = ordered_json::array();
    for (AMediaFormat *t : f.tracks) tracks.push_back(trackJson(t));
    return ordered_json{{"file", formatToJson(f.file)}, {"tracks", tracks}};
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
    for (size_t i = 0; i < formats.tracks.size(); ++i) {
        std::unique_ptr<qmkvhost::Track> track = ex.getTrack(i);
        if (track == nullptr || track->start() != AMEDIA_OK) continue;
        for (int64_t t : targets) {
            qmkvhost::Sample sample;
            track->read(&sample, options, t);
        }
        track->stop();
    }
    printf("{\"seeks\": %lld, \"tracks\": %zu, \"seconds\": %.6f}\n", (long long)opts.seekCount,
           formats.tracks.size(), now() - start);
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
    std::unique_ptr<qmkvhost::Extractor> ex = plugin->open(counted.source());
    if (ex == nullptr) {
        fprintf(stderr, "qmkvprobe: %s is not claimed by the plug-in\n", opts.file.c_str());
        return 1;
    }
    Formats formats;
    readFormats(*ex, &formats);
    const OpenCost open = {now() - openStart, counted.reads()};
    if (formats.tracks.empty()) {
        fprintf(stderr, "qmkvprobe: %s: the extractor lists no track\n", opts.file.c_str());
        return 1;
    }
    if (opts.seekCount >= 0) return seekCount(opts, *ex, formats);
    if (!opts.count) printView(formatsJson(formats), opts.json);
    if (!opts.packets && !opts.count) return 0;

    Counts counts;
    bool ok = true;
    const double start = now();
    for (size_t i = 0; i < formats.tracks.size(); ++i) ok = readTrack(opts, *ex, i, &counts) && ok;
    if (opts.count) printCountLine(counts.frames, counts.bytes, now() - start, open, counted);
    return ok ? 0 : 1;
}

}  // namespace qmkvprobe
