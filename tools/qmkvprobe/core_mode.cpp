// --core: the demuxer core's own view of a file, its frames and seeks.
#include "core_mode.h"

#include <stdio.h>

#include <string>
#include <vector>

#include "core_reader.h"
#include "core_view.h"
#include "demux/qmkvd.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "probe_util.h"
#include "seek_targets.h"

namespace qmkvprobe {

int32_t coreSeekMode(const std::string &mode) {
    if (mode == "next") return QMKVDS_SEEK_NEXT;
    if (mode == "closest_sync") return QMKVDS_SEEK_CLOSEST;
    return QMKVDS_SEEK_PREVIOUS;  // prev, and closest (no frame-exact seek)
}

namespace {

// Reads every track to its end; prints each frame unless only counting.
// Returns the exit status.
int readAllCore(const Options &opts, qmkvd *inst, const qmkvd_format &format, const OpenCost &open,
                const CountedSource &counted) {
    uint64_t frames = 0, bytes = 0;
    int status = 0;
    CoreSeek seek;
    seek.enabled = opts.seek;
    seek.time = (uint64_t)opts.seekUs * 10;
    seek.mode = coreSeekMode(opts.seekMode);
    const double start = now();
    for (int t = 0; t < format.track_count; ++t) {
        const int32_t r = readCoreTrack(inst, t, seek, [&](const CoreFrame &f) {
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
    if (opts.count) printCountLine(frames, bytes, now() - start, open, counted);
    return status;
}

int seekCountCore(const Options &opts, qmkvd *inst, const qmkvd_format &format) {
    const std::vector<int64_t> times = seekTargets(opts.seekCount, format.duration / 10);
    const double start = now();
    int64_t failed = 0;
    for (int t = 0; t < format.track_count; ++t)
        failed += seekAndReadCore(inst, t, times, coreSeekMode(opts.seek ? opts.seekMode : "prev"));
    printSeekCountLine(opts.seekCount, failed, format.track_count, now() - start);
    return 0;
}

}  // namespace

int runCore(const Options &opts, android::DataSourceHelper *source, const CountedSource &counted) {
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
    if (inst != nullptr) queryAllInfo(inst, format);
    const OpenCost open = {now() - openStart, counted.reads()};
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
        if (!opts.count) printView(coreView(inst, format), opts.json);
        if (opts.packets || opts.count) status = readAllCore(opts, inst, format, open, counted);
    }
    qmkvd_delete(inst);
    qcmn_mfal_deinit(&mfal);
    return status;
}

}  // namespace qmkvprobe
