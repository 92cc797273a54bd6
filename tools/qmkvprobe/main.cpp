// qmkvprobe: what the Android framework would see in a Matroska file, or
// with --core, what the demuxer core sees.
#include <stdio.h>
#include <time.h>

#include <string>

#include <zlib.h>

#include <media/MediaExtractorPluginHelper.h>
#include <media/stagefright/FileSource.h>

#include "core_reader.h"
#include "core_view.h"
#include "demux/qmkvd.h"
#include "demux/qmkvds.h"
#include "seek_targets.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "options.h"

namespace {

const char kUsage[] =
    "usage: qmkvprobe [--core] [--json] [--packets] [--seek US[:MODE]] [--count] [--seek-count N] "
    "[--plugin PATH] FILE\n";

double now() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

std::string crc32Hex(const uint8_t *data, uint32_t size) {
    char hex[9];
    snprintf(hex, sizeof(hex), "%08lx", crc32(crc32(0L, Z_NULL, 0), data, size));
    return hex;
}

// Reads every track to its end; prints each frame unless only counting.
// Returns the exit status.
// The core's seek mode for each of the framework's.
int32_t coreSeekMode(const std::string &mode) {
    if (mode == "next") return QMKVDS_SEEK_NEXT;
    if (mode == "closest_sync") return QMKVDS_SEEK_CLOSEST;
    return QMKVDS_SEEK_PREVIOUS;  // prev, and closest (no frame-exact seek)
}

int readAllCore(const qmkvprobe::Options &opts, qmkvd *inst, const qmkvd_format &format, double openSeconds) {
    uint64_t frames = 0, bytes = 0;
    int status = 0;
    qmkvprobe::CoreSeek seek;
    seek.enabled = opts.seek;
    seek.time = (uint64_t)opts.seekUs * 10;
    seek.mode = coreSeekMode(opts.seekMode);
    const double start = now();
    for (int t = 0; t < format.track_count; ++t) {
        const int32_t r = qmkvprobe::readCoreTrack(inst, t, seek, [&](const qmkvprobe::CoreFrame &f) {
            frames++;
            bytes += f.size;
            if (opts.count) return;
            const std::string crc = crc32Hex(f.data, f.size);
            if (opts.json) {
                printf("{\"track\": %d, \"time_us\": %lld, \"end_us\": %lld, \"size\": %u, \"sync\": %u, "
                       "\"crc32\": \"%s\"}\n",
                       f.track, (long long)(f.pts / 10), (long long)(f.end / 10), f.size, f.key, crc.c_str());
            } else {
                printf("track %d time_us %lld end_us %lld size %u sync %u crc32 %s\n", f.track,
                       (long long)(f.pts / 10), (long long)(f.end / 10), f.size, f.key, crc.c_str());
            }
        });
        if (r != 1) {
            status = 1;
            if (!opts.count) {
                if (opts.json)
                    printf("{\"track\": %d, \"error\": %d}\n", t, r);
                else
                    printf("track %d error %d\n", t, r);
            }
        }
    }
    if (opts.count) {
        printf("{\"frames\": %llu, \"bytes\": %llu, \"seconds\": %.6f, \"open_seconds\": %.6f}\n",
               (unsigned long long)frames, (unsigned long long)bytes, now() - start, openSeconds);
    }
    return status;
}

int seekCountCore(const qmkvprobe::Options &opts, qmkvd *inst, const qmkvd_format &format) {
    const std::vector<int64_t> times = qmkvprobe::seekTargets(opts.seekCount, format.duration / 10);
    const double start = now();
    for (int t = 0; t < format.track_count; ++t)
        qmkvprobe::seekAndReadCore(inst, t, times, coreSeekMode(opts.seek ? opts.seekMode : "prev"));
    printf("{\"seeks\": %lld, \"tracks\": %d, \"seconds\": %.6f}\n", (long long)opts.seekCount,
           format.track_count, now() - start);
    return 0;
}

int runCore(const qmkvprobe::Options &opts, android::DataSourceHelper *source) {
    QCMN_MFAL mfal;
    if (qcmn_mfal_init(&mfal, source) != 0) {
        fprintf(stderr, "qmkvprobe: out of memory\n");
        return 1;
    }
    // The same open flags as the plug-in: every track's times from its blocks.
    const uint32_t openParams = QMKVD_OPEN_NO_DTS;
    qmkvd_format format;
    int32_t error = 0;
    const double openStart = now();
    qmkvd *inst = qmkvd_create(&mfal, &openParams, &format, &error);
    if (inst != nullptr) qmkvprobe::queryAllInfo(inst, format);
    const double openSeconds = now() - openStart;
    if (inst == nullptr) {
        if (opts.json) printf("{\"file\":{\"error\":%d},\"tracks\":[]}\n", error);
        fprintf(stderr, "qmkvprobe: %s: the demuxer cannot open it (error %d)\n", opts.file.c_str(), error);
        qcmn_mfal_deinit(&mfal);
        return 1;
    }
    int status = 0;
    if (opts.seekCount >= 0) {
        status = seekCountCore(opts, inst, format);
    } else {
        if (!opts.count) qmkvprobe::printView(qmkvprobe::coreView(inst, format), opts.json);
        if (opts.packets || opts.count) status = readAllCore(opts, inst, format, openSeconds);
    }
    qmkvd_delete(inst);
    qcmn_mfal_deinit(&mfal);
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    qmkvprobe::Options opts;
    std::string error;
    if (!qmkvprobe::parseOptions(argc, argv, &opts, &error)) {
        fprintf(stderr, "qmkvprobe: %s\n%s", error.c_str(), kUsage);
        return 2;
    }
    if (!opts.core || !opts.plugin.empty()) {
        fprintf(stderr, "qmkvprobe: only --core is available so far\n");
        return 2;
    }
    android::FileSource file(opts.file.c_str());
    if (file.initCheck() != android::OK) {
        fprintf(stderr, "qmkvprobe: cannot open %s\n", opts.file.c_str());
        return 1;
    }
    android::DataSourceHelper source(file.wrap());
    return runCore(opts, &source);
}
