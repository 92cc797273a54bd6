#include "core_reader.h"

#include <vector>

#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"

namespace qmkvprobe {

int32_t readCoreTrack(qmkvd *inst, int index, const std::function<void(const CoreFrame &)> &onFrame) {
    int32_t err = 0;
    qmkvds *s = qmkvds_open(inst, index, &err);
    if (s == nullptr) return err != 0 ? err : -3;
    std::vector<uint8_t> buf(64 * 1024);
    int32_t r;
    for (;;) {
        uint32_t size = 0;
        int64_t pts = 0, end = 0;
        uint32_t key = 0;
        // Size first, then the frame into a buffer that fits it.
        r = qmkvds_get_frm(s, nullptr, 0, &size, &pts, &end, &key);
        if (r != 0) break;
        if (size > buf.size()) buf.resize(size);
        r = qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, &pts, &end, &key);
        if (r != 0) break;
        onFrame(CoreFrame{index, pts, end, key, buf.data(), size});
    }
    qmkvds_close(s);
    return r;
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
