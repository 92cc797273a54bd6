#include "core_reader.h"

#include <vector>

#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"

namespace qmkvprobe {

int32_t readCoreFrame(qmkvds *s, std::vector<uint8_t> &buf, CoreFrame *f) {
    uint32_t size = 0;
    int32_t r = qmkvds_get_frm(s, nullptr, 0, &size, &f->pts, &f->end, &f->key);
    if (r != 0) return r;
    if (size + 1 > buf.size()) buf.resize(size + 1);
    r = qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, &f->pts, &f->end, &f->key);
    f->data = buf.data();
    f->size = size;
    return r;
}

int32_t readCoreTrack(qmkvd *inst, int index, const CoreSeek &seek,
                      const std::function<void(const CoreFrame &)> &onFrame) {
    int32_t err = 0;
    qmkvds *s = qmkvds_open(inst, index, &err);
    if (s == nullptr) return err != 0 ? err : -3;
    std::vector<uint8_t> buf(64 * 1024);
    int32_t r = 0;
    if (seek.enabled) {
        int64_t found = 0;
        r = qmkvds_seek(s, &seek.time, &found, seek.mode);
        if (r != 0) {
            qmkvds_close(s);
            return r;
        }
    }
    for (;;) {
        CoreFrame f{index, 0, 0, 0, nullptr, 0};
        r = readCoreFrame(s, buf, &f);
        if (r != 0) break;
        f.stream = s;
        onFrame(f);
    }
    qmkvds_close(s);
    return r;
}

int64_t seekAndReadCore(qmkvd *inst, int index, const std::vector<int64_t> &timesUs, int32_t mode) {
    qmkvds *s = qmkvds_open(inst, index, nullptr);
    if (s == nullptr) return (int64_t)timesUs.size();
    std::vector<uint8_t> buf(64 * 1024);
    int64_t failed = 0;
    for (int64_t us : timesUs) {
        const uint64_t t = (uint64_t)us * 10;
        int64_t found = 0;
        CoreFrame f{index, 0, 0, 0, nullptr, 0};
        if (qmkvds_seek(s, &t, &found, mode) != 0 || readCoreFrame(s, buf, &f) != 0) failed++;
    }
    qmkvds_close(s);
    return failed;
}

void queryAllInfo(qmkvd *inst, const qmkvd_format &format) {
    for (int t = 0; t < format.track_count; ++t) {
        int32_t size = 0;
        if (qmkvd_get_format(inst, t, nullptr, &size) == 0 && size > 0) {
            std::vector<uint8_t> config((size_t)size);
            qmkvd_get_format(inst, t, config.data(), &size);
        }
        qmkvd_info_vid vid;
        qmkvd_info_aud aud;
        qmkvd_info_txt txt;
        switch (format.track_type[t]) {
            case QMKVD_TRACK_VIDEO: qmkvd_get_info_vid(inst, t, &vid); break;
            case QMKVD_TRACK_AUDIO: qmkvd_get_info_aud(inst, t, &aud); break;
            case QMKVD_TRACK_SUBTITLE: qmkvd_get_info_txt(inst, t, &txt); break;
            default: break;
        }
    }
}

}  // namespace qmkvprobe
