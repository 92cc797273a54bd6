// qmkvdump FILE...: everything the demuxer core delivers for each file, as
// plain text that must be the same on every ABI: the file summary, each
// track's codec configuration, every frame (time, end, size, key flag,
// CRC-32), and where a grid of seeks per track lands. scripts/cross.sh runs
// it natively and, built for 32- and 64-bit ARM, under qemu, and compares.
#include <stdio.h>

#include <vector>

#include <media/MediaExtractorPluginHelper.h>
#include <qmkvhost/FileSource.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "tools/qmkvprobe/core_reader.h"

namespace {

// Seek targets per track: every eighth of the duration, and past the end.
const int kSeekSteps = 8;
const int32_t kSeekModes[] = {QMKVDS_SEEK_PREVIOUS, QMKVDS_SEEK_NEXT, QMKVDS_SEEK_CLOSEST};

// CRC-32 (IEEE 802.3, as zlib computes it).
uint32_t crc32(const uint8_t *data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void printFrame(const char *what, const qmkvprobe::CoreFrame &f) {
    printf("%s %d %lld %lld %u %u %08x\n", what, f.track, (long long)f.pts, (long long)f.end, f.size, f.key,
           crc32(f.data, f.size));
}

void dumpConfig(qmkvd *inst, int track) {
    int32_t size = 0;
    int32_t r = qmkvd_get_format(inst, track, nullptr, &size);
    std::vector<uint8_t> config(size > 0 ? (size_t)size : 0);
    if (r == 0 && size > 0) r = qmkvd_get_format(inst, track, config.data(), &size);
    printf("config %d %d %d %08x\n", track, r, size, r == 0 ? crc32(config.data(), config.size()) : 0);
}

void dumpSeeks(qmkvd *inst, int track, int64_t duration) {
    qmkvds *s = qmkvds_open(inst, track, nullptr);
    if (s == nullptr) return;
    std::vector<uint8_t> buf;
    for (int step = 0; step <= kSeekSteps + 1; ++step) {
        const uint64_t target = (uint64_t)(duration / kSeekSteps * step);
        for (int32_t mode : kSeekModes) {
            int64_t found = 0;
            const int32_t r = qmkvds_seek(s, &target, &found, mode);
            printf("seek %d %d %llu %d %lld\n", track, mode, (unsigned long long)target, r, (long long)found);
            if (r != 0) continue;
            qmkvprobe::CoreFrame f{track, 0, 0, 0, nullptr, 0};
            const int32_t got = qmkvprobe::readCoreFrame(s, buf, &f);
            if (got == 0) printFrame("landed", f);
            else printf("landed %d error %d\n", track, got);
        }
    }
    qmkvds_close(s);
}

int dump(const char *path) {
    printf("file %s\n", path);
    qmkvhost::FileSource file(path);
    android::DataSourceHelper source(file.wrap());
    QCMN_MFAL mfal;
    if (file.initCheck() != android::OK || qcmn_mfal_init(&mfal, &source) != 0) {
        fprintf(stderr, "qmkvdump: %s: cannot open\n", path);
        return 1;
    }
    const uint32_t openParams = QMKVD_OPEN_NO_DTS;  // as the plug-in opens files
    qmkvd_format format;
    int32_t error = 0;
    qmkvd *inst = qmkvd_create(&mfal, &openParams, &format, &error);
    if (inst == nullptr) {
        printf("open error %d\n", error);
        qcmn_mfal_deinit(&mfal);
        return 0;
    }
    printf("tracks %d video %d audio %d subtitle %d duration %lld seekable %u index %d\n", format.track_count,
           format.video_count, format.audio_count, format.subtitle_count, (long long)format.duration,
           format.seekable, format.index_count);
    for (int t = 0; t < format.track_count; ++t) {
        printf("track %d type %d codec %08x\n", t, format.track_type[t], format.track_codec_types[t]);
        dumpConfig(inst, t);
        const int32_t end = qmkvprobe::readCoreTrack(inst, t, qmkvprobe::CoreSeek(),
                                                     [](const qmkvprobe::CoreFrame &f) { printFrame("frame", f); });
        printf("end %d %d\n", t, end);
        dumpSeeks(inst, t, format.duration);
    }
    qmkvd_delete(inst);
    qcmn_mfal_deinit(&mfal);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: qmkvdump FILE...\n");
        return 2;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i) status |= dump(argv[i]);
    return status;
}
